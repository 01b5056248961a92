// The daemon as a process: the test twin, whose paths lie below a root of ours and whose sleeps
// take no time.
#include "process/daemon_process.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* enabledPolicy =
    R"({"etag":"v1","guard_config":{"capture":{"enabled":true}}})";

class TwinTest : public DaemonTest {
  protected:
    static DaemonSetup twin() {
        return {ORVANE_DAEMON_TWIN, {{"ORVANE_ROOT", root().string()}}, root() / "stderr", [] {
                    return true;
                }};
    }

    ScriptedServer server;
};

TEST_F(TwinTest, TheStartIsToldWithTheProcessIdAndThenTheSearchForCredentials) {
    DaemonProcess daemon(twin());
    ASSERT_TRUE(daemon.waitForLog("No usable profile"));
    auto lines = daemon.logLines();
    lines.resize(3);
    EXPECT_THAT(lines, ElementsAre("default OrvanePolicyDaemon starting (pid=" +
                                       std::to_string(daemon.pid()) + ")",
                                   "default Resolving credentials from ~/.orvane/config…",
                                   "default No usable profile — sleeping 30s and retrying"));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(TwinTest, ATerminationSignalEndsItWithoutFurtherWords) {
    enrol(server.url());
    server.on(pollPath, {staySilent()});
    DaemonProcess daemon(twin());
    ASSERT_TRUE(server.waitForRequests(1));
    const auto before = daemon.logLines();
    int status = daemon.end(SIGTERM);  // macOS's macros take its address
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(daemon.logLines(), before);
}

TEST_F(TwinTest, KilledInAHoldItGoesOnWhereItWasAfterARestart) {
    enrol(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent(), answer(304), staySilent()});
    {
        DaemonProcess daemon(twin());
        ASSERT_TRUE(server.waitForRequests(3));  // two polls, one effective fetch
        (void)daemon.end(SIGKILL);
    }
    EXPECT_EQ(readFile(orvane() / "policy.json"), enabledPolicy);
    DaemonProcess restarted(twin());
    ASSERT_TRUE(restarted.waitForLog("policy unchanged (etag=v1)"));
    EXPECT_EQ(server.requestsTo(pollPath).at(2).header("If-None-Match"), "\"v1\"");
}

TEST_F(TwinTest, KilledWhileItMadeTheLogAnewItLeavesNothingBesideItAfterARestart) {
    writeFile(activityFile(), "{}\n");
    writeFile(activityFile().parent_path() / leftoverNameOf(activityFile().filename()), "{\"byt");
    enrol(server.url());
    server.on(pollPath, {answer(304), staySilent()});
    const DaemonProcess daemon(twin());
    ASSERT_TRUE(server.waitForRequests(2));
    EXPECT_THAT(namesIn(activityFile().parent_path()), ElementsAre(activityFile().filename()));
    EXPECT_THAT(readFile(activityFile()), StartsWith("{}\n{"));
}

TEST_F(TwinTest, TheRegistryToolLeavesNoZombie) {
    installRegistryTool("#!/bin/sh\nexit 3\n");
    enrol(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent()});
    const DaemonProcess daemon(twin());
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_THAT(daemon.children(), IsEmpty());
}

TEST_F(TwinTest, ItsCommandLineHoldsNothingButItsName) {
    enrol(server.url(), "canary-key");
    server.on(pollPath, {staySilent()});
    const DaemonProcess daemon(twin());
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(daemon.commandLine(), std::string(ORVANE_DAEMON_TWIN) + '\0');
}

TEST_F(TwinTest, AClosedPipeAsStandardErrorDoesNotEndIt) {
    enrol(server.url());
    server.on(pollPath, {answer(304), answer(304), staySilent()});
    DaemonSetup setup = twin();
    setup.prepare = [] {
        int ends[2];
        return ::pipe(ends) == 0 && ::dup2(ends[1], STDERR_FILENO) >= 0 && ::close(ends[0]) == 0 &&
               ::close(ends[1]) == 0;
    };
    DaemonProcess daemon(setup);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(TwinTest, StartedWithoutStandardDescriptorsItKeepsMessagesOutOfItsFiles) {
    enrol(server.url());
    server.on(pollPath, {answer(200, enabledPolicy), staySilent()});
    DaemonSetup setup = twin();
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
