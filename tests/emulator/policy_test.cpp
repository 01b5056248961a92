#include "emulator/policy.h"

#include "emulator/bad_input.h"
#include "sample_account.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane::emulator {
namespace {

TEST(Policy, OneWithATagIsKeptByteForByte) {
    const auto policy = readPolicy(firstText);
    EXPECT_EQ(policy.text, firstText);
    EXPECT_EQ(policy.etag, "a/1");
    EXPECT_EQ(policy.guardConfig, R"({"capture":{}})");
}

TEST(Policy, OneWithoutATagIsGivenOneAsItsFirstMember) {
    const auto policy = readPolicy(R"({"config":{}})");
    EXPECT_EQ(policy.etag.size(), 16U);
    EXPECT_EQ(policy.text, R"({"etag":")" + policy.etag + R"(","config":{}})");
}

TEST(Policy, AnEmptyObjectIsGivenATagAlone) {
    const auto policy = readPolicy("{}");
    EXPECT_EQ(policy.text, R"({"etag":")" + policy.etag + "\"}");
    EXPECT_EQ(policy.guardConfig, "{}");
}

TEST(Policy, ATagThatIsNoStringOrEmptyIsReplaced) {
    for (const std::string unusable : {"7", "null", "\"\"", "{}"}) {
        const auto policy = readPolicy(R"({"a":1,"etag":)" + unusable + "}");
        EXPECT_EQ(policy.text, R"({"etag":")" + policy.etag + R"(","a":1})");
    }
}

TEST(Policy, TheGivenTagFollowsTheContent) {
    EXPECT_EQ(readPolicy(R"({"a":1})").etag, readPolicy(R"({"a":1})").etag);
    EXPECT_NE(readPolicy(R"({"a":1})").etag, readPolicy(R"({"a":2})").etag);
}

TEST(Policy, WhatIsNotAJsonObjectIsRefused) {
    for (const std::string text : {"", "[]", "7", "null", "{", "{} x", "{\"a\":\"\xff\"}"}) {
        EXPECT_THROW(readPolicy(text), BadInput) << text;
    }
}

TEST(Policy, AbsurdNestingIsRefused) {
    const std::string deep = R"({"guard_config":)" + std::string(200'000, '[');
    EXPECT_THROW(readPolicy(deep + std::string(200'000, ']') + "}"), BadInput);
    EXPECT_NO_THROW(readPolicy(R"({"a":)" + std::string(600, '[') + std::string(600, ']') + "}"));
}

TEST(Policy, AMistakeIsSaidWithItsPlace) {
    try {
        readPolicy("{\n  \"a\": 1,\n  \"b\" 2\n}");
        FAIL();
    } catch (const BadInput& mistake) {
        EXPECT_STREQ(mistake.what(), "the policy is not valid JSON: see line 3, column 7");
    }
}

TEST(Policy, TheTagCanBeReplacedAndLeftOut) {
    const Policy policy = readPolicy(R"({"etag":"a","config":{}})");
    EXPECT_EQ(withTag(policy, "b\"").text, R"({"etag":"b\"","config":{}})");
    EXPECT_EQ(withTag(policy, "b").etag, "b");
    EXPECT_EQ(textWithoutTag(policy), R"({"config":{}})");
}

}  // namespace
}  // namespace orvane::emulator
