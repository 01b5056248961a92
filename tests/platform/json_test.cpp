#include "platform/json/json_reader.h"
#include "platform/json/json_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using ::testing::Optional;
using namespace std::string_literals;

bool isReadable(const std::string& text) {
    return json::readObject(text, {"a"}).has_value();
}

/// The string at "a"; also absent if `text` cannot be read.
std::optional<std::string> stringAtA(const std::string& text) {
    const auto members = json::readObject(text, {"a"});
    return members ? members->string("a") : std::nullopt;
}

/// The list of strings at `path` as one that the matchers know.
std::optional<std::vector<std::string>> stringsAt(json::PickedMembers members,
                                                  std::string_view path) {
    const auto list = members.takeStrings(path);
    if (!list) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < list->size(); ++i) {
        texts.emplace_back((*list)[i]);
    }
    return texts;
}

std::string repeated(const std::string& part, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += part;
    }
    return text;
}

// --- What is read at all

TEST(JsonReadingTest, ObjectsAreRead) {
    const char* const table[] = {
        "{}",           " \t\r\n{ \t\r\n} \t\r\n",
        R"({"a":"x"})", R"({"a":{"b":[1,"x",null,true,{"c":[]}]},"d":-0.5e-3})",
        R"({"":""})",
    };
    for (const char* text : table) {
        EXPECT_TRUE(isReadable(text)) << text;
    }
}

TEST(JsonReadingTest, TheTopLevelIsAnObject) {
    const char* const table[] = {"[]",     R"([{"a":"x"}])", "1",     "1.5",
                                 R"("a")", "true",           "false", "null"};
    for (const char* text : table) {
        EXPECT_FALSE(isReadable(text)) << text;
    }
}

TEST(JsonReadingTest, NothingIsNoObject) {
    for (const char* text : {"", " ", "\n", "\xEF\xBB\xBF"}) {
        EXPECT_FALSE(isReadable(text)) << text;
    }
    EXPECT_FALSE(json::readObject(std::string_view(), {}).has_value());
}

TEST(JsonReadingTest, OneByteOrderMarkIsTolerated) {
    const std::string mark = "\xEF\xBB\xBF";
    EXPECT_THAT(stringAtA(mark + R"({"a":"x"})"), Optional("x"s));
    EXPECT_FALSE(isReadable(mark + mark + "{}"));
    EXPECT_FALSE(isReadable("{}" + mark));
    EXPECT_FALSE(isReadable(" " + mark + "{}"));
}

TEST(JsonReadingTest, OtherEncodingsAreRefused) {
    EXPECT_FALSE(isReadable("{\0}\0"s));
    EXPECT_FALSE(isReadable("\xFF\xFE{\0}\0"s));
    EXPECT_FALSE(isReadable("\0{\0}"s));
}

TEST(JsonReadingTest, WhatIsNotStrictlyJsonIsRefused) {
    const std::string table[] = {
        // Commas and their like
        R"({"a":1,})",
        R"({"a":[1,]})",
        R"({"a":[,]})",
        R"({"a":[1,,2]})",
        R"({,"a":1})",
        R"({"a" 1})",
        R"({"a"})",
        R"({"a":})",
        R"({"a":1)",
        R"({"a":[1})",
        "{",
        "}",
        // Comments and other dialects
        R"({"a":1/* x */})",
        "{\"a\":1}// x",
        R"({a:1})",
        R"({'a':1})",
        R"({1:1})",
        R"({"a":True})",
        R"({"a":nul})",
        R"({"a":undefined})",
        // Anything after the object
        "{} {}",
        "{}x",
        "{}]",
        "{},",
        "{}\0"s,
        // Raw control characters in a string
        "{\"a\":\"\x01\"}",
        "{\"a\":\"\x1F\"}",
        "{\"a\":\"\n\"}",
        "{\"a\":\"\t\"}",
        "{\"a\":\"\0\"}"s,
        "{\"a\n\":1}",
        // Other whitespace
        "\f{}",
        "\v{}",
        "{\xC2\xA0}",
        // Escapes
        R"({"a":"\x41"})",
        R"({"a":"\u12"})",
        R"({"a":"\u12G4"})",
        R"({"a":"\'"})",
        R"({"a":"\"})",
        R"({"a":"x)",
    };
    for (const std::string& text : table) {
        EXPECT_FALSE(isReadable(text)) << ::testing::PrintToString(text);
    }
}

TEST(JsonReadingTest, ANulAfterTheObjectDoesNotHideWhatFollows) {
    EXPECT_FALSE(isReadable("{}\0{}"s));
    EXPECT_FALSE(isReadable("\0"s));
}

TEST(JsonReadingTest, EscapesAreDecoded) {
    const struct {
        const char* text;
        std::string value;
    } table[] = {
        {R"({"a":"\"\\\/\b\f\n\r\t"})", "\"\\/\b\f\n\r\t"},
        {R"({"a":"\u0041\u00e9\u20AC"})", "A\u00E9\u20AC"},
        {R"({"a":"\ud83d\ude00"})", "\U0001F600"},
        {R"({"a":"x\u0000y"})", "x\0y"s},
        {R"({"a":"\u007f\uFFFF"})", "\x7F\uFFFF"},
    };
    for (const auto& row : table) {
        EXPECT_THAT(stringAtA(row.text), Optional(row.value)) << row.text;
    }
}

TEST(JsonReadingTest, LongStringsWithEscapesAreComplete) {
    const std::string part = repeated("0123456789", 500);
    const std::string escaped = part + "\\n" + part + "\\u00e9" + part;
    const std::string value = part + "\n" + part + "\u00E9" + part;
    EXPECT_THAT(stringAtA("{\"" + escaped + "\":\"x\",\"a\":\"" + escaped + "\",\"b\":\"y\"}"),
                Optional(value));
    const auto members = json::readObject(R"({"a":["x",")" + escaped + R"(","z"]})", {"a"});
    ASSERT_TRUE(members);
    EXPECT_THAT(stringsAt(*members, "a"), Optional(ElementsAre("x", value, "z")));
}

TEST(JsonReadingTest, DeleteAndAllAboveAsciiAreWrittenRaw) {
    EXPECT_THAT(stringAtA("{\"a\":\"\x7F\u0080\u2028\U0001F600\"}"),
                Optional("\x7F\u0080\u2028\U0001F600"s));
}

TEST(JsonReadingTest, LoneAndReversedSurrogatesAreRefused) {
    const char* const table[] = {
        R"({"a":"\ud800"})",       R"({"a":"\udbff"})",       R"({"a":"\udc00"})",
        R"({"a":"\udfff"})",       R"({"a":"\ude00\ud83d"})", R"({"a":"\ud83dx"})",
        R"({"a":"\ud83d\u0041"})", R"({"a":"\ud83d\ud83d"})", R"({"unwanted":"\ud800"})",
    };
    for (const char* text : table) {
        EXPECT_FALSE(isReadable(text)) << text;
    }
}

TEST(JsonReadingTest, MalformedUtf8IsRefusedWherever) {
    const char* const table[] = {"\xFF",     "\x80", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                 "\xE2\x82", "\xE9"};
    for (const std::string bytes : table) {
        EXPECT_FALSE(isReadable("{\"a\":\"" + bytes + "\"}")) << ::testing::PrintToString(bytes);
        EXPECT_FALSE(isReadable("{\"" + bytes + "\":1}")) << ::testing::PrintToString(bytes);
        EXPECT_FALSE(isReadable("{\"b\":[\"" + bytes + "\"]}")) << ::testing::PrintToString(bytes);
    }
}

// --- Numbers

TEST(JsonReadingTest, NumbersOfEveryLengthAreTaken) {
    const char* const table[] = {
        "0",
        "-0",
        "-1",
        "1E3",
        "1e+3",
        "1e-3",
        "0.5",
        "-0.0",
        "1.25e2",
        "12345678901234567890",
        "123456789012345678901234567890",
        "-123456789012345678901234567890",
        "9223372036854775808",
        "1e308",
        "0.000000000000000000000000001",
        "1e-999",
        "123e-10000000",
        "0e999",
        "-0.0e+999",
        "1.7976931348623157e308",
    };
    for (const std::string number : table) {
        EXPECT_TRUE(isReadable("{\"a\":" + number + "}")) << number;
    }
}

TEST(JsonReadingTest, MalformedNumbersAreRefused) {
    const char* const table[] = {"01",       "-01",       "+1",    ".5",  "1.",  "1.e3",
                                 "1e",       "1e+",       "-",     "0x1", "NaN", "-NaN",
                                 "Infinity", "-Infinity", "1_000", "- 1"};
    for (const std::string number : table) {
        EXPECT_FALSE(isReadable("{\"a\":" + number + "}")) << number;
    }
}

TEST(JsonReadingTest, ANumberBeyondADoubleMakesTheDocumentInvalid) {
    for (const std::string& number :
         {"1e999"s, "-1e999"s, "1e309"s, "1.8e308"s, "123123e100000"s, "1e99999999999999999999"s,
          std::string(400, '9'), std::string(400, '9') + ".5"}) {
        EXPECT_FALSE(isReadable(R"({"a":"x","b":)" + number + "}")) << number;
    }
}

/// Of the parser's versions, some refuse what is beyond 32 bits, and others read zero.
TEST(JsonReadingTest, AnExponentOfMoreThanNineDigitsMakesTheDocumentInvalid) {
    for (const std::string number : {"1e-1000000000", "1E-2147483648", "1e-99999999999999999999",
                                     "0e1000000000", "0.0e-1000000000", "1e-0000000001000000000"}) {
        EXPECT_FALSE(isReadable(R"({"a":"x","b":)" + number + "}")) << number;
    }
    for (const std::string numbers :
         {"1e-999999999", "0e999999999", "1e-000000000000000000005", "1e+000000000000000000005",
          "1e5,1e-23456,1e-67890,12345678901234567890e1", "1e-99999,1234567890,1e-99999"}) {
        EXPECT_TRUE(isReadable(R"({"a":"x","b":[)" + numbers + "]}")) << numbers;
    }
}

// --- Depth

TEST(JsonReadingTest, FiveHundredAndTwelveLevelsAreReadOneMoreIsNot) {
    EXPECT_EQ(json::depthLimit, 512U);
    const struct {
        const char* what;
        std::string open;
        std::string close;
    } table[] = {{"objects", "{\"x\":", "}"}, {"arrays", "[", "]"}, {"both", "[{\"x\":", "}]"}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        const std::size_t levels = row.close.size();
        // The outermost object and the innermost array are two levels more.
        const std::string deepest = "{\"b\":" + repeated(row.open, 510 / levels) + "[]" +
                                    repeated(row.close, 510 / levels) + ",\"a\":\"x\"}";
        const std::string tooDeep = "{\"b\":" + repeated(row.open, 510 / levels) + "[[]]" +
                                    repeated(row.close, 510 / levels) + ",\"a\":\"x\"}";
        EXPECT_THAT(stringAtA(deepest), Optional("x"s));
        EXPECT_FALSE(isReadable(tooDeep));
    }
}

TEST(JsonReadingTest, DepthCountsOpenLevelsOnly) {
    EXPECT_TRUE(isReadable("{\"b\":[" + repeated("[],{},", 2000) + "0]}"));
}

TEST(JsonReadingTest, ATooDeepObjectIsRefusedToo) {
    const auto nested = [](std::size_t levels) {
        return repeated("{\"x\":", levels - 1) + "{}" + repeated("}", levels - 1);
    };
    EXPECT_TRUE(isReadable(nested(512)));
    EXPECT_FALSE(isReadable(nested(513)));
}

TEST(JsonReadingTest, AHugeNestingIsRefusedWithoutHarm) {
    EXPECT_FALSE(isReadable("{\"a\":" + std::string(std::size_t{4} * 1024 * 1024, '[')));
}

// --- Picking

TEST(JsonMembersTest, EachMemberHasItsType) {
    const auto members = json::readObject(
        R"({"text":"x","empty":"","yes":true,"no":false,"null":null,"one":1,"zero":0,"half":0.5,
            "big":12345678901234567890,"object":{},"array":[],"texts":["p","q"]})",
        {"text", "empty", "yes", "no", "null", "one", "zero", "half", "big", "object", "array",
         "texts", "missing"});
    ASSERT_TRUE(members);
    const struct {
        const char* path;
        std::optional<std::string> text;
        std::optional<std::string> nonEmptyText;
        std::optional<bool> boolean;
        std::optional<std::vector<std::string>> texts;
        bool isObject;
    } table[] = {
        {"text", "x", "x", {}, {}, false},
        {"empty", "", {}, {}, {}, false},
        {"yes", {}, {}, true, {}, false},
        {"no", {}, {}, false, {}, false},
        {"null", {}, {}, {}, {}, false},
        {"one", {}, {}, {}, {}, false},
        {"zero", {}, {}, {}, {}, false},
        {"half", {}, {}, {}, {}, false},
        {"big", {}, {}, {}, {}, false},
        {"object", {}, {}, {}, {}, true},
        {"array", {}, {}, {}, std::vector<std::string>{}, false},
        {"texts", {}, {}, {}, std::vector<std::string>{"p", "q"}, false},
        {"missing", {}, {}, {}, {}, false},
        {"never requested", {}, {}, {}, {}, false},
        {"", {}, {}, {}, {}, true},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(members->string(row.path), row.text);
        EXPECT_EQ(members->nonEmptyString(row.path), row.nonEmptyText);
        EXPECT_EQ(members->boolean(row.path), row.boolean);
        EXPECT_EQ(stringsAt(*members, row.path), row.texts);
        EXPECT_EQ(members->isObject(row.path), row.isObject);
    }
}

TEST(JsonMembersTest, AnIntegerIsANumberThatIsWrittenAsOneAndFits) {
    const auto members = json::readObject(
        R"({"one":1,"least":-9223372036854775808,"most":9223372036854775807,
            "beyond":9223372036854775808,"half":0.5,"whole":1.0,"exponent":1e3,"text":"1",
            "true":true,"null":null,"twice":1,"twice":2,"array":[1]})",
        {"one", "least", "most", "beyond", "half", "whole", "exponent", "text", "true", "null",
         "twice", "array"});
    ASSERT_TRUE(members);
    EXPECT_EQ(members->integer("one"), 1);
    EXPECT_EQ(members->integer("least"), INT64_MIN);
    EXPECT_EQ(members->integer("most"), INT64_MAX);
    EXPECT_EQ(members->integer("twice"), 1);
    for (const char* path :
         {"beyond", "half", "whole", "exponent", "text", "true", "null", "array", "missing", ""}) {
        EXPECT_EQ(members->integer(path), std::nullopt) << path;
    }
}

TEST(JsonMembersTest, AnArrayOfStringsContainsNothingElse) {
    const char* const table[] = {
        R"(["x",1])",   R"([1,"x"])",         R"(["x",null])",  R"(["x",true])",
        R"(["x",0.5])", R"(["x",["y"]])",     R"([["y"],"x"])", R"([[]])",
        R"(["x",{}])",  R"([{"a":"x"},"y"])", R"(["x",-1])",
    };
    for (const std::string array : table) {
        const auto members = json::readObject("{\"a\":" + array + "}", {"a"});
        ASSERT_TRUE(members) << array;
        EXPECT_EQ(stringsAt(*members, "a"), std::nullopt) << array;
    }
}

TEST(JsonMembersTest, AnArrayOfStringsKeepsItsOrder) {
    const auto members = json::readObject(R"({"a":["z","","z","b\u0000"],"b":"x"})", {"a", "b"});
    ASSERT_TRUE(members);
    EXPECT_THAT(stringsAt(*members, "a"), Optional(ElementsAre("z", "", "z", "b\0"s)));
    EXPECT_THAT(members->string("b"), Optional("x"s));
}

TEST(JsonMembersTest, PathsLeadThroughObjects) {
    const auto members = json::readObject(R"({"a":{"b":{"c":"deep","d":true},"e":["x"]},"f":{}})",
                                          {"a/b/c", "a/b/d", "a/e", "f/b", "a/b"});
    ASSERT_TRUE(members);
    EXPECT_THAT(members->string("a/b/c"), Optional("deep"s));
    EXPECT_THAT(members->boolean("a/b/d"), Optional(true));
    EXPECT_THAT(stringsAt(*members, "a/e"), Optional(ElementsAre("x")));
    EXPECT_TRUE(members->isObject("a"));
    EXPECT_TRUE(members->isObject("a/b"));
    EXPECT_TRUE(members->isObject("f"));
    EXPECT_FALSE(members->isObject("f/b"));
    EXPECT_FALSE(members->isObject("a/b/c"));
}

TEST(JsonMembersTest, PathsEndAtWhatIsNotAnObject) {
    for (const std::string value : {"1", "\"b\"", "null", "true", "[]", R"([{"b":"x"}])", "{}"}) {
        const auto members = json::readObject("{\"a\":" + value + "}", {"a/b"});
        ASSERT_TRUE(members) << value;
        EXPECT_EQ(members->string("a/b"), std::nullopt) << value;
        EXPECT_EQ(members->isObject("a"), value == "{}") << value;
    }
}

TEST(JsonMembersTest, AMemberOfTheSameNameAtAnotherLevelIsNotTaken) {
    const auto inner = json::readObject(R"({"x":{"a":"inner"},"y":[{"a":"in array"}]})", {"a"});
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->string("a"), std::nullopt);

    const auto outer =
        json::readObject(R"({"b":"outer","a":{"c":{"b":"deeper"}},"c":{"b":"no"}})", {"a/b"});
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->string("a/b"), std::nullopt);

    const auto both =
        json::readObject(R"({"x":{"a":"inner"},"a":"outer","z":{"a":"later"}})", {"a"});
    ASSERT_TRUE(both);
    EXPECT_THAT(both->string("a"), Optional("outer"s));
}

TEST(JsonMembersTest, WhatFollowsANestedValueBelongsToTheOuterObject) {
    const auto members =
        json::readObject(R"({"a":{"b":"1","x":{"b":"no"},"c":"2","y":["no"],"d":"3"},"b":"4"})",
                         {"a/b", "a/c", "a/d", "b"});
    ASSERT_TRUE(members);
    EXPECT_THAT(members->string("a/b"), Optional("1"s));
    EXPECT_THAT(members->string("a/c"), Optional("2"s));
    EXPECT_THAT(members->string("a/d"), Optional("3"s));
    EXPECT_THAT(members->string("b"), Optional("4"s));
}

TEST(JsonMembersTest, AKeyWithASlashIsNoPath) {
    const auto members = json::readObject(R"({"a/b":"flat","a":{"c":"x"}})", {"a/b", "a/c"});
    ASSERT_TRUE(members);
    EXPECT_EQ(members->string("a/b"), std::nullopt);
    EXPECT_THAT(members->string("a/c"), Optional("x"s));
}

TEST(JsonMembersTest, KeysMatchAsAWholeAndByCase) {
    const auto members = json::readObject(R"({"ab":"1","A":"2","":"3","a ":"4"})", {"a"});
    ASSERT_TRUE(members);
    EXPECT_EQ(members->string("a"), std::nullopt);
}

TEST(JsonMembersTest, AnEscapedKeyIsTheSameKey) {
    EXPECT_THAT(stringAtA(R"({"\u0061":"x"})"), Optional("x"s));
}

TEST(JsonMembersTest, AnEscapedKeyThatIsNotRequestedDoesNotSpoilTheNext) {
    EXPECT_THAT(stringAtA(R"({"other":{"b\u0062":1},"a":"x"})"), Optional("x"s));
}

TEST(JsonMembersTest, TheFirstOfTwoMembersOfOneNameCounts) {
    const struct {
        const char* text;
        std::optional<std::string> value;
    } table[] = {
        {R"({"a":"first","a":"second"})", "first"},
        {R"({"a":"first","a":{"x":"y"}})", "first"},
        {R"({"a":"first","a":["second"]})", "first"},
        {R"({"a":"first","b":"x","a":null})", "first"},
        {R"({"a":null,"a":"second"})", std::nullopt},
        {R"({"a":1,"a":"second"})", std::nullopt},
        {R"({"a":false,"a":"second"})", std::nullopt},
        {R"({"a":{},"a":"second"})", std::nullopt},
        {R"({"a":["x"],"a":"second"})", std::nullopt},
        {R"({"a":"","a":"second"})", ""},
    };
    for (const auto& row : table) {
        EXPECT_EQ(stringAtA(row.text), row.value) << row.text;
    }
}

TEST(JsonMembersTest, TheFirstOfTwoObjectsOfOneNameCountsAsAWhole) {
    const struct {
        const char* text;
        std::optional<std::string> value;
    } table[] = {
        {R"({"a":{"b":"first"},"a":{"b":"second"}})", "first"},
        {R"({"a":{},"a":{"b":"second"}})", std::nullopt},
        {R"({"a":{"b":1},"a":{"b":"second"}})", std::nullopt},
        {R"({"a":null,"a":{"b":"second"}})", std::nullopt},
        {R"({"a":["b"],"a":{"b":"second"}})", std::nullopt},
        {R"({"a":{"b":"first","b":"second"}})", "first"},
    };
    for (const auto& row : table) {
        const auto members = json::readObject(row.text, {"a/b"});
        ASSERT_TRUE(members) << row.text;
        EXPECT_EQ(members->string("a/b"), row.value) << row.text;
    }
}

TEST(JsonMembersTest, ARepeatedArrayAddsNothingToTheFirst) {
    const auto members = json::readObject(R"({"a":["x"],"a":["y"],"b":["z"],"b":[1]})", {"a", "b"});
    ASSERT_TRUE(members);
    EXPECT_THAT(stringsAt(*members, "a"), Optional(ElementsAre("x")));
    EXPECT_THAT(stringsAt(*members, "b"), Optional(ElementsAre("z")));
}

TEST(JsonMembersTest, NothingNeedBeRequested) {
    const auto members = json::readObject(R"({"a":"x"})", {});
    ASSERT_TRUE(members);
    EXPECT_TRUE(members->isObject(""));
    EXPECT_EQ(members->string("a"), std::nullopt);
}

// --- Writing

std::string written(std::string_view value) {
    const json::Field member{"k", value};
    return json::writeObject({&member, 1});
}

TEST(JsonWritingTest, NoMembersMakeAnEmptyObject) {
    EXPECT_EQ(json::writeObject({}), "{}");
}

TEST(JsonWritingTest, CompactWithSortedKeys) {
    const StringList list{"p", "q"};
    const json::Field members[] = {
        {"list", &list},         {"b", true},  {"a_b", std::string_view("x")},
        {"a", std::int64_t{-7}}, {"Z", false}, {"ab", std::string_view("")},
    };
    EXPECT_EQ(json::writeObject(members),
              R"({"Z":false,"a":-7,"a_b":"x","ab":"","b":true,"list":["p","q"]})");
}

TEST(JsonWritingTest, AnEmptyListStaysAList) {
    const StringList list;
    const json::Field member{"k", &list};
    EXPECT_EQ(json::writeObject({&member, 1}), R"({"k":[]})");
}

TEST(JsonWritingTest, TheWholeRangeOfIntegers) {
    const json::Field members[] = {{"a", std::numeric_limits<std::int64_t>::min()},
                                   {"b", std::numeric_limits<std::int64_t>::max()},
                                   {"c", std::int64_t{0}}};
    EXPECT_EQ(json::writeObject(members),
              R"({"a":-9223372036854775808,"b":9223372036854775807,"c":0})");
}

TEST(JsonWritingTest, WhatIsEscaped) {
    const struct {
        std::string value;
        const char* text;
    } table[] = {
        {"\"", R"({"k":"\""})"},       {"\\", R"({"k":"\\"})"},
        {"/", R"({"k":"\/"})"},        {"\\/", R"({"k":"\\\/"})"},
        {"\b", R"({"k":"\b"})"},       {"\f", R"({"k":"\f"})"},
        {"\n", R"({"k":"\n"})"},       {"\r", R"({"k":"\r"})"},
        {"\t", R"({"k":"\t"})"},       {"\0"s, R"({"k":"\u0000"})"},
        {"\x01", R"({"k":"\u0001"})"}, {"\x0B", R"({"k":"\u000b"})"},
        {"\x1F", R"({"k":"\u001f"})"}, {"https://h/p", R"({"k":"https:\/\/h\/p"})"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(written(row.value), row.text);
    }
}

TEST(JsonWritingTest, EverythingElseIsWrittenRaw) {
    for (const std::string raw :
         {" ", "\x7F", "\u0080", "\u00E9", "\u2028\u2029", "\uFFFF", "\U0001F600", "'<>&+="}) {
        EXPECT_EQ(written(raw), "{\"k\":\"" + raw + "\"}");
    }
}

TEST(JsonWritingTest, MalformedUtf8IsRepaired) {
    EXPECT_EQ(written("a\xFFz"), "{\"k\":\"a\uFFFDz\"}");
    EXPECT_EQ(written("caf\xE9"), "{\"k\":\"caf\uFFFD\"}");
    EXPECT_EQ(written("\xE2\x82"), "{\"k\":\"\uFFFD\"}");
    const StringList list{"\x80"};
    const json::Field member{"k", &list};
    EXPECT_EQ(json::writeObject({&member, 1}), "{\"k\":[\"\uFFFD\"]}");
}

TEST(JsonWritingTest, SlashesInListsAndKeysAreEscapedToo) {
    const StringList list{"/"};
    const json::Field member{"a/b", &list};
    EXPECT_EQ(json::writeObject({&member, 1}), R"({"a\/b":["\/"]})");
}

TEST(JsonWritingTest, WhatIsWrittenIsReadBack) {
    std::string every;
    for (int byte = 0; byte < 0x80; ++byte) {
        every += static_cast<char>(byte);
    }
    every += "\u00E9\u2028\uFFFD\U0001F600";
    const StringList list{"", every, "/"};
    const json::Field members[] = {
        {"text", std::string_view(every)}, {"list", &list}, {"no", false}};
    auto read = json::readObject(json::writeObject(members), {"text", "list", "no"});
    ASSERT_TRUE(read);
    EXPECT_THAT(read->string("text"), Optional(every));
    EXPECT_EQ(read->takeStrings("list"), list);
    EXPECT_THAT(read->boolean("no"), Optional(false));
}

}  // namespace

}  // namespace orvane::test
