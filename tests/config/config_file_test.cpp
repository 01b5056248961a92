#include "config/config_file.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

using namespace std::string_literals;

struct Example {
    const char* name;
    std::string text;
    ConfigSections sections;
};

void expectAll(const std::vector<Example>& examples) {
    for (const auto& [name, text, sections] : examples) {
        SCOPED_TRACE(name);
        EXPECT_EQ(parseConfig(text), sections);
    }
}

/// The value that "k" gets from `line` in a section.
std::string valueFrom(const std::string& line) {
    const ConfigSections sections = parseConfig("[s]\n" + line);
    const ConfigSection& section = sections.at("s");
    return section.contains("k") ? section.find("k")->second : "(no k)";
}

TEST(ConfigFileTest, SectionsWithKeysAndValues) {
    EXPECT_THAT(parseConfig("[default]\napi_url = https://h\napi_key = k\n\n[connect]\na=1\n"),
                ElementsAre(Pair("connect", ElementsAre(Pair("a", "1"))),
                            Pair("default",
                                 ElementsAre(Pair("api_key", "k"), Pair("api_url", "https://h")))));
}

TEST(ConfigFileTest, Lines) {
    expectAll({
        {"empty text", "", {}},
        {"only line feeds", "\n\n\n", {}},
        {"no line feed at all", "[s] k=v", {}},
        {"one header without a line feed", "[s]", {{"s", {}}}},
        {"last line without a line feed", "[s]\nk=v", {{"s", {{"k", "v"}}}}},
        {"runs of line feeds", "\n\n[s]\n\n\nk=v\n\n\nl=w\n\n", {{"s", {{"k", "v"}, {"l", "w"}}}}},
        {"lines of spaces only", "[s]\n \t\nk=v\n\t\n", {{"s", {{"k", "v"}}}}},
        {"outer spaces of lines", " \t[s]\t \n \tk=v\t ", {{"s", {{"k", "v"}}}}},
    });
}

TEST(ConfigFileTest, CarriageReturns) {
    expectAll({
        {"all lines end with CR LF", "[s]\r\nk=v\r\nl=w\r\n", {}},
        {"only the header's line ends with CR LF", "[s]\r\nk=v\nl=w\n", {}},
        {"the lines after the header end with CR LF",
         "[s]\nk=v\r\nl=w\r\n",
         {{"s", {{"k", "v\r\nl=w\r\n"}}}}},
        {"CR LF inside a run of lines",
         "[s]\na=1\r\nb=2\nc=3\n",
         {{"s", {{"a", "1\r\nb=2"}, {"c", "3"}}}}},
        {"a CR alone", "[s]\nk=v\rl=w\n", {{"s", {{"k", "v\rl=w"}}}}},
        {"LF CR splits at the LF", "[s]\n\rk=v\n", {{"s", {{"\rk", "v"}}}}},
        {"LF LF after a CR splits once",
         "[s]\nk=v\r\n\nl=w",
         {{"s", {{"k", "v\r\n"}, {"l", "w"}}}}},
        {"a CR after a header", "[s]\r", {}},
        {"a CR LF line that is all there is", "\r\n", {}},
        {"a CR LF in first place", "\r\n[s]\nk=v", {}},
        {"a CR LF at the start of a later line", "[s]\n\r\nk=v", {{"s", {{"\r\nk", "v"}}}}},
        {"a LF in first place", "\n[s]\nk=v", {{"s", {{"k", "v"}}}}},
    });
}

TEST(ConfigFileTest, WhatPrecedesTheTextIsIgnored) {
    const std::string_view larger = "\r\n[s]\nk=v\n";
    EXPECT_THAT(parseConfig(larger.substr(1)), ElementsAre(Pair("s", ElementsAre(Pair("k", "v")))));
}

TEST(ConfigFileTest, Comments) {
    expectAll({
        {"a comment", "[s]\n#k=v\n", {{"s", {}}}},
        {"a comment after spaces", "[s]\n \t # k=v\n", {{"s", {}}}},
        {"a comment that looks like a header", "[s]\n#[t]\nk=v", {{"s", {{"k", "v"}}}}},
        {"# after a value", "[s]\nk=v # w", {{"s", {{"k", "v # w"}}}}},
        {"# right after the =", "[s]\nk=#v", {{"s", {{"k", "#v"}}}}},
        {"# inside a key", "[s]\nk#=v", {{"s", {{"k#", "v"}}}}},
        {"; is nothing special", "[s]\n;k=v", {{"s", {{";k", "v"}}}}},
        {"; after a value", "[s]\nk=v ; w", {{"s", {{"k", "v ; w"}}}}},
        {"# after a header makes it none", "[s]\n[t] # c\nk=v", {{"s", {{"k", "v"}}}}},
    });
}

TEST(ConfigFileTest, Headers) {
    expectAll({
        {"an empty name", "[]\nk=v", {{"", {{"k", "v"}}}}},
        {"a name of spaces only", "[ \t]\nk=v", {{"", {{"k", "v"}}}}},
        {"spaces inside the brackets", "[ \ta b \t]\nk=v", {{"a b", {{"k", "v"}}}}},
        {"wide spaces inside the brackets", "[\u3000a\u00A0]\nk=v", {{"a", {{"k", "v"}}}}},
        {"two closing brackets", "[a]]\nk=v", {{"a]", {{"k", "v"}}}}},
        {"two opening brackets", "[[a]\nk=v", {{"[a", {{"k", "v"}}}}},
        {"a = in the name", "[a=b]\nk=v", {{"a=b", {{"k", "v"}}}}},
        {"quotes in the name stay", "[\"a\"]\nk=v", {{"\"a\"", {{"k", "v"}}}}},
        {"case counts", "[A]\nk=v\n[a]\nk=w", {{"A", {{"k", "v"}}}, {"a", {{"k", "w"}}}}},
        {"an opening bracket alone", "[s]\n[", {{"s", {}}}},
        {"a closing bracket alone", "[s]\n]", {{"s", {}}}},
        {"no closing bracket", "[s]\n[a\nk=v", {{"s", {{"k", "v"}}}}},
        {"no opening bracket", "[s]\na]\nk=v", {{"s", {{"k", "v"}}}}},
        {"an assignment after the brackets", "[s]\n[x]=1", {{"s", {{"[x]", "1"}}}}},
        {"an assignment that ends with a bracket", "[s]\nk=[v]", {{"s", {{"k", "[v]"}}}}},
        {"an assignment in brackets", "[s]\n[k=v]", {{"s", {}}, {"k=v", {}}}},
    });
}

TEST(ConfigFileTest, ALaterHeaderTakesOverFromTheEarlierOne) {
    EXPECT_THAT(parseConfig("[a]\nk=1\n[b]\nk=2\n"),
                ElementsAre(Pair("a", ElementsAre(Pair("k", "1"))),
                            Pair("b", ElementsAre(Pair("k", "2")))));
}

TEST(ConfigFileTest, AHeaderThatRepeatsANameDropsEarlierKeys) {
    EXPECT_THAT(parseConfig("[a]\nk=1\nl=1\n[b]\nm=2\n[ a ]\nn=3\n"),
                ElementsAre(Pair("a", ElementsAre(Pair("n", "3"))),
                            Pair("b", ElementsAre(Pair("m", "2")))));
}

TEST(ConfigFileTest, ARepeatedHeaderWithoutKeysLeavesAnEmptySection) {
    EXPECT_THAT(parseConfig("[a]\nk=1\n[a]\n"), ElementsAre(Pair("a", IsEmpty())));
}

TEST(ConfigFileTest, KeysBeforeTheFirstHeaderBelongNowhere) {
    EXPECT_THAT(parseConfig("k=1\nnonsense\n[a]\nl=2\n"),
                ElementsAre(Pair("a", ElementsAre(Pair("l", "2")))));
}

TEST(ConfigFileTest, Assignments) {
    expectAll({
        {"no =", "[s]\nk\nl=w", {{"s", {{"l", "w"}}}}},
        {"= first", "[s]\n=v", {{"s", {{"", "v"}}}}},
        {"= alone", "[s]\n=", {{"s", {{"", ""}}}}},
        {"no value", "[s]\nk=", {{"s", {{"k", ""}}}}},
        {"a value of spaces", "[s]\nk= \t", {{"s", {{"k", ""}}}}},
        {"= in the value", "[s]\nk=https://h/?a=b&c=d", {{"s", {{"k", "https://h/?a=b&c=d"}}}}},
        {"= = in front", "[s]\nk==v=", {{"s", {{"k", "=v="}}}}},
        {"spaces around key and value", "[s]\n\tk \t= \tv\t", {{"s", {{"k", "v"}}}}},
        {"spaces inside", "[s]\na key = a value", {{"s", {{"a key", "a value"}}}}},
        {"a key of spaces", "[s]\n \t = v", {{"s", {{"", "v"}}}}},
        {"keys differ by case", "[s]\nk=1\nK=2", {{"s", {{"K", "2"}, {"k", "1"}}}}},
        {"quotes of a key stay", "[s]\n\"k\"=v", {{"s", {{"\"k\"", "v"}}}}},
        {"a repeated key", "[s]\nk=1\nl=2\nk=3", {{"s", {{"k", "3"}, {"l", "2"}}}}},
        {"a repeated key without a value", "[s]\nk=1\nk=", {{"s", {{"k", ""}}}}},
    });
}

TEST(ConfigFileTest, Quotes) {
    struct {
        const char* line;
        const char* value;
    } const examples[] = {
        {R"(k="v")", "v"},
        {R"(k = "v" )", "v"},
        {R"(k="v)", "v"},
        {R"(k=v")", "v"},
        {R"(k="""v")", "v"},
        {R"(k=""v"""")", "v"},
        {R"(k=")", ""},
        {R"(k="")", ""},
        {R"(k=""""")", ""},
        {R"(k=" v ")", " v "},
        {R"(k=" v )", " v"},
        {R"(k=" ")", " "},
        {R"(k=a"b)", "a\"b"},
        {R"(k="a"b")", "a\"b"},
        {R"(k="a" "b")", "a\" \"b"},
        {R"(k=\"v\")", "\\\"v\\"},
        {R"(k=a\nb)", "a\\nb"},
        {R"(k='v')", "'v'"},
        {R"(k="v" # c)", "v\" # c"},
        {"k=\u201Cv\u201D", "\u201Cv\u201D"},
    };
    for (const auto& [line, value] : examples) {
        SCOPED_TRACE(line);
        EXPECT_EQ(valueFrom(line), value);
    }
}

TEST(ConfigFileTest, WhitespaceBeyondAsciiIsTrimmedFromKeysAndValues) {
    for (const char* space :
         {"\t", " ", "\u00A0", "\u1680", "\u2000", "\u200A", "\u202F", "\u205F", "\u3000"}) {
        SCOPED_TRACE(testing::PrintToString(space));
        const std::string b = space;
        expectAll({{"in a line",
                    b + "[s]" + b + "\n" + b + "k" + b + "=" + b + "v" + b,
                    {{"s", {{"k", "v"}}}}},
                   {"in front of a comment", "[s]\n" + b + "#k=v", {{"s", {}}}}});
    }
}

TEST(ConfigFileTest, OtherWhitespaceStays) {
    for (const char* space : {"\r", "\v", "\f", "\u0085", "\u2028", "\u2029", "\u200B", "\uFEFF"}) {
        SCOPED_TRACE(testing::PrintToString(space));
        const std::string s = space;
        expectAll({{"around a value", "[s]\nk=" + s + "v" + s, {{"s", {{"k", s + "v" + s}}}}},
                   {"around a key", "[s]\n" + s + "k" + s + "=v", {{"s", {{s + "k" + s, "v"}}}}},
                   {"around a name", "[" + s + "n" + s + "]", {{s + "n" + s, {}}}},
                   {"in front of a header", s + "[n]", {}},
                   {"in front of a comment", "[s]\n" + s + "#k=v", {{"s", {{s + "#k", "v"}}}}}});
    }
}

TEST(ConfigFileTest, ANulIsAnOrdinaryCharacter) {
    expectAll({{"in a value", "[s]\nk=a\0b\n"s, {{"s", {{"k", "a\0b"s}}}}},
               {"in a key", "[s]\na\0b=v\n"s, {{"s", {{"a\0b"s, "v"}}}}},
               {"in a name", "[a\0b]\n"s, {{"a\0b"s, {}}}},
               {"at the ends of a value", "[s]\nk=\0v\0"s, {{"s", {{"k", "\0v\0"s}}}}}});
}

TEST(ConfigFileTest, ThereIsNoLimitOnTheNumberOfLines) {
    constexpr int count = 100000;
    std::string text = "[s]\n";
    for (int i = 0; i < count; ++i) {
        text += "k" + std::to_string(i) + "=v\n";
    }
    EXPECT_THAT(parseConfig(text + "last=1").at("s"), SizeIs(count + 1));
}

OrvaneConfig::Profile complete() {
    return {"p", "https://h", "key", std::nullopt, std::nullopt};
}

TEST(ConfigProfileTest, UrlAndKeyMakeAProfile) {
    EXPECT_EQ(profileOf("p", {{"api_url", "https://h"}, {"api_key", "key"}}), complete());
}

TEST(ConfigProfileTest, SlugAndTenantAreTakenAlong) {
    auto expected = complete();
    expected.agentSlug = "slug";
    expected.tenant = "acme";
    EXPECT_EQ(profileOf("p", {{"api_url", "https://h"},
                              {"api_key", "key"},
                              {"agent_slug", "slug"},
                              {"tenant", "acme"}}),
              expected);
}

TEST(ConfigProfileTest, AnEmptySlugOrTenantIsPresent) {
    auto expected = complete();
    expected.agentSlug = "";
    EXPECT_EQ(profileOf("p", {{"api_url", "https://h"}, {"api_key", "key"}, {"agent_slug", ""}}),
              expected);
    expected.agentSlug = std::nullopt;
    expected.tenant = "";
    EXPECT_EQ(profileOf("p", {{"api_url", "https://h"}, {"api_key", "key"}, {"tenant", ""}}),
              expected);
}

TEST(ConfigProfileTest, WithoutUrlOrKeyThereIsNoProfile) {
    const std::vector<ConfigSection> sections{
        {},
        {{"api_url", "https://h"}},
        {{"api_key", "key"}},
        {{"api_url", ""}, {"api_key", "key"}},
        {{"api_url", "https://h"}, {"api_key", ""}},
        {{"API_URL", "https://h"}, {"api_key", "key"}},
        {{"api_url", "https://h"}, {"API_KEY", "key"}},
    };
    for (const ConfigSection& section : sections) {
        SCOPED_TRACE(testing::PrintToString(section));
        EXPECT_EQ(profileOf("p", section), std::nullopt);
    }
}

TEST(ConfigProfileTest, OtherKeysDoNotMatter) {
    EXPECT_EQ(profileOf("p", {{"api_url", "https://h"}, {"api_key", "key"}, {"region", "eu"}}),
              complete());
}

}  // namespace
}  // namespace orvane::test
