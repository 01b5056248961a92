#include "platform/json/json_comparison.h"

#include "platform/json/json_reader.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace orvane::test {
namespace {

/// Whether the document, passed in pieces of `size` bytes, is as expected.
bool isSame(std::string_view text, const std::vector<json::ExpectedMember>& expected,
            std::size_t size) {
    json::Comparison comparison(expected);
    for (std::size_t start = 0; start < text.size(); start += size) {
        if (!comparison.add(text.substr(start, size))) {
            EXPECT_FALSE(comparison.add("")) << "it goes on after a difference";
            EXPECT_FALSE(comparison.isSame());
            return false;
        }
    }
    return comparison.isSame();
}

struct Row {
    std::string text;
    bool isSame;
};

void expectAll(const std::vector<json::ExpectedMember>& expected, const std::vector<Row>& table) {
    for (const Row& row : table) {
        for (const std::size_t size : {1U, 2U, 3U, 7U, 1000U}) {
            EXPECT_EQ(isSame(row.text, expected, size), row.isSame)
                << row.text << " in pieces of " << size;
        }
    }
}

TEST(JsonComparisonTest, AListIsComparedStringByString) {
    const StringList list{"p", "", "long text"};
    expectAll({{"a", &list}}, {
                                  {R"({"a":["p","","long text"]})", true},
                                  {R"({"a":["\u0070","","long\u0020text"]})", true},
                                  {R"({"a":["p","","long text"],"a":["x"]})", true},
                                  {R"({"x":{"a":[1]},"a":["p","","long text"],"ab":[]})", true},
                                  {R"({"a":["p","","long text","long text"]})", false},
                                  {R"({"a":["p",""]})", false},
                                  {R"({"a":["p","long text",""]})", false},
                                  {R"({"a":["x","p","","long text"]})", false},
                                  {R"({"a":["p","","long tex"]})", false},
                                  {R"({"a":["p","","long texts"]})", false},
                                  {R"({"a":["p","","long text",1]})", false},
                                  {R"({"a":["p","","long text",1.5]})", false},
                                  {R"({"a":["p","","long text",18446744073709551615]})", false},
                                  {R"({"a":["p","","long text",null]})", false},
                                  {R"({"a":["p",true,"long text"]})", false},
                                  {R"({"a":["p",[],"","long text"]})", false},
                                  {R"({"a":["p",{},"","long text"]})", false},
                                  {R"({"a":[]})", false},
                                  {R"({"a":"p"})", false},
                                  {R"({"a":true})", false},
                                  {R"({"a":null})", false},
                                  {R"({"a":{"a":["p","","long text"]}})", false},
                                  {R"({"a":["x"],"a":["p","","long text"]})", false},
                                  {R"({"A":["p","","long text"]})", false},
                                  {"{}", false},
                              });
}

TEST(JsonComparisonTest, AnEmptyListHasToBeThere) {
    const StringList none;
    expectAll({{"a", &none}}, {{R"({"a":[]})", true}, {"{}", false}, {R"({"a":["x"]})", false}});
}

TEST(JsonComparisonTest, ABooleanHasToBeThereAndABoolean) {
    expectAll({{"a", true}}, {{R"({"a":true})", true},
                              {R"({"b":[{"a":false}],"a":true,"a":false})", true},
                              {R"({"a":false})", false},
                              {R"({"a":false,"a":true})", false},
                              {R"({"a":1})", false},
                              {R"({"a":"true"})", false},
                              {R"({"a":[true]})", false},
                              {R"({"a":{"a":true}})", false},
                              {R"({"b":{"a":true}})", false},
                              {"{}", false}});
    expectAll({{"a", false}}, {{R"({"a":false})", true}, {"{}", false}, {R"({"a":0})", false}});
}

TEST(JsonComparisonTest, ABooleanMayCountAsFalseWhenThereIsNone) {
    constexpr bool defaultsToFalse = true;
    expectAll({{"a", false, defaultsToFalse}}, {{"{}", true},
                                                {R"({"a":false})", true},
                                                {R"({"a":null})", true},
                                                {R"({"a":"true"})", true},
                                                {R"({"a":{"a":true}})", true},
                                                {R"({"a":[true]})", true},
                                                {R"({"a":1,"a":true})", true},
                                                {R"({"a":true})", false}});
    expectAll({{"a", true, defaultsToFalse}},
              {{R"({"a":true})", true}, {"{}", false}, {R"({"a":1})", false}});
}

TEST(JsonComparisonTest, AnInvalidDocumentNeverMatches) {
    const std::string deepest = std::string(json::depthLimit - 1, '[');
    const std::string closing(json::depthLimit - 1, ']');
    expectAll({}, {{"{}", true},
                   {" \t\r\n{ } \n", true},
                   {R"({"x":[1,-2.5e3,"\ud83d\ude00",null,{"y":false}]})", true},
                   {"{\"x\":" + deepest + closing + "}", true},
                   {"", false},
                   {" ", false},
                   {"{", false},
                   {"{}x", false},
                   {"{}{}", false},
                   {"[]", false},
                   {"true", false},
                   {"1", false},
                   {"\"x\"", false},
                   {"null", false},
                   {R"({"x":1,})", false},
                   {R"({"x":1e999})", false},
                   {R"({"x":1e-1000000000})", false},
                   {R"({"x":[1e-99999,1e+0000000000001]})", true},
                   {"{\"x\":\"\xFF\"}", false},
                   {std::string("{\"x\":\0}", 7), false},
                   {"{\"x\":[" + deepest + closing + "]}", false}});
}

TEST(JsonComparisonTest, AByteOrderMarkIsSkipped) {
    EXPECT_TRUE(isSame("\xEF\xBB\xBF{}", {}, 1000));
    EXPECT_FALSE(isSame("\xEF\xBB\xBF\xEF\xBB\xBF{}", {}, 1000));
}

/// More than any file that is held in memory may have, in as much memory as a short one takes.
TEST(JsonComparisonTest, ADocumentMayHaveAnyLength) {
    ORVANE_SKIP_UNDER_SANITIZERS("1.6 GiB take minutes");
    constexpr std::size_t pieces = 1600;
    const std::string piece(std::size_t{1} << 20U, ' ');
    const std::string member = R"("x":")" + piece + R"(",)";
    json::Comparison comparison({{"a", true}});
    ASSERT_TRUE(comparison.add("{" + member));
    rusage before{};
    ASSERT_EQ(::getrusage(RUSAGE_SELF, &before), 0);
    for (std::size_t i = 0; i < pieces; ++i) {
        ASSERT_TRUE(comparison.add(i % 2 == 0 ? piece : member));
    }
    rusage after{};
    ASSERT_EQ(::getrusage(RUSAGE_SELF, &after), 0);
    EXPECT_LT(after.ru_maxrss, before.ru_maxrss + 1024);
    ASSERT_TRUE(comparison.add(R"("a":true})"));
    EXPECT_TRUE(comparison.isSame());
}

TEST(JsonComparisonTest, LongKeysAreNotMistakenForTheirPrefixes) {
    expectAll({{"key", true}}, {{R"({"key":true})", true},
                                {R"({"key2":true})", false},
                                {R"({"keykeykey":false,"key":true})", true},
                                {R"({"ke":false,"key":true})", true}});
}

}  // namespace
}  // namespace orvane::test
