// The paths that the daemon ships with.
#include "platform/machine/paths.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace orvane::test {

namespace {

/// What the account database says of this account.
struct Account {
    bool isThere = true;
    const char* home = nullptr;
    std::size_t neededBytes = 0;  ///< less room is ERANGE
};
Account account;

class MachinePathsTest : public ::testing::Test {
  protected:
    MachinePathsTest() { EXPECT_EQ(::setenv("HOME", "/from/the/environment", 1), 0); }
};

TEST_F(MachinePathsTest, TheHomeIsTheAccounts) {
    account = {.home = "/home/ann"};
    EXPECT_EQ(paths::homeDirectory(), "/home/ann");
}

TEST_F(MachinePathsTest, AnEntryOfAnyLengthIsRead) {
    const std::string home = "/" + std::string(5000, 'a');
    account = {.home = home.c_str(), .neededBytes = home.size() + 1};
    EXPECT_EQ(paths::homeDirectory(), home);
}

TEST_F(MachinePathsTest, WithoutTheAccountsItIsTheEnvironments) {
    for (const Account& without : {Account{.isThere = false}, Account{}, Account{.home = ""}}) {
        account = without;
        EXPECT_EQ(paths::homeDirectory(), "/from/the/environment");
    }
}

TEST_F(MachinePathsTest, WithoutEitherItIsOneThatNobodyHas) {
    account = {.isThere = false};
    EXPECT_EQ(::unsetenv("HOME"), 0);
    EXPECT_EQ(paths::homeDirectory(), "/var/empty");
}

TEST_F(MachinePathsTest, TheOthersAreTheSystems) {
    EXPECT_EQ(paths::setupDirectory(), "/private/tmp/dev.orvane.setup");
    EXPECT_EQ(paths::systemRoot(), "/");
    EXPECT_EQ(paths::registryTool(), "/usr/sbin/ioreg");
    EXPECT_EQ(paths::machineIdFile(), "/etc/machine-id");
    EXPECT_EQ(paths::certificateDirectory(), "/etc/ssl/certs");
}

}  // namespace

}  // namespace orvane::test

extern "C" int getpwuid_r(uid_t id, passwd* entry, char* buffer, std::size_t size, passwd** found) {
    using orvane::test::account;
    EXPECT_EQ(id, ::geteuid());
    *found = nullptr;
    if (size < account.neededBytes) {
        return ERANGE;
    }
    if (account.isThere) {
        *entry = {};
        entry->pw_dir = account.home == nullptr ? nullptr : std::strcpy(buffer, account.home);
        *found = entry;
    }
    return 0;
}
