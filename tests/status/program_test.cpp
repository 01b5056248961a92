// The whole program, built for tests, against real files.
#include "status/program.h"

#include "status/run.h"
#include "status/status_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <functional>

namespace orvane::status {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using std::chrono::seconds;
using test::PollLine;
using test::StatusFiles;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class StatusProgramTest : public ::testing::Test {
  protected:
    [[nodiscard]] test::ProgramResult status(std::vector<std::string> arguments = {}) const {
        return test::runProgram(ORVANE_DEMO_STATUS, std::move(arguments),
                                {"ORVANE_ROOT=" + files.root().string(), "TZ=UTC0"});
    }

    StatusFiles files;
};

/// A state of an account's files, and the words for it.
struct State {
    std::string name;
    std::function<void(const StatusFiles&)> make;
    int status;
    std::string lastLine;  ///< its beginning
};

std::ostream& operator<<(std::ostream& out, const State& state) {
    return out << state.name;
}

class StateTest : public StatusProgramTest, public ::testing::WithParamInterface<State> {};

TEST_P(StateTest, EachStateHasItsWordAndItsExitStatus) {
    GetParam().make(files);
    const auto result = status();
    EXPECT_EQ(result.status, GetParam().status) << result.output;
    EXPECT_THAT(result.lastLine(), StartsWith(GetParam().lastLine));
}

void replaceCapture(const StatusFiles& files, const std::string& text) {
    test::writeFile(files.setup() / "capture-policy.json", text);
}

constexpr const char* otherCapture =
    R"({"enabled":true,"intercept_hosts":["b.example"],"suppress_ech":false})";

const std::vector<State> states{
    {"Healthy", [](const StatusFiles& /*f*/) {}, 0, "healthy"},
    {"NeverPolled", [](const StatusFiles& f) { fs::remove_all(f.orvane() / "logs"); }, 2,
     "not working: no poll is on record; "},
    {"NoDirectory", [](const StatusFiles& f) { fs::remove_all(f.orvane()); }, 2,
     "not working: no poll is on record; "},
    {"JustRotated", [](const StatusFiles& f) { fs::rename(f.log(), f.log().string() + ".1"); }, 0,
     "healthy"},
    {"Rubbish",
     [](const StatusFiles& f) {
         f.appendToLog(PollLine{seconds(20), 200}.text());
     },
     1, "degraded: the answer of "},
    {"RubbishForLong",
     [](const StatusFiles& f) {
         f.writeLog({{seconds(800)}, {seconds(600), 200}, {seconds(20), 200}});
     },
     2, "not working: the answer of "},
    {"AWriteThatFailed",
     [](const StatusFiles& f) {
         f.appendToLog(PollLine{seconds(20), 200}.text());
         StatusFiles::setAge(f.orvane() / "policy-etag.json", seconds(20));
     },
     1, "degraded: the answer of "},
    {"OnlyTheTagWasStored",
     [](const StatusFiles& f) {
         test::writeFile(f.orvane() / "policy-etag.json", R"({"etag":"demo-10"})");
     },
     1, "degraded: the stored policy and its ETag are not of the same version; "},
    {"TagSpoiled",
     [](const StatusFiles& f) { test::writeFile(f.orvane() / "policy-etag.json", "{"); }, 1,
     "degraded: the stored policy and its ETag are not of the same version; "},
    {"PolicyReplacementCutOff",
     [](const StatusFiles& f) {
         fs::rename(f.orvane() / "policy.json", f.orvane() / "policy.json.tmp");
     },
     1, "degraded: no policy is stored; "},
    {"PolicySpoiled",
     [](const StatusFiles& f) {
         test::writeFile(f.orvane() / "policy.json", "<html>");
         StatusFiles::setAge(f.orvane() / "policy.json", hours(1));
     },
     1, "degraded: policy.json is not a JSON object; "},
    {"CaptureWriteFailed", [](const StatusFiles& f) { replaceCapture(f, otherCapture); }, 1,
     "degraded: capture-policy.json is not in step with the policy; "},
    {"CaptureRemoved", [](const StatusFiles& f) { fs::remove(f.setup() / "capture-policy.json"); },
     1, "degraded: capture-policy.json is missing; "},
    {"CaptureIsALink",
     [](const StatusFiles& f) {
         fs::rename(f.setup() / "capture-policy.json", f.setup() / "elsewhere");
         fs::create_symlink("elsewhere", f.setup() / "capture-policy.json");
     },
     1, "degraded: capture-policy.json is not in step with the policy; "},
    {"CaptureUnreadable",
     [](const StatusFiles& f) {
         fs::permissions(f.setup() / "capture-policy.json", fs::perms(0600));
     },
     1, "degraded: other accounts cannot read capture-policy.json; "},
    {"SetupDirectoryClosed",
     [](const StatusFiles& f) { fs::permissions(f.setup(), fs::perms(0700)); }, 1,
     "degraded: other accounts cannot read capture-policy.json; "},
    {"CaptureNotInThePolicy",
     [](const StatusFiles& f) {
         test::writeFile(f.orvane() / "policy.json", R"({"etag":"demo-9"})");
         StatusFiles::setAge(f.orvane() / "policy.json", hours(1));
         fs::remove(f.setup() / "capture-policy.json");
     },
     0, "healthy"},
    {"EffectiveNotStored",
     [](const StatusFiles& f) {
         PollLine effective{seconds(30), 200};
         effective.url = "https://control.example/api/orvane/v1/guard/effective/";
         f.appendToLog(effective.text());
     },
     1, "degraded: the effective configuration of "},
    {"EffectiveStored",
     [](const StatusFiles& f) {
         PollLine effective{seconds(30), 200};
         effective.url = "https://control.example/api/orvane/v1/guard/effective/";
         f.appendToLog(effective.text());
         test::writeFile(f.orvane() / "guard-effective.json", "{}");
     },
     0, "healthy"},
    {"NoProfile", [](const StatusFiles& f) { fs::remove(f.setup() / "enroll-config.json"); }, 2,
     "not working: no source of credentials is complete; "},
    {"AllPollsFail",
     [](const StatusFiles& f) {
         f.writeLog({{seconds(800)}, {seconds(60), 0, 5, "Could not connect to the server."}});
     },
     2, "not working: polls fail: Could not connect to the server; "},
    {"TheLastPollFailed",
     [](const StatusFiles& f) {
         f.appendToLog(PollLine{seconds(1), 503}.text());
     },
     1, "degraded: the last poll failed: HTTP 503; "},
    {"DaemonGone", [](const StatusFiles& f) { f.writeLog({{seconds(800)}}); }, 2,
     "not working: the last poll ended 13 min ago; "},
    {"TornLines",
     [](const StatusFiles& f) {
         f.appendToLog("{\"bytes\":0,\"da\nforeign\n" + PollLine{}.text().substr(0, 50));
     },
     0, "healthy"},
    {"LogIsADirectory",
     [](const StatusFiles& f) {
         fs::remove(f.log());
         fs::create_directory(f.log());
     },
     3, "unknown: the activity log cannot be read; "},
    {"TenGigabytes",
     [](const StatusFiles& f) {
         fs::resize_file(f.log(), 10'000'000'000);
         f.appendToLog("\n" + PollLine{}.text());
     },
     0, "healthy"},
};

std::string nameOfState(const ::testing::TestParamInfo<State>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(States, StateTest, ::testing::ValuesIn(states), nameOfState);

TEST_F(StatusProgramTest, ItShowsWhatThereIs) {
    const auto result = status();
    EXPECT_THAT(result.output,
                HasSubstr("\nprofile                [managed] https://control.example\n"));
    EXPECT_THAT(result.output, HasSubstr("\npolicy                 demo-9, "));
    EXPECT_THAT(result.output, HasSubstr("\nlast poll              304, 4"));
    EXPECT_THAT(result.output, HasSubstr("\nlast 24 h              2 polls, 0 failed\n"));
    EXPECT_THAT(result.output,
                HasSubstr("\ncapture policy         on, 1 host, in step with the policy\n"));
}

TEST_F(StatusProgramTest, WhatAnotherAccountWroteIsNamed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "giving a file away takes root";
    }
    replaceCapture(files, otherCapture);
    constexpr uid_t somebody = 12345;
    ASSERT_EQ(::chown((files.setup() / "capture-policy.json").c_str(), somebody, somebody), 0);
    EXPECT_THAT(status().lastLine(),
                StartsWith("degraded: capture-policy.json is not in step and belongs to 12345; "));
}

TEST_F(StatusProgramTest, ForProgramsThereAreJsonAndMetrics) {
    const auto json = status({"--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(nlohmann::json::parse(json.output)["verdict"], "healthy");
    files.appendToLog(PollLine{seconds(1), 503}.text());
    const auto metrics = status({"--prometheus"});
    EXPECT_EQ(metrics.status, 1);
    EXPECT_THAT(metrics.output, StartsWith("# HELP orvane_policy_status "));
}

TEST_F(StatusProgramTest, ItWritesNothing) {
    const auto state = [&] {
        std::string all;
        for (const auto& entry : fs::recursive_directory_iterator(files.root())) {
            const auto written = entry.last_write_time().time_since_epoch();
            all += entry.path().string() + " " +
                   std::to_string(static_cast<std::int64_t>(written.count())) + "\n";
        }
        return all;
    };
    const std::string before = state();
    for (const char* option : {"--plain", "--json", "--prometheus"}) {
        EXPECT_EQ(status({option}).status, 0);
    }
    EXPECT_EQ(state(), before);
}

TEST_F(StatusProgramTest, HelpAndVersionAreShownWithoutLookingAtAnything) {
    EXPECT_EQ(status({"--help"}).status, 0);
    EXPECT_THAT(status({"--help"}).output, StartsWith("usage: orvane-policy-status "));
    EXPECT_EQ(status({"--version"}).status, 0);
    EXPECT_THAT(status({"--version"}).output,
                ::testing::MatchesRegex("orvane-policy-status [0-9.]+\n"));
}

TEST_F(StatusProgramTest, AMistakeInTheArgumentsIsAnUnknownState) {
    const auto result = status({"--jason"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
}

TEST_F(StatusProgramTest, OnlyRootCanAskForAllAccounts) {
    constexpr std::uint32_t somebody = 12345;
    EXPECT_EQ(run({"--all"}, somebody), 3);
}

TEST_F(StatusProgramTest, AllAccountsTakeRoot) {
    const auto result =
        test::runProgram(ORVANE_DEMO_STATUS, {"--all"}, {"ORVANE_ROOT=" + files.root().string()});
    if (::geteuid() != 0) {
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.output, "");
    } else {
        EXPECT_THAT(result.lastLine(), ::testing::AnyOf(StartsWith("healthy"), HasSubstr(": ")));
    }
}

}  // namespace
}  // namespace orvane::status
