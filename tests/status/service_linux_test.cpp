// Where systemd leaves its traces, with a fake systemctl.
#include "status/service.h"

#include "platform/machine/accounts.h"
#include "support/rooted_paths.h"
#include "support/test_files.h"

#include <gtest/gtest.h>

namespace orvane::status {
namespace {

namespace fs = std::filesystem;

class ServiceLinuxTest : public ::testing::Test {
  protected:
    ServiceLinuxTest() { rooted_paths::setRoot(directory.path()); }

    void startSystemd() const { fs::create_directories(directory.path() / "run/systemd/system"); }
    void logIn() const {
        test::writeFile(
            directory.path() / "run/user" / std::to_string(ownUser()) / "systemd/private", "");
    }
    /// A systemctl that prints `output`, then its arguments and where the service manager is.
    void installSystemctl(const std::string& output) const {
        const fs::path tool = directory.path() / "usr/bin/systemctl";
        test::writeFile(tool, "#!/bin/sh\necho '" + output + "'\necho \"$*\" $XDG_RUNTIME_DIR >" +
                                  (directory.path() / "calls").string() + "\n");
        fs::permissions(tool, fs::perms(0755));
    }

    test::TempDirectory directory;
};

TEST_F(ServiceLinuxTest, WithoutSystemdNothingIsKnown) {
    installSystemctl("ActiveState=active");
    logIn();
    EXPECT_EQ(askServiceManager().state, ServiceState::unknown);
}

TEST_F(ServiceLinuxTest, AnAccountWithoutServiceManagerIsNotAskedAbout) {
    startSystemd();
    installSystemctl("ActiveState=active");
    EXPECT_EQ(askServiceManager().state, stateWithoutManager(ownUser(), false));
    test::writeFile(directory.path() / "var/lib/systemd/linger" / accountName(ownUser()), "");
    EXPECT_EQ(askServiceManager().state, stateWithoutManager(ownUser(), true));
}

TEST_F(ServiceLinuxTest, TheServiceManagerOfTheAccountIsAsked) {
    startSystemd();
    logIn();
    installSystemctl("ActiveState=active\nMainPID=4711");
    const Service service = askServiceManager();
    EXPECT_EQ(service.state, ServiceState::running);
    EXPECT_EQ(service.pid, 4711);
    EXPECT_EQ(test::readFile(directory.path() / "calls"),
              "--user show --property=LoadState,ActiveState,MainPID,NRestarts,"
              "ActiveEnterTimestampMonotonic orvane-policy-daemon.service /run/user/" +
                  std::to_string(ownUser()) + "\n");
}

TEST_F(ServiceLinuxTest, WithoutSystemctlNothingIsKnown) {
    startSystemd();
    logIn();
    EXPECT_EQ(askServiceManager().state, ServiceState::unknown);
}

}  // namespace
}  // namespace orvane::status
