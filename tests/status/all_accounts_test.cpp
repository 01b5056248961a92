#include "status/all_accounts.h"

#include "status/service.h"

#include <gtest/gtest.h>

namespace orvane::status {
namespace {

AccountReport reportOf(const std::string& account, Level level, const std::string& problem = "p") {
    return {account, {level, level == Level::healthy ? "" : problem, "it is so", "do this"}, ""};
}

TEST(PackedTest, AReportComesBackWhole) {
    const AccountReport report{"bob", {Level::notWorking, "p", "it is so", "do this"}, "a\nb\n"};
    const AccountReport back = unpacked("bob", packed(report));
    EXPECT_EQ(back.account, "bob");
    EXPECT_EQ(back.verdict.level, Level::notWorking);
    EXPECT_EQ(back.verdict.problem, "p");
    EXPECT_EQ(back.verdict.reason, "it is so");
    EXPECT_EQ(back.verdict.advice, "do this");
    EXPECT_EQ(back.text, "a\nb\n");
}

TEST(PackedTest, WhatIsNoReportCountsAsNoAnswer) {
    for (const char* text : {"", "4\np\n", "x", "-1\n", "01\n"}) {
        const AccountReport report = unpacked("bob", text);
        EXPECT_EQ(report.verdict.level, Level::unknown) << text;
        EXPECT_EQ(report.verdict.problem, "no-answer");
        EXPECT_EQ(report.text, "");
    }
}

TEST(CanHaveDaemonTest, OnlyOrdinaryAccountsWithAHomeCan) {
    EXPECT_TRUE(canHaveDaemon({"alice", firstOrdinaryUser, 100, "/"}));
    EXPECT_FALSE(canHaveDaemon({"root", 0, 0, "/"}));
    EXPECT_FALSE(canHaveDaemon({"greeter", firstOrdinaryUser - 1, 100, "/"}));
    EXPECT_FALSE(canHaveDaemon({"nobody", 65534, 65534, "/"}));
    EXPECT_FALSE(canHaveDaemon({"frank", firstOrdinaryUser, 100, "/nonexistent"}));
    EXPECT_FALSE(canHaveDaemon({"frank", firstOrdinaryUser, 100, "/dev/null"}));
    EXPECT_FALSE(canHaveDaemon({"frank", firstOrdinaryUser, 100, ""}));
}

TEST(ReportsOfAllTest, EachAccountThatCanHaveADaemonReportsWithItsOwnRights) {
    const std::vector<Account> accounts{{"root", 0, 0, "/"},
                                        {"alice", firstOrdinaryUser, 100, "/"}};
    const auto reports = reportsOfAll(accounts, [] {
        AccountReport report = reportOf("itself", Level::healthy);
        report.text = "seen by " + std::to_string(ownUser());
        return report;
    });
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.front().account, "alice");
    if (ownUser() == 0) {
        EXPECT_EQ(reports.front().verdict.level, Level::healthy);
        EXPECT_EQ(reports.front().text, "seen by " + std::to_string(firstOrdinaryUser));
    } else {  // only root can be somebody else
        EXPECT_EQ(reports.front().verdict.problem, "no-answer");
    }
}

TEST(OverallTest, TheWorstAccountCounts) {
    const Verdict verdict =
        overall({reportOf("a", Level::healthy), reportOf("b", Level::unknown),
                 reportOf("c", Level::degraded), reportOf("d", Level::notWorking),
                 reportOf("e", Level::notWorking), reportOf("f", Level::degraded)});
    EXPECT_EQ(verdict.level, Level::notWorking);
    EXPECT_EQ(verdict.reason, "d: it is so");
    EXPECT_EQ(verdict.advice, "do this");
    EXPECT_EQ(overall({reportOf("a", Level::healthy)}).level, Level::healthy);
    EXPECT_EQ(overall({reportOf("a", Level::healthy)}).reason, "");
    EXPECT_EQ(overall({reportOf("a", Level::healthy), reportOf("b", Level::unknown)}).level,
              Level::unknown);
}

TEST(OverallTest, AccountsThatAreNotLoggedInDoNotCount) {
    const AccountReport absent = reportOf("b", Level::unknown, "not-logged-in");
    EXPECT_EQ(overall({reportOf("a", Level::healthy), absent}).level, Level::healthy);
    EXPECT_EQ(overall({absent}).level, Level::unknown);
    EXPECT_EQ(overall({absent}).problem, "nobody");
    EXPECT_EQ(overall({}).problem, "nobody");
}

}  // namespace
}  // namespace orvane::status
