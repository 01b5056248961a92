#include "platform/text/text_list.h"

#include <gtest/gtest.h>

namespace orvane::test {

namespace {

TEST(TextListTest, TextsComeBackInOrder) {
    TextList list;
    EXPECT_EQ(list.size(), 0U);
    list.add("one");
    list.add("");
    list.add(std::string_view("t\0o", 3));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0], "one");
    EXPECT_EQ(list[1], "");
    EXPECT_EQ(list[2], std::string_view("t\0o", 3));
}

TEST(TextListTest, EqualOnlyTextByText) {
    EXPECT_EQ((TextList{"ab", "c"}), (TextList{"ab", "c"}));
    EXPECT_NE((TextList{"ab", "c"}), (TextList{"a", "bc"}));
    EXPECT_NE((TextList{"ab", "c"}), (TextList{"c", "ab"}));
    EXPECT_NE((TextList{"ab"}), (TextList{"ab", ""}));
    EXPECT_EQ(TextList(), (TextList{}));
}

}  // namespace

}  // namespace orvane::test
