#include "status/words.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace orvane::status {
namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

TEST(InWordsTest, TheLargestUnitCountsAndOfDaysTheHoursAsWell) {
    const std::vector<std::tuple<std::chrono::nanoseconds, std::string, std::string>> cases{
        {-seconds(5), "0 s", "0 seconds"},
        {milliseconds(999), "0 s", "0 seconds"},
        {seconds(1), "1 s", "1 second"},
        {seconds(59), "59 s", "59 seconds"},
        {seconds(60), "1 min", "1 minute"},
        {minutes(59) + seconds(59), "59 min", "59 minutes"},
        {hours(1), "1 h", "1 hour"},
        {hours(23) + minutes(59), "23 h", "23 hours"},
        {days(1) + minutes(59), "1 d", "1 day"},
        {days(3) + hours(4), "3 d 4 h", "3 days 4 hours"},
        {days(400) + hours(1), "400 d 1 h", "400 days 1 hour"},
    };
    for (const auto& [duration, abbreviated, spelledOut] : cases) {
        EXPECT_EQ(inWords(duration, Units::abbreviated), abbreviated);
        EXPECT_EQ(inWords(duration, Units::spelledOut), spelledOut);
    }
}

TEST(LocalTimeTest, ATimeIsThatOfTheTimeZone) {
    (void)setenv("TZ", "XYZ-2", 1);
    EXPECT_EQ(localTime(seconds(1794813223)), "2026-11-16 09:13:43");
}

TEST(CountedTest, OneIsSingular) {
    EXPECT_EQ(counted(0, "poll"), "0 polls");
    EXPECT_EQ(counted(1, "poll"), "1 poll");
    EXPECT_EQ(counted(2, "poll"), "2 polls");
}

TEST(PrintableTest, NothingIsLeftThatATerminalInterprets) {
    EXPECT_EQ(printable("demo-9", 40), "demo-9");
    EXPECT_EQ(printable("a\033[31mb\r\n\x7f", 40), "a?[31mb???");
    EXPECT_EQ(printable("a\xC2\x9B"
                        "b\xC2\xA0"
                        "c",
                        40),
              "a?b\xC2\xA0"
              "c");
    EXPECT_EQ(printable("a\xFF", 40), "a\xEF\xBF\xBD");
}

TEST(PrintableTest, ALongTextIsCutOffBetweenCharacters) {
    EXPECT_EQ(printable("äöü", 3), "äöü");
    EXPECT_EQ(printable("äöüß", 3), "äöü…");
}

TEST(WithoutUserInfoTest, NameAndPasswordAreLeftOut) {
    EXPECT_EQ(withoutUserInfo("https://bob:hunter2@h:80/p?q@r#s"), "https://h:80/p?q@r#s");
    EXPECT_EQ(withoutUserInfo("https://a@b@h"), "https://h");
    EXPECT_EQ(withoutUserInfo("https://h/a@b"), "https://h/a@b");
    EXPECT_EQ(withoutUserInfo("https://h"), "https://h");
    EXPECT_EQ(withoutUserInfo("bob@h"), "bob@h");
}

TEST(WrappedTest, LinesAreBrokenAtSpaces) {
    EXPECT_EQ(wrapped("one two three four", 0, 2, 9), "one two\n  three\n  four");
    EXPECT_EQ(wrapped("one two", 3, 2, 9), "one\n  two");
    EXPECT_EQ(wrapped("", 0, 2, 9), "");
    EXPECT_EQ(wrapped("äöü äöü", 0, 0, 7), "äöü äöü");
    EXPECT_EQ(wrapped("averylongword x", 0, 1, 5), "averylongword\n x");
    EXPECT_EQ(wrapped("one  two", 0, 2, 7), "one\n  two");
}

TEST(WrappedTest, ColorsTakeNoColumns) {
    const std::string two = "\033[31mt\033[0mw\033[1;32mo\033[0m";
    EXPECT_EQ(wrapped("one " + two + " three", 0, 0, 13), "one " + two + " three");
    EXPECT_EQ(wrapped("one " + two + " three", 0, 0, 12), "one " + two + "\nthree");
}

}  // namespace
}  // namespace orvane::status
