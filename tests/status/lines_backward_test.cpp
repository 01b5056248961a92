#include "status/lines_backward.h"

#include "support/allocation_limit.h"
#include "support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <vector>

namespace orvane::status {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t plenty = std::uint64_t{1024} * 1024;

class LinesBackwardTest : public ::testing::Test {
  protected:
    [[nodiscard]] std::filesystem::path file() const { return directory.path() / "log"; }

    std::vector<std::string> linesOf(const std::string& content) {
        test::writeFile(file(), content);
        return linesOf();
    }
    std::vector<std::string> linesOf() {
        std::vector<std::string> found;
        EXPECT_TRUE(lines.read(file(), [&](std::string_view line) {
            found.emplace_back(line);
            return found.size() < most;
        }));
        return found;
    }

    test::TempDirectory directory;
    LinesBackward lines{plenty};
    std::size_t most = SIZE_MAX;
};

TEST_F(LinesBackwardTest, TheLastLineIsTheFirst) {
    EXPECT_THAT(linesOf("one\ntwo\nthree\n"), ElementsAre("three", "two", "one"));
}

TEST_F(LinesBackwardTest, EmptyLinesAreLeftOut) {
    EXPECT_THAT(linesOf(""), IsEmpty());
    EXPECT_THAT(linesOf("\n\n"), IsEmpty());
    EXPECT_THAT(linesOf("\none\n\n\ntwo\n\n"), ElementsAre("two", "one"));
}

TEST_F(LinesBackwardTest, TextAfterTheLastLineFeedIsALine) {
    EXPECT_THAT(linesOf("one\ntw"), ElementsAre("tw", "one"));
}

TEST_F(LinesBackwardTest, ReadingEndsWhenNoMoreIsWanted) {
    most = 2;
    EXPECT_THAT(linesOf("one\ntwo\nthree\n"), ElementsAre("three", "two"));
    most = 1;
    EXPECT_THAT(linesOf("one"), ElementsAre("one"));
    EXPECT_FALSE(lines.isExhausted());
}

TEST_F(LinesBackwardTest, LinesAreWholeWhereverAPieceEnds) {
    for (const std::size_t length : {65534U, 65535U, 65536U, 65537U, 131072U}) {
        const std::string filling(length - 8, 'x');  // before and after it: 4 bytes each
        const auto found =
            linesOf("abc\n" + filling.substr(0, 60000) + "\n" + filling.substr(60000) + "\ndef\n");
        ASSERT_EQ(found.front(), "def");
        ASSERT_EQ(found.back(), "abc");
    }
}

TEST_F(LinesBackwardTest, ALineThatIsTooLongIsLeftOutAndTheOthersAreNot) {
    const std::string longest(65536, 'x');
    EXPECT_THAT(linesOf("one\n" + longest + "\ntwo\n"), ElementsAre("two", longest, "one"));
    EXPECT_THAT(linesOf("one\n" + longest + "x\ntwo\n"), ElementsAre("two", "one"));
    EXPECT_THAT(linesOf("one\n" + longest + longest + longest), ElementsAre("one"));
}

TEST_F(LinesBackwardTest, WhatIsBeyondTheLimitIsLeftUnread) {
    lines = LinesBackward(8);
    EXPECT_THAT(linesOf("one\ntwo\nthree\n"), ElementsAre("three"));
    EXPECT_TRUE(lines.isExhausted());
    EXPECT_THAT(linesOf("one\n"), IsEmpty());
}

TEST_F(LinesBackwardTest, TheLimitIsForAllFiles) {
    lines = LinesBackward(13);
    EXPECT_THAT(linesOf("one\ntwo\n"), ElementsAre("two", "one"));
    EXPECT_FALSE(lines.isExhausted());
    EXPECT_THAT(linesOf("one\ntwo\n"), ElementsAre("two"));
    EXPECT_TRUE(lines.isExhausted());
}

TEST_F(LinesBackwardTest, AFileOfTenGigabytesTakesLittleMemory) {
    test::writeFile(file(), "first\n");
    std::filesystem::resize_file(file(), 10'000'000'000);
    std::ofstream(file(), std::ios::app) << "\nnext to last\nlast\n";
    const test::AllocationLimit limit(200'000);
    EXPECT_THAT(linesOf(), ElementsAre("last", "next to last"));
    EXPECT_TRUE(lines.isExhausted());
}

TEST_F(LinesBackwardTest, WhatIsNoRegularFileCannotBeRead) {
    const auto none = [](std::string_view /*line*/) { return true; };
    EXPECT_FALSE(lines.read(file(), none));
    EXPECT_FALSE(lines.read(directory.path(), none));
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_FALSE(lines.read(file(), none));
}

}  // namespace
}  // namespace orvane::status
