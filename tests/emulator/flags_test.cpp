#include "emulator/flags.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <vector>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

std::optional<Flags> flagsOf(const std::vector<const char*>& arguments) {
    return readFlags(arguments);
}

TEST(Flags, AllAreRead) {
    const auto flags = flagsOf({"--key",
                                "k",
                                "--port",
                                "65535",
                                "--policy",
                                "p",
                                "--device",
                                "d",
                                "--tenant",
                                "t",
                                "--agent-slug",
                                "s",
                                "--agent-type",
                                "y",
                                "--cert",
                                "c",
                                "--private-key",
                                "q",
                                "--port-file",
                                "f",
                                "--jitter",
                                "--fail-every",
                                "3",
                                "--with",
                                "429"});
    ASSERT_TRUE(flags);
    EXPECT_EQ(flags->port, 65535);
    EXPECT_EQ(flags->account.apiKey, "k");
    EXPECT_EQ(flags->account.deviceToken, "d");
    EXPECT_EQ(flags->account.tenantSlug, "t");
    EXPECT_EQ(flags->account.agentSlug, "s");
    EXPECT_EQ(flags->account.agentType, "y");
    EXPECT_EQ(flags->policy, "p");
    EXPECT_EQ(flags->certificate, "c");
    EXPECT_EQ(flags->privateKey, "q");
    EXPECT_EQ(flags->portFile, "f");
    EXPECT_TRUE(flags->behavior.jitter);
    EXPECT_EQ(flags->behavior.failEvery, 3U);
    EXPECT_EQ(flags->behavior.failStatus, 429U);
}

TEST(Flags, WhatMakesNoSenseIsRefused) {
    EXPECT_FALSE(flagsOf({}));
    EXPECT_FALSE(flagsOf({"--key"}));
    EXPECT_FALSE(flagsOf({"--key", ""}));
    EXPECT_FALSE(flagsOf({"--key", "k", "--nonsense", "1"}));
    EXPECT_FALSE(flagsOf({"--key", "k", "stray"}));
    EXPECT_FALSE(flagsOf({"--key", "k", "--cert", "c"}));
    for (const char* count : {"0", "-1", "x", "1000001"}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--fail-every", count})) << count;
    }
    for (const char* status : {"399", "600", "x"}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--fail-every", "2", "--with", status})) << status;
    }
    for (const char* port : {"65536", "-1", "x", "80x", ""}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--port", port})) << port;
    }
}

TEST(Flags, HelpNeedsNothingElse) {
    const auto flags = flagsOf({"--help"});
    ASSERT_TRUE(flags);
    EXPECT_TRUE(flags->help);
}

/// A directory of its own that goes away with the test.

}  // namespace
}  // namespace orvane::emulator
