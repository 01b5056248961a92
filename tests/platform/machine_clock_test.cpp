// The clock that the daemon ships with.
#include "platform/machine/clock.h"
#include "platform/machine/continuous_time.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>

namespace orvane::test {

namespace {

using namespace std::chrono_literals;

/// Lets poll(2) wait without end, as its time limit does while the machine sleeps.
std::atomic<bool> timeStandsStill = false;

TEST(MachineClockTest, ItIsContinuousTime) {
    const auto before = continuousTime();
    const auto now = clock::monotonicNow().time_since_epoch();
    EXPECT_LE(before, now);
    EXPECT_LE(now, continuousTime());
}

TEST(MachineClockTest, ASleepLastsAsLongAsItShould) {
    const auto start = clock::monotonicNow();
    clock::sleep(0.03);
    EXPECT_GE(clock::monotonicNow() - start, 30ms);
    clock::sleep(0);
    clock::sleep(-1);
}

TEST(MachineClockTest, ASleepEndsThoughTheMachineSleepsItself) {
    timeStandsStill = true;
    clock::sleep(0.01);
    timeStandsStill = false;
}

TEST(MachineClockTest, ABlockGoesOnUntilTheDeadlineAndNotBeyond) {
    EXPECT_EQ(clock::blockLimit(clock::monotonicNow() - 1s), 0ms);
    const auto left = clock::blockLimit(clock::monotonicNow() + 10s);
    EXPECT_GT(left, 9s);
    EXPECT_LE(left, 10s);
}

}  // namespace

}  // namespace orvane::test

extern "C" int poll(pollfd* descriptors, nfds_t count, int limit) {
    static auto* const real =
        reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(::dlsym(RTLD_NEXT, "poll"));
    return real(descriptors, count, orvane::test::timeStandsStill ? -1 : limit);
}
