// The long limits and sleeps of the daemon as it ships.
#include "process/fast_time_test.h"
#include "support/daemon_test.h"

namespace orvane::test {
namespace {

using ::testing::SizeIs;

using LongWaitsTest = FastTimeTest;

TEST_F(LongWaitsTest, AHoldLongerThanAnyDefaultOfTheLibraryIsNotCutOff) {
    long held = 0;
    server.on(pollPath, {[&](Connection& connection, const ReceivedRequest& request) {
                             const auto start = std::chrono::steady_clock::now();
                             // The library gives up connecting after 300 s.
                             const bool going = pause(connection, 312);
                             held = passed(start, std::chrono::steady_clock::now());
                             return going && answer(304)(connection, request);
                         },
                         staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(waitForRequests(2));
    EXPECT_THAT(process.logLines(), ::testing::Contains("debug policy unchanged (etag=-)"));
    EXPECT_THAT(activity().at(0)["ms"].get<long>(), about(held));
}

TEST_F(LongWaitsTest, SilenceEndsAPollAfter330Seconds) {
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("Unexpected HTTP 0"));
    EXPECT_EQ(activity().at(0)["error"], "The request timed out.");
    EXPECT_THAT(activity().at(0)["ms"].get<long>(), about(330'000));
}

TEST_F(LongWaitsTest, ATrickleEndsAfter360Seconds) {
    server.on(pollPath, {trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", ' ',
                                 std::chrono::milliseconds(100))});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("Unexpected HTTP 0"));
    EXPECT_EQ(activity().at(0)["error"], "The request timed out.");
    EXPECT_THAT(activity().at(0)["ms"].get<long>(), about(360'000));
}

TEST_F(LongWaitsTest, TheEffectiveFetchEndsAfter30SecondsOfSilence) {
    server.on(pollPath, {answer(200, "{}"), staySilent()});
    server.on(effectivePath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(waitForRequests(3));
    const auto lines = activity();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[1]["status"], 0);
    EXPECT_EQ(lines[1]["error"], "The request timed out.");
    EXPECT_THAT(lines[1]["ms"].get<long>(), about(30'000));
}

TEST_F(LongWaitsTest, AFailedPollCostsAMinute) {
    server.on(pollPath, {answer(500), answer(500), staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(waitForRequests(3));
    const auto lines = activity();
    EXPECT_THAT(between(lines.at(0)["ts"], lines.at(1)["ts"]), about(60'000));
}

TEST_F(LongWaitsTest, WithoutAProfileItLooksAgainEveryHalfMinute) {
    const DaemonProcess process(daemon());
    const auto times = [&] {
        std::vector<std::string> found;
        for (const LoggedMessage& message : process.messages()) {
            if (message.text == "No usable profile — sleeping 30s and retrying") {
                found.push_back(message.time);
            }
        }
        return found;
    };
    ASSERT_TRUE(waitUntil([&] { return times().size() >= 3; }));
    EXPECT_THAT(between(times()[0], times()[1]), about(30'000));
    EXPECT_THAT(between(times()[1], times()[2]), about(30'000));
}

}  // namespace
}  // namespace orvane::test
