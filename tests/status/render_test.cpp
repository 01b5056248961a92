#include "status/render.h"

#include "status/healthy_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace orvane::status {
namespace {

using ::testing::StartsWith;

class StyleTest : public ::testing::Test {
  protected:
    StyleTest() {
        for (const char* name : {"NO_COLOR", "LC_ALL", "LC_CTYPE", "LANG"}) {
            (void)unsetenv(name);
        }
        (void)setenv("TERM", "xterm", 1);
    }
};

TEST_F(StyleTest, OffATerminalThereIsNothingForTheEye) {
    const Style style = styleFor({}, 0);
    EXPECT_FALSE(style.isColored || style.hasPicture);
    EXPECT_EQ(style.width, 0U);
}

TEST_F(StyleTest, OnATerminalThereAreColors) {
    const Style style = styleFor({}, 70);
    EXPECT_TRUE(style.isColored);
    EXPECT_EQ(style.width, 70U);
    (void)setenv("TERM", "dumb", 1);
    EXPECT_FALSE(styleFor({}, 70).isColored);
    (void)setenv("TERM", "xterm", 1);
    (void)setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(styleFor({}, 70).isColored);
}

TEST_F(StyleTest, ThePictureTakesUnicode) {
    EXPECT_FALSE(styleFor({}, 70).hasPicture);
    (void)setenv("LANG", "C.UTF-8", 1);
    EXPECT_TRUE(styleFor({}, 70).hasPicture);
    (void)setenv("LC_CTYPE", "POSIX", 1);
    EXPECT_FALSE(styleFor({}, 70).hasPicture);
    (void)setenv("LC_ALL", "de_DE.utf8", 1);
    EXPECT_TRUE(styleFor({}, 70).hasPicture);
}

TEST_F(StyleTest, PlainMeansNothingForTheEye) {
    (void)setenv("LANG", "C.UTF-8", 1);
    Arguments arguments;
    arguments.isPlain = true;
    const Style style = styleFor(arguments, 70);
    EXPECT_TRUE(style.isPlain);
    EXPECT_FALSE(style.isColored || style.hasPicture);
}

class RenderTest : public ::testing::Test {
  protected:
    /// What one account contributes.
    [[nodiscard]] std::string part() const { return render(facts, judge(facts), arguments, {}); }

    Facts facts = test::healthyFacts();
    Arguments arguments;
};

TEST_F(RenderTest, EachFormatHasItsOwn) {
    EXPECT_THAT(part(), StartsWith("orvane-policy-daemon   running"));
    arguments.isForAll = true;
    EXPECT_THAT(part(), StartsWith("alice      "));
    arguments.format = Format::json;
    EXPECT_THAT(part(), StartsWith("{\"account\":\"alice\""));
    EXPECT_EQ(output(part(), arguments), part());
    arguments.format = Format::prometheus;
    EXPECT_THAT(part(), StartsWith("orvane_policy_status{account=\"alice\"} 0\n"));
    EXPECT_THAT(output(part(), arguments), StartsWith("# HELP orvane_policy_status "));
}

TEST_F(RenderTest, AListOfAccountsEndsWithTheVerdict) {
    arguments.isForAll = true;
    const Verdict bad{Level::degraded, "p", "it is so", "do this"};
    EXPECT_EQ(outputForAll({{"a", {}, "a's line\n"}, {"b", bad, "b's line\n"}}, arguments, {}),
              "a's line\nb's line\ndegraded: b: it is so; do this\n");
    arguments.format = Format::json;
    EXPECT_EQ(outputForAll({{"a", {}, "{}\n"}, {"b", bad, "{}\n"}}, arguments, {}), "{}\n{}\n");
}

TEST_F(RenderTest, AnAccountThatDoesNotAnswerIsInTheOutput) {
    arguments.isForAll = true;
    const std::vector<AccountReport> reports{unpacked("bob", "")};
    EXPECT_THAT(outputForAll(reports, arguments, {}),
                StartsWith("bob                    unknown      it could not be looked at"));
    arguments.format = Format::prometheus;
    EXPECT_THAT(outputForAll(reports, arguments, {}),
                ::testing::HasSubstr("\norvane_policy_status{account=\"bob\"} 3\n"));
}

}  // namespace
}  // namespace orvane::status
