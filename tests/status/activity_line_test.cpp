#include "status/activity_line.h"

#include <gtest/gtest.h>

namespace orvane::status {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

TEST(ParseTimeTest, ATimeIsReadToTheMillisecond) {
    EXPECT_EQ(parseTime("1970-01-02T03:04:05.678Z"),
              hours(27) + minutes(4) + seconds(5) + milliseconds(678));
    EXPECT_EQ(parseTime("2026-11-16T07:13:43.123Z"), milliseconds(1794813223123));
    EXPECT_EQ(parseTime("2024-02-29T00:00:00.000Z"), seconds(1709164800));
}

TEST(ParseTimeTest, AnyOtherFormIsNoTime) {
    for (const char* text :
         {"", "2026-11-16", "2026-11-16T07:13:43Z", "2026-11-16T07:13:43.123", "now",
          "2026-11-16 07:13:43.123Z", "2026-11-16T07:13:43.1234Z", "2026-11-1aT07:13:43.123Z",
          "2026-11-1/T07:13:43.123Z", "2026-02-29T07:13:43.123Z", "2026-13-01T07:13:43.123Z"}) {
        EXPECT_EQ(parseTime(text), std::nullopt) << text;
    }
}

constexpr const char* poll =
    R"({"bytes":342,"daemon":"policy-daemon","error":"lost","method":"GET","ms":4282,"pid":4711,)"
    R"("status":200,"ts":"2026-11-16T07:13:43.123Z",)"
    R"("url":"https:\/\/h\/api\/orvane\/v1\/connect\/guard-config\/?wait=300"})";

/// `poll` with `from` replaced by `to`.
std::string changed(const std::string& from, const std::string& to) {
    std::string line = poll;
    return line.replace(line.find(from), from.size(), to);
}

TEST(ActivityLineTest, APollIsReadWithAllThatCounts) {
    const auto exchange = parseActivityLine(poll);
    ASSERT_TRUE(exchange);
    EXPECT_TRUE(exchange->isPoll);
    EXPECT_EQ(exchange->endedAt, milliseconds(1794813223123));
    EXPECT_EQ(exchange->status, 200);
    EXPECT_EQ(exchange->milliseconds, 4282);
    EXPECT_EQ(exchange->bytes, 342);
    EXPECT_EQ(exchange->error, "lost");
    EXPECT_EQ(exchange->url, "https://h/api/orvane/v1/connect/guard-config/?wait=300");
}

TEST(ActivityLineTest, AFetchOfTheEffectiveConfigurationIsNoPoll) {
    const auto exchange =
        parseActivityLine(changed(R"(connect\/guard-config)", R"(guard\/effective)"));
    ASSERT_TRUE(exchange);
    EXPECT_FALSE(exchange->isPoll);
}

TEST(ActivityLineTest, WhatIsMissingWithoutBeingNeededIsEmpty) {
    const auto exchange = parseActivityLine(changed(R"("error":"lost",)", ""));
    ASSERT_TRUE(exchange);
    EXPECT_EQ(exchange->error, "");
    EXPECT_EQ(parseActivityLine(changed(R"("ms":4282,)", ""))->milliseconds, 0);
}

TEST(ActivityLineTest, TornAndForeignLinesAreNone) {
    const std::string whole = poll;
    for (const std::string& line :
         {std::string(), std::string("text"), whole.substr(0, 100), whole.substr(20), whole + whole,
          std::string(200, '\0'), std::string("[]"), changed("policy-daemon", "another-daemon"),
          changed(R"("daemon":"policy-daemon",)", ""), changed(R"("status":200,)", ""),
          changed("200", "\"200\""), changed("200", "200.5"), changed("2026", "then"),
          changed("\"url\"", "\"address\""), changed("guard-config", "other")}) {
        EXPECT_FALSE(parseActivityLine(line)) << line;
    }
}

}  // namespace
}  // namespace orvane::status
