#include "daemon/arguments.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::optional<std::string> answerFor(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "/usr/libexec/OrvanePolicyDaemon");
    return answerTo(arguments);
}

TEST(ArgumentsTest, TheVersionIsOneLine) {
    EXPECT_EQ(answerFor({"--version"}), "OrvanePolicyDaemon " ORVANE_VERSION "\n");
}

TEST(ArgumentsTest, TheHelpFitsOnAScreen) {
    const std::string help = answerFor({"--help"}).value();
    EXPECT_THAT(help, StartsWith("Usage: OrvanePolicyDaemon [--version | --help]\n"));
    EXPECT_THAT(help, HasSubstr("~/.orvane/config"));
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24);
    for (std::size_t start = 0; start < help.size(); start = help.find('\n', start) + 1) {
        EXPECT_LE(help.find('\n', start) - start, 80U);
    }
}

TEST(ArgumentsTest, EverythingElseIsIgnored) {
    const std::vector<std::vector<const char*>> table{{},
                                                      {""},
                                                      {"version"},
                                                      {"-h"},
                                                      {"-V"},
                                                      {"--Version"},
                                                      {"--version "},
                                                      {"--version=1"},
                                                      {"--version", "--help"},
                                                      {"--help", ""},
                                                      {"x", "--help"}};
    for (const auto& arguments : table) {
        EXPECT_EQ(answerFor(arguments), std::nullopt) << ::testing::PrintToString(arguments);
    }
    EXPECT_EQ(answerTo({}), std::nullopt);
}

}  // namespace
}  // namespace orvane::test
