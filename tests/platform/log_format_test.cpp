#include "platform/log/log_format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

namespace {

using namespace std::string_literals;

std::string rendered(std::string_view format, std::initializer_list<LogArgument> arguments = {}) {
    const std::vector<LogArgument> all(arguments);
    return renderMessage(format, all);
}

/// How a string argument is shown.
std::string shown(std::string_view text) {
    return rendered("%{public}s", {text});
}

// --- What fits; checked when this file is compiled, for that is when it counts

using std::int32_t;
using std::int64_t;
using std::string;
using std::string_view;

static_assert(formatFits<>(""));
static_assert(formatFits<>("text only {public} }{ ld s d"));
static_assert(formatFits<string>("%s"));
static_assert(formatFits<string>("%{public}s"));
static_assert(formatFits<string_view>("a %{public}s z"));
static_assert(formatFits<const char*>("%{public}s"));
static_assert(formatFits<char[4]>("%{public}s"));
static_assert(formatFits<int32_t>("%d"));
static_assert(formatFits<int32_t>("%{public}d"));
static_assert(formatFits<int64_t>("%ld"));
static_assert(formatFits<int64_t>("%{public}ld"));
static_assert(formatFits<bool>("%{bool,public}d"));
static_assert(
    formatFits<string, int64_t, int32_t, bool>("%{public}s %ld%{public}d|%{bool,public}d end"));

// Another type than the conversion is for
static_assert(!formatFits<int32_t>("%{public}s"));
static_assert(!formatFits<bool>("%{public}s"));
static_assert(!formatFits<string>("%{public}d"));
static_assert(!formatFits<string>("%ld"));
static_assert(!formatFits<string>("%{bool,public}d"));
static_assert(!formatFits<int64_t>("%d"));
static_assert(!formatFits<int32_t>("%ld"));
static_assert(!formatFits<bool>("%d"));
static_assert(!formatFits<bool>("%{public}d"));
static_assert(!formatFits<bool>("%ld"));
static_assert(!formatFits<int32_t>("%{bool,public}d"));
static_assert(!formatFits<int64_t>("%{bool,public}d"));
static_assert(!formatFits<string, int32_t>("%d %s"));

// A type that nothing is for
static_assert(!formatFits<double>("%d"));
static_assert(!formatFits<unsigned>("%d"));
static_assert(!formatFits<std::uint64_t>("%ld"));
static_assert(!formatFits<double>("%f"));
static_assert(!formatFits<double>("%{"));
static_assert(!formatFits<void*>("%p"));

// Missing and extra arguments
static_assert(!formatFits<string>(""));
static_assert(!formatFits<string>("text"));
static_assert(!formatFits<>("%s"));
static_assert(!formatFits<>("%d"));
static_assert(!formatFits<string, string>("%s"));
static_assert(!formatFits<string>("%s %s"));
static_assert(!formatFits<string>("%s%"));

// Malformed conversions
static_assert(!formatFits<>("100%"));
static_assert(!formatFits<>("%%"));
static_assert(!formatFits<string>("%"));
static_assert(!formatFits<string>("%S"));
static_assert(!formatFits<string>("%@"));
static_assert(!formatFits<string>("% s"));
static_assert(!formatFits<string>("%{public}"));
static_assert(!formatFits<string>("%{public} s"));
static_assert(!formatFits<int64_t>("%l"));
static_assert(!formatFits<int64_t>("%lx"));
static_assert(!formatFits<int64_t>("%lld"));
static_assert(!formatFits<int32_t>("%i"));
static_assert(!formatFits<int32_t>("%u"));

// Marks
static_assert(!formatFits<string>("%{}s"));
static_assert(!formatFits<string>("%{private}s"));
static_assert(!formatFits<string>("%{Public}s"));
static_assert(!formatFits<string>("%{public }s"));
static_assert(!formatFits<string>("%{public,public}s"));
static_assert(!formatFits<string>("%{public"));
static_assert(!formatFits<string>("%{publics"));
static_assert(!formatFits<string>("%{"));
static_assert(!formatFits<bool>("%{bool}d"));
static_assert(!formatFits<bool>("%{public,bool}d"));
static_assert(!formatFits<string>("%{bool,public}s"));
static_assert(!formatFits<bool>("%{bool,public}s"));
static_assert(!formatFits<int64_t>("%{bool,public}ld"));
static_assert(!formatFits<bool>("%{bool,public}ld"));

// The same again at run time, for a check that has gone wrong shows here too.
TEST(FormatFitsTest, ConversionsAndArgumentsGoTogether) {
    EXPECT_TRUE(formatFits<>("no conversion"));
    EXPECT_TRUE((formatFits<std::string, std::int64_t, std::int32_t, bool>(
        "%{public}s %ld %{public}d %{bool,public}d")));
    EXPECT_FALSE(formatFits<std::string>("%d"));
    EXPECT_FALSE((formatFits<std::string, std::string>("%s")));
    EXPECT_FALSE(formatFits<std::string>("%s %s"));
    EXPECT_FALSE(formatFits<std::string>("%{private}s"));
    EXPECT_FALSE(formatFits<std::string>("%{public"));
    EXPECT_FALSE(formatFits<std::string>("%{bool,public}s"));
    EXPECT_FALSE(formatFits<std::int64_t>("%{bool,public}ld"));
    EXPECT_FALSE(formatFits<std::int64_t>("%x"));
    EXPECT_FALSE(formatFits<bool>("%{bool,public}x"));
    EXPECT_FALSE(formatFits<double>("%f")) << "nothing is for it, not even what is malformed";
}

// --- Rendering

TEST(RenderMessageTest, EachConversionShowsItsArgument) {
    EXPECT_EQ(rendered("nothing to fill in"), "nothing to fill in");
    EXPECT_EQ(rendered(""), "");
    EXPECT_EQ(rendered("%{public}s", {"text"}), "text");
    EXPECT_EQ(rendered("[%{public}s]", {""}), "[]");
    EXPECT_EQ(rendered("%{public}d", {std::int64_t{-7}}), "-7");
    EXPECT_EQ(rendered("%{public}ld", {std::int64_t{42}}), "42");
    EXPECT_EQ(rendered("%{bool,public}d", {true}), "true");
    EXPECT_EQ(rendered("%{bool,public}d", {false}), "false");
}

TEST(RenderMessageTest, TheTextAroundConversionsStays) {
    EXPECT_EQ(rendered("a %{public}s b %{public}ld c", {"1", std::int64_t{2}}), "a 1 b 2 c");
    EXPECT_EQ(rendered("%{public}s%{public}s", {"x", "y"}), "xy");
    EXPECT_EQ(rendered("%{public}s: %d, %ld end", {"first", std::int64_t{1}, std::int64_t{2}}),
              "first: 1, 2 end");
}

TEST(RenderMessageTest, AnArgumentIsNotReadAsAFormat) {
    EXPECT_EQ(rendered("%{public}s %{public}s", {"%{public}s", "%d"}), "%{public}s %d");
}

TEST(RenderMessageTest, TheWholeRangeOfIntegers) {
    EXPECT_EQ(rendered("%ld", {std::numeric_limits<std::int64_t>::min()}), "-9223372036854775808");
    EXPECT_EQ(rendered("%ld", {std::numeric_limits<std::int64_t>::max()}), "9223372036854775807");
}

TEST(RenderMessageTest, AnUnmarkedStringIsPrivate) {
    EXPECT_EQ(rendered("key=%s.", {"secret"}), "key=<private>.");
    EXPECT_EQ(rendered("%s", {""}), "<private>");
    EXPECT_EQ(rendered("%s %{public}s", {"secret", "open"}), "<private> open");
}

TEST(RenderMessageTest, AnUnmarkedNumberIsVisible) {
    EXPECT_EQ(rendered("%ld %d", {std::int64_t{200}, std::int64_t{7}}), "200 7");
}

TEST(RenderMessageTest, TheFormatItselfIsShownAsWritten) {
    EXPECT_EQ(rendered("a \u2014 b"), "a \u2014 b");
}

// --- Making strings safe to show

TEST(PrintableTest, ControlCharactersAreEscaped) {
    for (int byte = 0; byte < 0x80; ++byte) {
        const std::string character(1, static_cast<char>(byte));
        std::string expected = character;
        if (byte == '\n') {
            expected = "\\n";
        } else if (byte == '\r') {
            expected = "\\r";
        } else if (byte == '\t') {
            expected = "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            constexpr std::string_view hex = "0123456789abcdef";
            expected = "\\u00"s + hex[static_cast<std::size_t>(byte) / 16] +
                       hex[static_cast<std::size_t>(byte) % 16];
        }
        EXPECT_EQ(printable("<" + character + ">"), "<" + expected + ">") << byte;
        EXPECT_EQ(shown("<" + character + ">"), "<" + expected + ">") << byte;
    }
}

TEST(PrintableTest, C1ControlCharactersAreEscaped) {
    const struct {
        const char* text;
        const char* shown;
    } table[] = {
        {"\u0080", "\\u0080"},
        {"a\u0085z", "a\\u0085z"},
        {"\u009B31m", "\\u009b31m"},
        {"\u009F", "\\u009f"},
        {"\u00A0", "\u00A0"},
        {"\u00BF", "\u00BF"},
        {"\u00C0\u00DF", "\u00C0\u00DF"},
        {"\u0100", "\u0100"},
        {"\u2080\u2085", "\u2080\u2085"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(printable(row.text), row.shown);
        EXPECT_EQ(shown(row.text), row.shown);
    }
}

TEST(PrintableTest, MalformedUtf8IsRepaired) {
    EXPECT_EQ(printable("a\xFFz"), "a\uFFFDz");
    EXPECT_EQ(printable("a\xC2"), "a\uFFFD");
    EXPECT_EQ(printable("\xC2\n"), "\uFFFD\\n");
    EXPECT_EQ(shown("caf\xE9"), "caf\uFFFD");
}

TEST(PrintableTest, AllElseStays) {
    for (const std::string_view text :
         {"", "plain text", "\u2014", "\u00E9", "\U0001F600", "\\n", "100 %"}) {
        EXPECT_EQ(printable(text), text);
        EXPECT_EQ(shown(text), text);
    }
}

}  // namespace

}  // namespace orvane::test
