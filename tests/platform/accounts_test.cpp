#include "platform/machine/accounts.h"

#include "support/in_child.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <stdexcept>

namespace orvane::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

Account own() {
    return {accountName(::geteuid()), ::geteuid(), ::getegid(), "/"};
}

TEST(AccountsTest, RootIsAmongThem) {
    const auto all = allAccounts();
    const auto root = std::find_if(all.begin(), all.end(),
                                   [](const Account& account) { return account.user == 0; });
    ASSERT_NE(root, all.end());
    EXPECT_EQ(root->name, "root");
    EXPECT_EQ(root->group, 0U);
    EXPECT_FALSE(root->home.empty());
    EXPECT_EQ(allAccounts().size(), all.size());
}

TEST(AccountsTest, AnAccountWithoutEntryHasItsIdForName) {
    EXPECT_EQ(accountName(0), "root");
    EXPECT_EQ(accountName(4'000'000'000), "4000000000");
    EXPECT_EQ(ownUser(), ::geteuid());
}

TEST(ResultAsTest, TheResultComesFromAnotherProcess) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "taking on another account's rights takes root";
    }
    const auto result = resultAs(
        own(), [] { return ::getpid() == 0 ? "" : std::to_string(::getppid()); }, seconds(30));
    EXPECT_EQ(result, std::to_string(::getpid()));
    const std::string large(1'000'000, 'x');
    EXPECT_EQ(resultAs(
                  own(), [&] { return large; }, seconds(30)),
              large);
}

TEST(ResultAsTest, ItHasTheRightsOfTheAccountAndNothingElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "taking on another account's rights takes root";
    }
    const auto rights = resultAs(
        {"nobody", 65534, 65533, "/"},
        [] {
            std::array<gid_t, 16> groups{};
            const int count = ::getgroups(groups.size(), groups.data());
            return std::to_string(::getuid()) + " " + std::to_string(::geteuid()) + " " +
                   std::to_string(::getgid()) + " " + std::to_string(count) + " " +
                   std::to_string(groups[0]) + " " + std::to_string(::seteuid(0));
        },
        seconds(30));
    EXPECT_EQ(rights, "65534 65534 65533 1 65533 -1");
}

TEST(ResultAsTest, WithoutTheRightsNothingIsDone) {
    constexpr std::uint32_t nobody = UINT32_MAX;  // setuid(2) takes it for none
    EXPECT_EQ(resultAs(
                  {"x", nobody, nobody, "/"}, [] { return "done"; }, seconds(30)),
              std::nullopt);
    const auto asNobody = inUnprivilegedChild([] {
        return resultAs(
                   {"root", 0, 0, "/"}, [] { return "done"; }, seconds(30))
            .value_or("none");
    });
    EXPECT_EQ(asNobody, "none");
}

TEST(ResultAsTest, WhatThrowsHasNoResult) {
    EXPECT_EQ(resultAs(
                  own(), []() -> std::string { throw std::runtime_error("no"); }, seconds(30)),
              std::nullopt);
}

TEST(ResultAsTest, WhatIsStoppedIsNotWaitedFor) {
    EXPECT_EQ(resultAs(
                  own(),
                  [] {
                      (void)::raise(SIGSTOP);
                      return "done";
                  },
                  milliseconds(50)),
              std::nullopt);
}

}  // namespace

}  // namespace orvane::test
