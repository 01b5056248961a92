// The machine sleeps in the middle of an exchange: the time limit of poll(2) does not count that,
// and stands still here altogether.
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/machine/continuous_time.h"
#include "platform/system_calls.h"
#include "support/scripted_server.h"
#include "support/test_files.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>

namespace orvane::test {

namespace {

using ::testing::HasSubstr;
using ::testing::Optional;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr int endless = -1;

bool isTimer(int descriptor) {
    std::error_code error;
    const auto link =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
    return link == "anon_inode:[timerfd]";
}

class MachineSleepTest : public HttpTest {
  protected:
    /// Starts an exchange, lets its time go by, and gives its error.
    std::optional<std::string> sleepThroughAnExchange() {
        server.on("/p", {staySilent()});
        HttpSession session(limits);
        Exchange exchange(session, requestFor(server.url() + "/p"));
        EXPECT_TRUE(server.waitForRequests(1));
        virtual_clock::advance(limits.inactivity + 1s);
        return exchange.result().error();
    }

    ScriptedServer server;
};

TEST_F(MachineSleepTest, AnExchangeWhoseTimeItSleptThroughEndsAtOnce) {
    std::atomic<int> waits = 0;
    SystemCallHooks hooks;
    hooks.pollLimit = [&](const pollfd* descriptors, std::size_t count, int limit) {
        const bool waitsForTimer =
            std::any_of(descriptors, descriptors + count,
                        [](const pollfd& entry) { return isTimer(entry.fd); });
        waits += waitsForTimer ? 1 : 0;
        return waitsForTimer && limit > 0 ? endless : limit;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(sleepThroughAnExchange(), Optional("The request timed out."s));
    EXPECT_GT(waits, 0);
}

TEST_F(MachineSleepTest, WithoutADescriptorForATimerTheTimeAwakeCounts) {
    SystemCallHooks hooks;
    hooks.refuse = [](std::string_view name) { return name == "timerfd_create" ? EMFILE : 0; };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(sleepThroughAnExchange(), Optional("The request timed out."s));
}

/// Whether `timer` expires within `limit`.
bool expires(const ContinuousTimer& timer, std::chrono::milliseconds limit) {
    pollfd expiry{timer.descriptor(), POLLIN, 0};
    return ::poll(&expiry, 1, static_cast<int>(limit.count())) == 1;
}

TEST(ContinuousTimerTest, ItIsOnTheClockThatCountsSleep) {
    ContinuousTimer timer;
    timer.set(90'500ms);
    const std::string state = readFile("/proc/self/fdinfo/" + std::to_string(timer.descriptor()));
    EXPECT_THAT(state, HasSubstr("clockid: " + std::to_string(CLOCK_BOOTTIME) + "\n"));
    EXPECT_THAT(state, HasSubstr("it_value: (90, "));
    EXPECT_THAT(state, HasSubstr("it_interval: (0, 0)"));
}

TEST(ContinuousTimerTest, OnlyWhatWasSetLastCounts) {
    ContinuousTimer timer;
    EXPECT_FALSE(expires(timer, 0ms));
    timer.set(1ms);
    EXPECT_TRUE(expires(timer, 60s));
    EXPECT_TRUE(expires(timer, 0ms));
    timer.set(1h);
    EXPECT_FALSE(expires(timer, 0ms));
    timer.set(1ms);
    EXPECT_TRUE(expires(timer, 60s));
    timer.set(0ms);
    EXPECT_FALSE(expires(timer, 20ms));
}

TEST(ContinuousTimeTest, ItIsTheTimeSinceTheMachineStartedWithItsSleep) {
    timespec before{};
    timespec after{};
    (void)::clock_gettime(CLOCK_BOOTTIME, &before);
    const auto time = continuousTime();
    (void)::clock_gettime(CLOCK_BOOTTIME, &after);
    EXPECT_GE(time, std::chrono::seconds(before.tv_sec) + std::chrono::nanoseconds(before.tv_nsec));
    EXPECT_LE(time, std::chrono::seconds(after.tv_sec) + std::chrono::nanoseconds(after.tv_nsec));
}

}  // namespace

}  // namespace orvane::test
