#include "platform/text/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace orvane::test {

namespace {

using namespace std::string_view_literals;

TEST(TextTest, WellFormedUtf8IsTaken) {
    const struct {
        const char* what;
        std::string_view bytes;
    } table[] = {
        {"empty", ""},
        {"ASCII, first to last", "\0\x01\x7F"sv},
        {"lowest of two bytes", "\xC2\x80"},
        {"highest of two bytes", "\xDF\xBF"},
        {"lowest of three bytes", "\xE0\xA0\x80"},
        {"last before the surrogates", "\xED\x9F\xBF"},
        {"first after the surrogates", "\xEE\x80\x80"},
        {"byte order mark", "\xEF\xBB\xBF"},
        {"noncharacter U+FFFE", "\xEF\xBF\xBE"},
        {"noncharacter U+FFFF", "\xEF\xBF\xBF"},
        {"noncharacter U+FDD0", "\xEF\xB7\x90"},
        {"lowest of four bytes", "\xF0\x90\x80\x80"},
        {"noncharacter U+1FFFF", "\xF0\x9F\xBF\xBF"},
        {"U+10FFFF", "\xF4\x8F\xBF\xBF"},
        {"a mixture", "a\u00E9\u20AC\U0001F600z"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_TRUE(text::isUtf8(row.bytes));
        EXPECT_EQ(text::repairedUtf8(row.bytes), row.bytes);
    }
}

TEST(TextTest, MalformedUtf8IsRefusedAndRepaired) {
    const struct {
        const char* what;
        std::string_view bytes;
        std::string_view repaired;
    } table[] = {
        {"lone continuation byte", "a\x80z", "a\uFFFDz"},
        {"two of them", "a\x80\xBFz", "a\uFFFD\uFFFDz"},
        {"overlong slash, two bytes", "a\xC0\xAFz", "a\uFFFDz"},
        {"overlong, two bytes, highest", "a\xC1\xBFz", "a\uFFFDz"},
        {"overlong slash, three bytes", "a\xE0\x80\xAFz", "a\uFFFDz"},
        {"overlong, three bytes, highest", "a\xE0\x9F\xBFz", "a\uFFFDz"},
        {"overlong, four bytes", "a\xF0\x80\x80\xAFz", "a\uFFFDz"},
        {"overlong, four bytes, highest", "a\xF0\x8F\xBF\xBFz", "a\uFFFDz"},
        {"first surrogate", "a\xED\xA0\x80z", "a\uFFFDz"},
        {"last surrogate", "a\xED\xBF\xBFz", "a\uFFFDz"},
        {"U+110000", "a\xF4\x90\x80\x80z", "a\uFFFDz"},
        {"lead byte F8", "a\xF8z", "a\uFFFDz"},
        {"byte FE", "a\xFEz", "a\uFFFDz"},
        {"byte FF", "a\xFFz", "a\uFFFDz"},
        {"Latin-1", "caf\xE9!", "caf\uFFFD!"},
        {"two bytes cut short by ASCII", "a\xC3z", "a\uFFFDz"},
        {"three bytes cut short by ASCII", "a\xE2\x82z", "a\uFFFDz"},
        {"four bytes cut short by ASCII", "a\xF0\x9F\x98z", "a\uFFFDz"},
        {"two bytes cut short by the end", "a\xC3", "a\uFFFD"},
        {"three bytes cut short by the end", "a\xE2\x82", "a\uFFFD"},
        {"four bytes cut short by the end", "a\xF0\x9F\x98", "a\uFFFD"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_FALSE(text::isUtf8(row.bytes));
        EXPECT_EQ(text::repairedUtf8(row.bytes), row.repaired);
    }
}

TEST(TextTest, OneByteOrderMarkIsTakenOff) {
    const struct {
        std::string_view text;
        std::string_view rest;
    } table[] = {
        {"", ""},
        {"abc", "abc"},
        {"\xEF\xBB\xBF", ""},
        {"\xEF\xBB\xBF"
         "abc",
         "abc"},
        {"\xEF\xBB\xBF\xEF\xBB\xBF"
         "abc",
         "\xEF\xBB\xBF"
         "abc"},
        {"a\xEF\xBB\xBF", "a\xEF\xBB\xBF"},
        {"\xEF\xBB", "\xEF\xBB"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(text::withoutByteOrderMark(row.text), row.rest)
            << ::testing::PrintToString(row.text);
    }
}

TEST(TextTest, TrimmingTakesTheCharacterFromBothEnds) {
    const struct {
        std::string_view text;
        std::string_view trimmed;
    } table[] = {
        {"", ""},     {"/", ""},          {"////", ""},       {"a", "a"},
        {"/a", "a"},  {"a/", "a"},        {"///a/", "a"},     {"/a///", "a"},
        {"ab", "ab"}, {"//a/b//", "a/b"}, {" /a/ ", " /a/ "}, {"a//b", "a//b"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(text::trimmed(row.text, '/'), row.trimmed) << row.text;
    }
    EXPECT_EQ(text::trimmed("\"/a/\"", '"'), "/a/");
}

TEST(TextTest, ControlCharactersAreC0AndDelete) {
    for (int byte = 0; byte < 256; ++byte) {
        const char character = static_cast<char>(byte);
        const bool isControl = byte < 0x20 || byte == 0x7F;
        const std::string_view alone(&character, 1);
        EXPECT_EQ(text::hasControlCharacter(alone), isControl) << byte;
        EXPECT_EQ(text::hasControlCharacter("a" + std::string(alone) + "z"), isControl) << byte;
    }
    EXPECT_FALSE(text::hasControlCharacter(""));
}

}  // namespace

}  // namespace orvane::test
