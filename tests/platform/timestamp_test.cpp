#include "platform/text/timestamp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>

namespace orvane::test {

namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

TEST(Iso8601Test, AKnownTime) {
    EXPECT_EQ(iso8601(1794813223s + 123ms), "2026-11-16T07:13:43.123Z");
}

TEST(Iso8601Test, AlwaysThreeFractionalDigits) {
    const struct {
        nanoseconds sinceEpoch;
        const char* text;
    } table[] = {
        {0s, "1970-01-01T00:00:00.000Z"},         {7ms, "1970-01-01T00:00:00.007Z"},
        {70ms, "1970-01-01T00:00:00.070Z"},       {700ms, "1970-01-01T00:00:00.700Z"},
        {951782400s, "2000-02-29T00:00:00.000Z"}, {-1ms, "1969-12-31T23:59:59.999Z"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(iso8601(row.sinceEpoch), row.text);
    }
}

TEST(Iso8601Test, RoundsToTheNearestMillisecondHalfUp) {
    const struct {
        nanoseconds sinceEpoch;
        const char* text;
    } table[] = {
        {499'999ns, "1970-01-01T00:00:00.000Z"},
        {500'000ns, "1970-01-01T00:00:00.001Z"},
        {1'499'999ns, "1970-01-01T00:00:00.001Z"},
        {1'500'000ns, "1970-01-01T00:00:00.002Z"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(iso8601(row.sinceEpoch), row.text);
    }
}

TEST(Iso8601Test, RoundingCarries) {
    const struct {
        const char* what;
        nanoseconds sinceEpoch;
        const char* text;
    } table[] = {
        {"not yet", 12h + 59s + 999'400us, "1970-01-01T12:00:59.999Z"},
        {"into the second", 12h + 58s + 999'500us, "1970-01-01T12:00:59.000Z"},
        {"into the minute", 12h + 59s + 999'500us, "1970-01-01T12:01:00.000Z"},
        {"into the hour", 12h + 59min + 59s + 999'500us, "1970-01-01T13:00:00.000Z"},
        {"into the day", 23h + 59min + 59s + 999'500us, "1970-01-02T00:00:00.000Z"},
        {"into the year", 1798761599s + 999'999'999ns, "2027-01-01T00:00:00.000Z"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(iso8601(row.sinceEpoch), row.text);
    }
}

// Puts the process in a time zone, for as long as it lives.
class TimeZone {
  public:
    explicit TimeZone(const char* zone) {
        if (const char* before = std::getenv("TZ"); before != nullptr) {
            before_ = before;
        }
        set(zone);
    }
    ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

  private:
    static void set(const char* zone) {
        (void)(zone == nullptr ? ::unsetenv("TZ") : ::setenv("TZ", zone, 1));
        ::tzset();
    }

    std::optional<std::string> before_;
};

TEST(Iso8601Test, IsInUtcWhateverTheTimeZone) {
    // Written out, so that it is the same on a machine without a time zone database.
    const TimeZone behind("XYZ3:30");
    const std::time_t epoch = 0;
    std::tm local{};
    ASSERT_NE(::localtime_r(&epoch, &local), nullptr);
    ASSERT_EQ(local.tm_hour, 20);  // on the day before
    EXPECT_EQ(iso8601(0s), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(iso8601(1794813223s + 123ms), "2026-11-16T07:13:43.123Z");
}

TEST(WholeMillisecondsTest, CutsTowardZero) {
    const struct {
        double seconds;
        std::int64_t milliseconds;
    } table[] = {
        {0.0, 0},     {1.0, 1000},   {0.25, 250},      {0.0009, 0},           {1.9996, 1999},
        {-0.0009, 0}, {-1.0, -1000}, {-1.9996, -1999}, {86400.0, 86'400'000},
    };
    for (const auto& row : table) {
        EXPECT_EQ(wholeMilliseconds(row.seconds), row.milliseconds) << row.seconds;
    }
}

// Around 2^63 / 1000 neighboring doubles are 2 apart, and 1024 apart once multiplied.
TEST(WholeMillisecondsTest, TheLargestAndTheSmallestThatFit) {
    EXPECT_EQ(wholeMilliseconds(9223372036854774.0), 9223372036854773760);
    EXPECT_EQ(wholeMilliseconds(-9223372036854774.0), -9223372036854773760);
    EXPECT_EQ(wholeMilliseconds(-9223372036854776.0), std::numeric_limits<std::int64_t>::min());
}

TEST(WholeMillisecondsDeathTest, WhatDoesNotFitEndsTheProcess) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double table[] = {
        9223372036854776.0,
        -9223372036854778.0,
        1e300,
        -1e300,
        infinity,
        -infinity,
        std::numeric_limits<double>::quiet_NaN(),
    };
    for (const double elapsed : table) {
        EXPECT_EXIT((void)wholeMilliseconds(elapsed), ::testing::KilledBySignal(SIGABRT),
                    "elapsed time does not fit in 64 bits")
            << elapsed;
    }
}

}  // namespace

}  // namespace orvane::test
