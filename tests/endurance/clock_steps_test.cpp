// The wall clock jumps, as it does when a machine gets its time from the network at last: nothing
// takes longer or shorter for it. The daemon as it ships.
#include "process/fast_time_test.h"
#include "support/daemon_test.h"

#include <chrono>

namespace orvane::test {
namespace {

using std::chrono::steady_clock;
using ::testing::ElementsAre;

/// The parameter is the step in seconds.
class ClockStepsTest : public FastTimeTest, public ::testing::WithParamInterface<int> {
  protected:
    [[nodiscard]] DaemonSetup daemon() const {
        const std::filesystem::path library = ORVANE_WALL_CLOCK_STEP_LIBRARY;
        std::filesystem::copy_file(library, root.path() / library.filename());
        DaemonSetup setup = FastTimeTest::daemon();
        std::string& preloaded = setup.environment["LD_PRELOAD"];
        preloaded = "/" + library.filename().string() + ":" + preloaded;
        setup.environment["WALL_CLOCK_STEP"] = "/step";
        return setup;
    }

    void stepTheClock() const {
        writeFile(root.path() / "new-step", std::to_string(GetParam()));
        std::filesystem::rename(root.path() / "new-step", root.path() / "step");
    }

    /// The activity log but for what time has to do with, and for who wrote it.
    [[nodiscard]] std::vector<std::string> timelessActivity() const {
        std::vector<std::string> lines;
        for (nlohmann::json line : activity()) {
            line.erase("ts");
            line.erase("ms");
            line.erase("pid");
            lines.push_back(line.dump());
        }
        return lines;
    }
    [[nodiscard]] std::string line(int status) const {
        return nlohmann::json{{"bytes", 0},
                              {"daemon", "policy-daemon"},
                              {"method", "GET"},
                              {"status", status},
                              {"url", server.url() + pollPath + "?wait=300"}}
            .dump();
    }

    /// From one time of day to a later one that the step lies before, without the step.
    static auto withoutStep(const std::string& earlier, const std::string& later) {
        constexpr long day = 86'400'000;
        return (between(earlier, later) - GetParam() * 1000L + day) % day;
    }
};

TEST_P(ClockStepsTest, AHoldLastsAsLongAsTheServerHolds) {
    long held = 0;
    server.on(pollPath, {[&](Connection& connection, const ReceivedRequest& request) {
                             const auto start = steady_clock::now();
                             if (!pause(connection, 30)) {
                                 return false;
                             }
                             stepTheClock();
                             const bool going = pause(connection, 30);
                             held = passed(start, steady_clock::now());
                             return going && answer(304)(connection, request);
                         },
                         staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(waitForRequests(2));
    EXPECT_THAT(timelessActivity(), ElementsAre(line(304)));
    EXPECT_THAT(activity().at(0)["ms"].get<long>(), about(held));
    // The first lines of the log are from before the step.
    EXPECT_THAT(withoutStep(process.messages().at(0).time, activity().at(0)["ts"]), about(held));
}

TEST_P(ClockStepsTest, ABackOffLastsAMinute) {
    steady_clock::time_point failed;
    steady_clock::time_point again;
    server.on(pollPath, {after([&] { failed = steady_clock::now(); }, answer(500)),
                         after([&] { again = steady_clock::now(); }, answer(304)), staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("Unexpected HTTP 500"));
    stepTheClock();
    ASSERT_TRUE(waitForRequests(3));
    EXPECT_THAT(timelessActivity(), ElementsAre(line(500), line(304)));
    EXPECT_THAT(passed(failed, again), about(60'000));
    EXPECT_THAT(withoutStep(activity().at(0)["ts"], activity().at(1)["ts"]), about(60'000));
}

TEST_P(ClockStepsTest, TheLookOutForAProfileIsKeptUpEveryHalfMinute) {
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("No usable profile"));
    stepTheClock();
    constexpr std::size_t start = 2;  // lines before the first that follows a sleep
    ASSERT_TRUE(waitUntil([&] { return process.messages().size() >= start + 3; }));
    const auto messages = process.messages();
    EXPECT_THAT(withoutStep(messages.at(start).time, messages.at(start + 1).time), about(30'000));
    EXPECT_THAT(between(messages.at(start + 1).time, messages.at(start + 2).time), about(30'000));
}

TEST_P(ClockStepsTest, TheIdentityLookupGivesUpAfter12SecondsOfSilence) {
    constexpr const char* file =
        R"({"device_token":"device-1","tenant_slug":"tenant-1","api_url":"%"})";
    server.on(agentConfigPath, {after([this] { stepTheClock(); }, staySilent())});
    writeFile(root.setup() / "device-identity.json",
              std::string(file).replace(std::string(file).find('%'), 1, server.url()));
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("No usable profile"));
    const auto messages = process.messages();
    EXPECT_THAT(withoutStep(messages.at(0).time, messages.at(2).time), about(12'000));
}

INSTANTIATE_TEST_SUITE_P(Steps, ClockStepsTest, ::testing::Values(0, 3600, -3600),
                         [](const auto& step) {
                             return step.param == 0  ? "None"
                                    : step.param > 0 ? "AnHourForward"
                                                     : "AnHourBack";
                         });

}  // namespace
}  // namespace orvane::test
