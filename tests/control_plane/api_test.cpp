#include "control_plane/api.h"

#include <gtest/gtest.h>

namespace orvane::test {
namespace {

TEST(ApiUrlTest, SlashesAtBothEndsOfTheBaseAreDropped) {
    const struct {
        const char* base;
        const char* text;
    } table[] = {
        {"https://h", "https://h/p/"},
        {"https://h/", "https://h/p/"},
        {"https://h///", "https://h/p/"},
        {"///https://h", "https://h/p/"},
        {"/https://h/", "https://h/p/"},
        {"https://h/a//b/", "https://h/a//b/p/"},
        {"", "/p/"},
        {"/", "/p/"},
        {"///", "/p/"},
        {"https://", "https:/p/"},
        {" https://h ", " https://h /p/"},
        {"https://h/?", "https://h/?/p/"},
        {"https://h\\", "https://h\\/p/"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(api::urlOf(row.base, "/p/"), row.text) << row.base;
    }
}

}  // namespace
}  // namespace orvane::test
