#include "daemon/policy_runner.h"
#include "daemon/process_entry.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* resolving = "default Resolving credentials from ~/.orvane/config…";
constexpr const char* noProfile = "default No usable profile — sleeping 30s and retrying";

class RunTest : public DaemonTest {
  protected:
    /// Runs the loop; the hooks are called in turn, one after each sleep, and the loop ends with
    /// the sleep after the last of them.
    void runUntilSleeps(std::vector<std::function<void()>> hooks) {
        std::size_t next = 0;
        virtual_clock::onSleep([&](double) {
            if (next == hooks.size()) {
                throw virtual_clock::EndOfLoop();
            }
            hooks[next++]();
        });
        EXPECT_THROW(runner.run(), virtual_clock::EndOfLoop);
    }

    static void configure(const std::string& section, const std::string& apiUrl) {
        writeFile(orvane() / "config",
                  "[" + section + "]\napi_url = " + apiUrl + "\napi_key = key-2\n");
    }
    static void removeConfig() { std::filesystem::remove(orvane() / "config"); }
    static void removeEnrollment() { std::filesystem::remove(setup() / "enroll-config.json"); }

    [[nodiscard]] std::string usingLine(const std::string& name) const {
        return "default Using profile [" + name + "] api=" + server.url();
    }
    /// The "Using profile" lines.
    [[nodiscard]] std::vector<std::string> usingLines() const {
        auto lines = logLines();
        std::erase_if(lines, [](const std::string& line) {
            return !line.starts_with("default Using profile");
        });
        return lines;
    }

    ScriptedServer server;
    PolicyRunner runner;
};

const std::function<void()> nothing = [] {};

TEST_F(RunTest, TheFieldsHaveTheirFixedValues) {
    EXPECT_EQ(runner.policyPath, orvane() / "policy.json");
    EXPECT_EQ(runner.etagPath, orvane() / "policy-etag.json");
    EXPECT_EQ(runner.effectivePath, orvane() / "guard-effective.json");
    EXPECT_EQ(runner.waitSeconds, 300);
    EXPECT_EQ(runner.pollInterval, 60.0);
    EXPECT_THAT(namesIn(root()), IsEmpty());
}

TEST_F(RunTest, WithoutAProfileItLogsAndSleepsAndNeverPolls) {
    runUntilSleeps({nothing, nothing});
    EXPECT_THAT(logLines(), ElementsAre(resolving, noProfile, noProfile, noProfile));
    EXPECT_THAT(virtual_clock::sleeps(), ElementsAre(30.0, 30.0, 30.0));
    EXPECT_THAT(activity(), IsEmpty());
    EXPECT_THAT(namesIn(root()), IsEmpty());
}

TEST_F(RunTest, TheSameProfileIsNamedOnce) {
    enroll(server.url());
    server.on(pollPath, {answer(304), answer(304), answer(500)});
    runUntilSleeps({});
    EXPECT_THAT(logLines(),
                ElementsAre(resolving, usingLine("managed"), "debug policy unchanged (etag=-)",
                            "debug policy unchanged (etag=-)", "error Unexpected HTTP 500"));
}

TEST_F(RunTest, GoodAnswersAreFollowedByTheNextPollAtOnce) {
    enroll(server.url());
    server.on(pollPath, {answer(304), answer(200, R"({"etag":"v1"})"), answer(304), answer(500)});
    runUntilSleeps({});
    EXPECT_THAT(server.requestsTo(pollPath), SizeIs(4));
    EXPECT_THAT(virtual_clock::sleeps(), ElementsAre(60.0));
}

TEST_F(RunTest, AnEnrollmentThatAppearsCountsFromTheNextCycle) {
    server.on(pollPath, {answer(500)});
    runUntilSleeps({[this] { enroll(server.url()); }});
    EXPECT_THAT(logLines(), ElementsAre(resolving, noProfile, usingLine("managed"),
                                        "error Unexpected HTTP 500"));
}

TEST_F(RunTest, TheManagedProfileWinsOverTheConfigFile) {
    enroll(server.url());
    configure("default", "http://127.0.0.1:1");
    server.on(pollPath, {answer(500), answer(500)});
    runUntilSleeps({nothing});
    EXPECT_THAT(usingLines(), ElementsAre(usingLine("managed")));
    for (const auto& request : server.requestsTo(pollPath)) {
        EXPECT_EQ(request.header("X-Orv-Key"), "key-1");
    }
}

TEST_F(RunTest, AManagedProfileIsTakenWithoutAskingForTheDeviceIdentity) {
    enroll(server.url());
    identify(server.url());
    server.on(pollPath, {answer(500)});
    runUntilSleeps({});
    EXPECT_THAT(server.requestsTo(agentConfigPath), IsEmpty());
}

TEST_F(RunTest, AChangeOfProfileIsNamedAndSoIsTheChangeBack) {
    configure("connect", server.url());
    server.on(pollPath, {answer(500), answer(500), answer(500)});
    runUntilSleeps({[this] { enroll(server.url()); }, [] { removeEnrollment(); }});
    EXPECT_THAT(usingLines(),
                ElementsAre(usingLine("connect"), usingLine("managed"), usingLine("connect")));
}

TEST_F(RunTest, TheSameProfileAfterATimeWithoutOneIsNotNamedAgain) {
    enroll(server.url());
    server.on(pollPath, {answer(500), answer(500)});
    runUntilSleeps({[] { removeEnrollment(); }, [this] { enroll(server.url()); }});
    EXPECT_THAT(usingLines(), ElementsAre(usingLine("managed")));
    EXPECT_THAT(virtual_clock::sleeps(), ElementsAre(60.0, 30.0, 60.0));
}

TEST_F(RunTest, ThePreferredSectionsAreTakenInTheirOrder) {
    std::string config;
    for (const char* name : {"default", "connect", "claude-cowork", "claude-code", "other"}) {
        config += std::string("[") + name + "]\napi_url=" + server.url() + "\napi_key=k\n";
    }
    writeFile(orvane() / "config", config);
    const auto drop = [](const std::string& name) {
        auto content = readFile(orvane() / "config");
        content.replace(content.find("[" + name + "]"), name.size() + 2, "[dropped]");
        writeFile(orvane() / "config", content);
    };
    server.on(pollPath, {answer(500), answer(500), answer(500), answer(500)});
    runUntilSleeps({[&] { drop("claude-code"); }, [&] { drop("claude-cowork"); },
                    [&] { drop("connect"); }, [&] { drop("default"); }});
    EXPECT_THAT(usingLines(), ElementsAre(usingLine("claude-code"), usingLine("claude-cowork"),
                                          usingLine("connect"), usingLine("default")));
    EXPECT_EQ(logLines().back(), noProfile);
}

TEST_F(RunTest, TheDeviceProfileIsUsedWhenNothingIsEnrolled) {
    identify(server.url());
    server.on(agentConfigPath, {answer(200, R"({"upload_api_key":"up-1","agent_slug":"slug-1"})")});
    server.on(pollPath, {answer(500)});
    runUntilSleeps({});
    EXPECT_THAT(usingLines(), ElementsAre(usingLine("device")));
    const auto lookup = server.requestsTo(agentConfigPath).at(0);
    EXPECT_EQ(lookup.target, std::string(agentConfigPath) + "?process=claude");
    const auto poll = server.requestsTo(pollPath).at(0);
    EXPECT_EQ(poll.header("X-Orv-Key"), "up-1");
    EXPECT_EQ(poll.target, std::string(pollPath) + "?wait=300&agent_slug=slug-1");
    EXPECT_THAT(activity(), SizeIs(1));  // the lookup is not on record
}

TEST_F(RunTest, ABadBaseDoesNotStopTheLoop) {
    enroll("https://h x");
    server.on(pollPath, {answer(500)});
    runUntilSleeps({[this] { enroll(server.url()); }});
    EXPECT_THAT(
        logLines(),
        ElementsAre(resolving, "default Using profile [managed] api=https://h x",
                    "error Bad apiUrl in config: https://h x", "error Unexpected HTTP 500"));
}

TEST_F(RunTest, WhenAnExceptionEndsTheLoopTheProcessSaysSoAndExitsWithOne) {
    const pid_t child = ::fork();
    if (child == 0) {
        virtual_clock::onSleep([](double) { throw virtual_clock::EndOfLoop(); });
        runProcess();
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_THAT(
        logLines(),
        ElementsAre("default OrvanePolicyDaemon starting (pid=" + std::to_string(child) + ")",
                    resolving, noProfile,
                    "error OrvanePolicyDaemon cannot go on — exiting for launchd respawn"));
}

}  // namespace
}  // namespace orvane::test
