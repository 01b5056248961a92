#include "status/arguments.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace orvane::status {
namespace {

TEST(ArgumentsTest, WithoutAnyItIsAHumanReadableReportAboutOneself) {
    const auto arguments = parseArguments({});
    ASSERT_TRUE(arguments);
    EXPECT_EQ(arguments->format, Format::text);
    EXPECT_FALSE(arguments->isForAll || arguments->isPlain || arguments->wantsHelp ||
                 arguments->wantsVersion);
}

TEST(ArgumentsTest, EachOptionIsUnderstood) {
    EXPECT_TRUE(parseArguments({"--help"})->wantsHelp);
    EXPECT_TRUE(parseArguments({"-h"})->wantsHelp);
    EXPECT_TRUE(parseArguments({"--version"})->wantsVersion);
    const auto arguments = parseArguments({"--plain", "--all"});
    EXPECT_TRUE(arguments->isPlain);
    EXPECT_TRUE(arguments->isForAll);
    EXPECT_EQ(parseArguments({"--json"})->format, Format::json);
    EXPECT_EQ(parseArguments({"--all", "--prometheus"})->format, Format::prometheus);
}

TEST(ArgumentsTest, AnythingElseIsAMistake) {
    EXPECT_FALSE(parseArguments({"--jason"}));
    EXPECT_FALSE(parseArguments({"alice"}));
    EXPECT_FALSE(parseArguments({""}));
    EXPECT_FALSE(parseArguments({"--json", "--prometheus"}));
}

TEST(ArgumentsTest, TheUsageFitsATerminalAndNamesEachOption) {
    std::string_view text = usage();
    for (const char* option :
         {"--all", "--plain", "--json", "--prometheus", "--version", "--help"}) {
        EXPECT_NE(text.find(option), std::string_view::npos) << option;
    }
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        EXPECT_LE(line.size(), 80U) << line;
        text.remove_prefix(line.size() + 1);
    }
}

}  // namespace
}  // namespace orvane::status
