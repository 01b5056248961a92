#include "platform/text/string_list.h"

#include <gtest/gtest.h>

namespace orvane::test {

namespace {

TEST(StringListTest, StringsComeBackInOrder) {
    StringList list;
    EXPECT_EQ(list.size(), 0U);
    list.add("one");
    list.add("");
    list.add(std::string_view("t\0o", 3));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0], "one");
    EXPECT_EQ(list[1], "");
    EXPECT_EQ(list[2], std::string_view("t\0o", 3));
}

TEST(StringListTest, EqualOnlyStringByString) {
    EXPECT_EQ((StringList{"ab", "c"}), (StringList{"ab", "c"}));
    EXPECT_NE((StringList{"ab", "c"}), (StringList{"a", "bc"}));
    EXPECT_NE((StringList{"ab", "c"}), (StringList{"c", "ab"}));
    EXPECT_NE((StringList{"ab"}), (StringList{"ab", ""}));
    EXPECT_EQ(StringList(), (StringList{}));
}

}  // namespace

}  // namespace orvane::test
