// The start of a process that gets no memory, and its end.
#include "daemon/process_entry.h"

#include "support/allocation_limit.h"
#include "support/daemon_test.h"
#include "support/virtual_clock.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace orvane::test {
namespace {

/// The parameter: the largest piece of memory that can be had, in bytes. From none at all, not even
/// for the logger, to enough for that but not for a long message.
class ProcessEntryTest : public DaemonTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(ProcessEntryTest, WithoutMemoryTheProcessEndsWithStatus1) {
    EXPECT_EXIT(
        {
            const AllocationLimit limit(GetParam());
            runProcess();
        },
        ::testing::ExitedWithCode(EXIT_FAILURE), "");
}

class ProcessEndTest : public DaemonTest {};

TEST_F(ProcessEndTest, AnExceptionOnAnyThreadEndsTheProcessWithStatus1) {
    virtual_clock::onSleep(
        [](double) { std::thread([] { throw std::runtime_error("a worker's"); }).join(); });
    EXPECT_EXIT(runProcess(), ::testing::ExitedWithCode(EXIT_FAILURE), "");
}

INSTANTIATE_TEST_SUITE_P(Memory, ProcessEntryTest, ::testing::Range<std::size_t>(0, 129, 16));

}  // namespace
}  // namespace orvane::test
