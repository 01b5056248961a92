// The daemon as a process: the test build, whose paths lie below a root of ours and whose sleeps
// take no time.
#include "process/daemon_process.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* enabledPolicy =
    R"({"etag":"v1","guard_config":{"capture":{"enabled":true}}})";

class WholeProgramTest : public DaemonTest {
  protected:
    static DaemonSetup testDaemon() {
        return {ORVANE_TEST_DAEMON, {{"ORVANE_ROOT", root().string()}}, root() / "stderr", [] {
                    return true;
                }};
    }

    ScriptedServer server;
};

TEST_F(WholeProgramTest, TheFirstMessagesAreTheStartAndTheSearchForCredentials) {
    DaemonProcess daemon(testDaemon());
    ASSERT_TRUE(daemon.waitForLog("No usable profile"));
    auto lines = daemon.logLines();
    lines.resize(3);
    EXPECT_THAT(lines, ElementsAre("default OrvanePolicyDaemon starting (pid=" +
                                       std::to_string(daemon.pid()) + ")",
                                   "default Resolving credentials from ~/.orvane/config…",
                                   "default No usable profile — sleeping 30s and retrying"));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(WholeProgramTest, ATerminationSignalEndsItWithoutAMessage) {
    enroll(server.url());
    server.on(pollPath, {staySilent()});
    DaemonProcess daemon(testDaemon());
    ASSERT_TRUE(server.waitForRequests(1));
    const auto before = daemon.logLines();
    int status = daemon.end(SIGTERM);  // macOS's macros take its address
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(daemon.logLines(), before);
}

TEST_F(WholeProgramTest, KilledInAHoldItGoesOnWhereItWasAfterARestart) {
    enroll(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent(), answer(304), staySilent()});
    {
        DaemonProcess daemon(testDaemon());
        ASSERT_TRUE(server.waitForRequests(3));  // two polls, one effective fetch
        (void)daemon.end(SIGKILL);
    }
    EXPECT_EQ(readFile(orvane() / "policy.json"), enabledPolicy);
    DaemonProcess restarted(testDaemon());
    ASSERT_TRUE(restarted.waitForLog("policy unchanged (etag=v1)"));
    EXPECT_EQ(server.requestsTo(pollPath).at(2).header("If-None-Match"), "\"v1\"");
}

TEST_F(WholeProgramTest, WhatAKilledProcessLeftIsGoneAfterARestart) {
    writeFile(activityFile(), "{}\n");
    writeFile(activityFile().parent_path() / leftoverNameOf(activityFile().filename()), "{\"byt");
    writeFile(orvane() / leftoverNameOf("policy.json.tmp"), "{");
    writeFile(setup() / leftoverNameOf("capture-policy.json"), "{");
    enroll(server.url());
    server.on(pollPath, {answer(304), staySilent()});
    const DaemonProcess daemon(testDaemon());
    ASSERT_TRUE(server.waitForRequests(2));
    EXPECT_THAT(namesIn(activityFile().parent_path()), ElementsAre(activityFile().filename()));
    EXPECT_THAT(namesIn(orvane()), ElementsAre("logs"));
    EXPECT_THAT(namesIn(setup()), ElementsAre("enroll-config.json"));
    EXPECT_THAT(readFile(activityFile()), StartsWith("{}\n{"));
}

/// Two daemons of one account, on one home and one setup directory, with a server that has a new
/// policy for each poll.
TEST_F(WholeProgramTest, TwoAtOnceDoNotFailEachOtherAndShowWholeFilesOnly) {
    constexpr int cycles = 60;
    const std::string hosts(2'000'000, 'h');
    const auto policyOf = [&](int number) {
        return R"({"etag":"v)" + std::to_string(1000 + number) +
               R"(","config":{"capture":{"enabled":true,"hosts":[")" +
               std::to_string(1000 + number) + hosts + R"("]}}})";
    };
    std::vector<Step> answers;
    for (int i = 0; i < cycles; ++i) {
        answers.push_back(answer(200, policyOf(i)));
    }
    server.on(pollPath, answers);
    server.always(pollPath, staySilent());
    server.always(effectivePath, answer(404));
    enroll(server.url());
    DaemonSetup second = testDaemon();
    second.logFile = root() / "stderr2";
    const DaemonProcess one(testDaemon());
    const DaemonProcess other(second);
    const auto sizeOf = [](const std::filesystem::path& path) {
        std::error_code error;
        const auto size = std::filesystem::file_size(path, error);
        return error ? 0 : size;
    };
    std::set<std::uintmax_t> policySizes;
    std::set<std::uintmax_t> captureSizes;
    // Without a pause: a part of a file is not there for long.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(100);
    while (server.requestsTo(pollPath).size() < cycles + 2 &&
           std::chrono::steady_clock::now() < deadline) {
        for (int i = 0; i < 100; ++i) {
            policySizes.insert(sizeOf(orvane() / "policy.json"));
            captureSizes.insert(sizeOf(captureFile()));
        }
    }
    EXPECT_EQ(server.requestsTo(pollPath).size(), cycles + 2U);
    policySizes.erase(0);
    captureSizes.erase(0);
    EXPECT_THAT(policySizes, ElementsAre(policyOf(0).size()));
    EXPECT_THAT(captureSizes, ElementsAre(::testing::Gt(hosts.size())));
    for (const DaemonProcess* process : {&one, &other}) {
        EXPECT_THAT(process->logLines(), ::testing::Each(Not(StartsWith("error"))));
    }
    EXPECT_THAT(namesIn(orvane()), ElementsAre("logs", "policy-etag.json", "policy.json"));
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json", "enroll-config.json"));
}

TEST_F(WholeProgramTest, AnswersAreForTheOnlyArgumentAndStartNothing) {
    enroll(server.url());
    for (const std::string argument : {"--version", "--help"}) {
        DaemonSetup setup = testDaemon();
        setup.arguments = {argument};
        setup.prepare = [] {
            const int out = ::open((root() / "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            return ::dup2(out, STDOUT_FILENO) >= 0;
        };
        DaemonProcess process(setup);
        ASSERT_TRUE(waitUntil([&] { return !process.isRunning(); }));
        EXPECT_EQ(process.end(0), 0) << argument;
        EXPECT_THAT(readFile(root() / "stdout"), HasSubstr("OrvanePolicyDaemon"));
        EXPECT_EQ(readFile(root() / "stderr"), "");
    }
    EXPECT_THAT(namesIn(root() / "home"), IsEmpty());
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(WholeProgramTest, OtherArgumentsAreIgnored) {
    enroll(server.url());
    server.on(pollPath, {staySilent()});
    DaemonSetup setup = testDaemon();
    setup.arguments = {"--version", "--verbose"};
    const DaemonProcess process(setup);
    EXPECT_TRUE(server.waitForRequests(1));
}

TEST_F(WholeProgramTest, ALimitForTheSizeOfFilesIsAnErrorThatIsLogged) {
    enroll(server.url());
    server.on(pollPath,
              {answer(200, R"({"x":")" + std::string(100'000, 'x') + R"("})"), staySilent()});
    server.on(effectivePath, {answer(404)});
    DaemonSetup setup = testDaemon();
    setup.prepare = [] {
        const rlimit limit{50'000, 50'000};
        return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    };
    DaemonProcess process(setup);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_TRUE(process.isRunning());
    EXPECT_THAT(process.logLines(),
                Contains("error atomic write to " + (orvane() / "policy.json").string() +
                         " failed: File too large"));
}

TEST_F(WholeProgramTest, TheKeysOfConnectionsAreWrittenNowhere) {
    const TestCa ca;
    ca.trustIn(root() / "etc/ssl/certs");
    ScriptedServer secure(ca.issueForLoopback());
    secure.on(pollPath, {staySilent()});
    enroll(secure.url());
    DaemonSetup setup = testDaemon();
    setup.environment["SSLKEYLOGFILE"] = root() / "keys";
    const DaemonProcess process(setup);
    ASSERT_TRUE(secure.waitForRequests(1));
    EXPECT_FALSE(std::filesystem::exists(root() / "keys"));
}

TEST_F(WholeProgramTest, TheRegistryToolLeavesNoZombie) {
    installRegistryTool("#!/bin/sh\nexit 3\n");
    enroll(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent()});
    const DaemonProcess daemon(testDaemon());
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_THAT(daemon.children(), IsEmpty());
}

TEST_F(WholeProgramTest, ItsCommandLineHoldsNothingButItsName) {
    enroll(server.url(), "canary-key");
    server.on(pollPath, {staySilent()});
    const DaemonProcess daemon(testDaemon());
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(daemon.commandLine(), std::string(ORVANE_TEST_DAEMON) + '\0');
}

TEST_F(WholeProgramTest, AClosedPipeAsStandardErrorDoesNotEndIt) {
    enroll(server.url());
    server.on(pollPath, {answer(304), answer(304), staySilent()});
    DaemonSetup setup = testDaemon();
    setup.prepare = [] {
        int ends[2];
        return ::pipe(ends) == 0 && ::dup2(ends[1], STDERR_FILENO) >= 0 && ::close(ends[0]) == 0 &&
               ::close(ends[1]) == 0;
    };
    DaemonProcess daemon(setup);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(WholeProgramTest, StartedWithoutStandardDescriptorsItKeepsMessagesOutOfItsFiles) {
    enroll(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent()});
    DaemonSetup setup = testDaemon();
    setup.prepare = [] {
        return ::close(STDIN_FILENO) == 0 && ::close(STDOUT_FILENO) == 0 &&
               ::close(STDERR_FILENO) == 0;
    };
    DaemonProcess daemon(setup);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_EQ(readFile(orvane() / "policy.json"), enabledPolicy);
    EXPECT_THAT(readFile(activityFile()), Not(HasSubstr("policy updated")));
}

}  // namespace
}  // namespace orvane::test
