#include "platform/text/whitespace.h"

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <string_view>

namespace orvane::test {
namespace {

struct Character {
    const char* name;
    std::string_view bytes;
};

constexpr std::array spaces{
    Character{"tab", "\x09"},
    Character{"space", "\x20"},
    Character{"U+00A0", "\xC2\xA0"},
    Character{"U+1680", "\xE1\x9A\x80"},
    Character{"U+2000", "\xE2\x80\x80"},
    Character{"U+2001", "\xE2\x80\x81"},
    Character{"U+2002", "\xE2\x80\x82"},
    Character{"U+2003", "\xE2\x80\x83"},
    Character{"U+2004", "\xE2\x80\x84"},
    Character{"U+2005", "\xE2\x80\x85"},
    Character{"U+2006", "\xE2\x80\x86"},
    Character{"U+2007", "\xE2\x80\x87"},
    Character{"U+2008", "\xE2\x80\x88"},
    Character{"U+2009", "\xE2\x80\x89"},
    Character{"U+200A", "\xE2\x80\x8A"},
    Character{"U+202F", "\xE2\x80\xAF"},
    Character{"U+205F", "\xE2\x81\x9F"},
    Character{"U+3000", "\xE3\x80\x80"},
};

constexpr std::array lineBreaks{
    Character{"LF", "\x0A"},
    Character{"VT", "\x0B"},
    Character{"FF", "\x0C"},
    Character{"CR", "\x0D"},
    Character{"NEL", "\xC2\x85"},
    Character{"U+2028", "\xE2\x80\xA8"},
    Character{"U+2029", "\xE2\x80\xA9"},
};

/// Code points next to whitespace, and what only looks like it.
constexpr std::array neither{
    Character{"NUL", std::string_view("\0", 1)},
    Character{"backspace", "\x08"},
    Character{"U+001F", "\x1F"},
    Character{"DEL", "\x7F"},
    Character{"U+0084", "\xC2\x84"},
    Character{"U+0086", "\xC2\x86"},
    Character{"U+00A1", "\xC2\xA1"},
    Character{"U+1681", "\xE1\x9A\x81"},
    Character{"U+180E", "\xE1\xA0\x8E"},
    Character{"U+1FFF", "\xE1\xBF\xBF"},
    Character{"U+200B", "\xE2\x80\x8B"},
    Character{"U+200C", "\xE2\x80\x8C"},
    Character{"U+200D", "\xE2\x80\x8D"},
    Character{"U+2027", "\xE2\x80\xA7"},
    Character{"U+202A", "\xE2\x80\xAA"},
    Character{"U+202E", "\xE2\x80\xAE"},
    Character{"U+2030", "\xE2\x80\xB0"},
    Character{"U+205E", "\xE2\x81\x9E"},
    Character{"U+2060", "\xE2\x81\xA0"},
    Character{"U+2800", "\xE2\xA0\x80"},
    Character{"U+3001", "\xE3\x80\x81"},
    Character{"U+FEFF", "\xEF\xBB\xBF"},
};

std::string around(std::string_view character) {
    return std::string(character).append("x").append(character);
}

TEST(WhitespaceTest, SpacesGoFromBothEnds) {
    for (const auto& [name, bytes] : spaces) {
        SCOPED_TRACE(name);
        EXPECT_EQ(text::withoutOuterSpaces(around(bytes)), "x");
        EXPECT_EQ(text::withoutOuterWhitespace(around(bytes)), "x");
    }
}

TEST(WhitespaceTest, LineBreaksGoOnlyWhereTheyAreAskedFor) {
    for (const auto& [name, bytes] : lineBreaks) {
        SCOPED_TRACE(name);
        const std::string text = around(bytes);
        EXPECT_EQ(text::withoutOuterSpaces(text), text);
        EXPECT_EQ(text::withoutOuterWhitespace(text), "x");
    }
}

TEST(WhitespaceTest, OtherCharactersStay) {
    for (const auto& [name, bytes] : neither) {
        SCOPED_TRACE(name);
        const std::string text = around(bytes);
        EXPECT_EQ(text::withoutOuterSpaces(text), text);
        EXPECT_EQ(text::withoutOuterWhitespace(text), text);
    }
}

TEST(WhitespaceTest, WhatIsInsideStays) {
    const std::string_view text = "a \t\xC2\xA0\n\r b";
    EXPECT_EQ(text::withoutOuterSpaces(text), text);
    EXPECT_EQ(text::withoutOuterWhitespace(text), text);
}

TEST(WhitespaceTest, RunsOfDifferentKindsGoAltogether) {
    const std::string_view text = "\t \xE3\x80\x80\n x \r\n\xC2\xA0\xE2\x80\x8A";
    EXPECT_EQ(text::withoutOuterSpaces(text), "\n x \r\n");
    EXPECT_EQ(text::withoutOuterWhitespace(text), "x");
}

TEST(WhitespaceTest, OneEndAloneIsTrimmedToo) {
    EXPECT_EQ(text::withoutOuterSpaces(" x"), "x");
    EXPECT_EQ(text::withoutOuterSpaces("x "), "x");
    EXPECT_EQ(text::withoutOuterWhitespace("\nx"), "x");
    EXPECT_EQ(text::withoutOuterWhitespace("x\n"), "x");
}

TEST(WhitespaceTest, NothingIsLeftOfWhitespaceAlone) {
    EXPECT_EQ(text::withoutOuterSpaces(""), "");
    EXPECT_EQ(text::withoutOuterSpaces(" \t\xE2\x80\x83"), "");
    EXPECT_EQ(text::withoutOuterWhitespace("\r\n \xC2\x85\xE2\x80\xA8"), "");
}

}  // namespace
}  // namespace orvane::test
