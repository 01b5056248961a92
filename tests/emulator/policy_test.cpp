#include "emulator/policy.h"

#include "sample_account.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane::emulator {
namespace {

TEST(Policy, OneWithATagIsKeptByteForByte) {
    const auto policy = readPolicy(firstText);
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->text, firstText);
    EXPECT_EQ(policy->etag, "a/1");
    EXPECT_EQ(policy->guardConfig, R"({"capture":{}})");
}

TEST(Policy, OneWithoutATagIsGivenOneAsItsFirstMember) {
    const auto policy = readPolicy(R"({"config":{}})");
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->etag.size(), 16U);
    EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + R"(","config":{}})");
}

TEST(Policy, AnEmptyObjectIsGivenATagAlone) {
    const auto policy = readPolicy("{}");
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + "\"}");
    EXPECT_EQ(policy->guardConfig, "{}");
}

TEST(Policy, ATagThatIsNoTextOrEmptyIsReplaced) {
    for (const std::string unusable : {"7", "null", "\"\"", "{}"}) {
        const auto policy = readPolicy(R"({"a":1,"etag":)" + unusable + "}");
        ASSERT_TRUE(policy) << unusable;
        EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + R"(","a":1})");
    }
}

TEST(Policy, TheGivenTagFollowsTheContent) {
    EXPECT_EQ(readPolicy(R"({"a":1})")->etag, readPolicy(R"({"a":1})")->etag);
    EXPECT_NE(readPolicy(R"({"a":1})")->etag, readPolicy(R"({"a":2})")->etag);
}

TEST(Policy, WhatIsNotAJsonObjectIsRefused) {
    for (const std::string text : {"", "[]", "7", "null", "{", "{} x", "{\"a\":\"\xff\"}"}) {
        EXPECT_FALSE(readPolicy(text)) << text;
    }
}

TEST(Policy, AbsurdNestingIsRefused) {
    const std::string deep = R"({"guard_config":)" + std::string(200'000, '[');
    EXPECT_FALSE(readPolicy(deep + std::string(200'000, ']') + "}"));
    EXPECT_TRUE(readPolicy(R"({"a":)" + std::string(600, '[') + std::string(600, ']') + "}"));
}

// ---- What to do about a request ----------------------------------------------------------------

}  // namespace
}  // namespace orvane::emulator
