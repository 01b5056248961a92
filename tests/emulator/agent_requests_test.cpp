#include "emulator/agent_requests.h"

#include "emulator/policy.h"
#include "sample_account.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

Request aRequest(const std::string& path) {
    Request request;
    request.method = "GET";
    request.path = path;
    request.apiKey = "key";
    return request;
}

Request aPoll(const std::string& wait, const std::string& ifNoneMatch = "\"a/1\"") {
    Request request = aRequest(pollPath);
    request.query["wait"] = wait;
    request.ifNoneMatch = ifNoneMatch;
    return request;
}

Decision decideWithPolicy(const Request& request) {
    return decide(request, anAccount(), readPolicy(firstText));
}

Reply replyTo(const Request& request, const std::optional<Policy>& policy = readPolicy(firstText)) {
    return std::get<Reply>(decide(request, anAccount(), policy));
}

TEST(AgentRequests, APollWithAnotherTagOrNoneIsAnsweredAtOnce) {
    for (const std::string tag : {"", "\"a/0\"", "a/1", "W/\"a/1\"", "\"a/1"}) {
        const Reply reply = replyTo(aPoll("300", tag));
        EXPECT_EQ(reply.status, 200U) << tag;
        EXPECT_EQ(reply.body, firstText);
    }
}

TEST(AgentRequests, APollWithTheCurrentTagIsHeldAsLongAsItAsks) {
    EXPECT_EQ(std::get<Hold>(decideWithPolicy(aPoll("17"))).atMost, 17s);
}

TEST(AgentRequests, APollIsHeldWhileThereIsNoPolicy) {
    const Decision decision = decide(aPoll("17", ""), anAccount(), std::nullopt);
    EXPECT_EQ(std::get<Hold>(decision).atMost, 17s);
}

TEST(AgentRequests, AWaitThatIsMissingOrUnusableIsZeroAndALongOneIsCapped) {
    const std::vector<std::pair<std::string, std::chrono::seconds>> cases{
        {"", 0s},
        {"x", 0s},
        {"-1", 0s},
        {"1.5", 0s},
        {" 1", 0s},
        {"0", 0s},
        {"300", 300s},
        {"301", 300s},
        {"0x10", 0s},
        {"99999x", 0s},
        {std::string(40, '9'), 300s}};
    for (const auto& [wait, expected] : cases) {
        EXPECT_EQ(std::get<Hold>(decideWithPolicy(aPoll(wait))).atMost, expected) << wait;
    }
    Request bare = aPoll("");
    bare.query.clear();
    EXPECT_EQ(std::get<Hold>(decideWithPolicy(bare)).atMost, 0s);
}

TEST(AgentRequests, TheKeyMustMatchWhole) {
    for (const std::string path : {pollPath, effectivePath}) {
        for (const std::string key : {"", "ke", "keyy", "kex", "Key"}) {
            Request request = aRequest(path);
            request.apiKey = key;
            EXPECT_EQ(replyTo(request).status, 401U) << path << key;
        }
    }
}

TEST(AgentRequests, ASecretLeftEmptyMatchesNothing) {
    Request request = aRequest(agentConfigPath);
    EXPECT_EQ(std::get<Reply>(decide(request, {}, std::nullopt)).status, 401U);
    request = aRequest(pollPath);
    request.apiKey.clear();
    EXPECT_EQ(std::get<Reply>(decide(request, {}, std::nullopt)).status, 401U);
}

TEST(AgentRequests, TheEffectiveConfigurationSaysForWhomItIs) {
    Request request = aRequest(effectivePath);
    EXPECT_EQ(replyTo(request).body,
              R"({"agent_slug":"","etag":"a/1","hardware_uuid":"","guard_config":{"capture":{}}})");
    request.query = {{"agent_slug", "s\"\xff"}, {"hardware_uuid", "u"}};
    EXPECT_EQ(replyTo(request).body,
              "{\"agent_slug\":\"s\\\"\xef\xbf\xbd\",\"etag\":\"a/1\","
              R"("hardware_uuid":"u","guard_config":{"capture":{}}})");
}

TEST(AgentRequests, WithoutAPolicyThereIsNothingToRead) {
    EXPECT_EQ(replyTo(aRequest(effectivePath), std::nullopt).status, 404U);
}

TEST(AgentRequests, AKnownDeviceGetsItsAccount) {
    Request request = aRequest(agentConfigPath);
    request.device = "device";
    request.tenant = "tenant";
    const Reply reply = replyTo(request);
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.body, R"({"agent_slug":"slug","agent_type":"type",)"
                          R"("api_url":"http://base","upload_api_key":"key"})");
}

TEST(AgentRequests, ADeviceWithAWrongTokenOrTenantIsRefused) {
    Request request = aRequest(agentConfigPath);
    request.device = "device";
    request.tenant = "other";
    EXPECT_EQ(replyTo(request).status, 401U);
    request.device = "other";
    request.tenant = "tenant";
    EXPECT_EQ(replyTo(request).status, 401U);
}

TEST(AgentRequests, AreThoseToTheThreeAddresses) {
    for (const std::string path : {pollPath, effectivePath, agentConfigPath}) {
        EXPECT_TRUE(isFromAgent(aRequest(path))) << path;
    }
    for (const std::string path : {"/", "", "/policy/", "/api/orvane/v1/guard/effective"}) {
        EXPECT_FALSE(isFromAgent(aRequest(path))) << path;
    }
    EXPECT_TRUE(isPoll(aRequest(pollPath)));
    EXPECT_FALSE(isPoll(aRequest(effectivePath)));
}

TEST(AgentRequests, AWrongMethodIsAnsweredWithTheRightOne) {
    Request request = aRequest(pollPath);
    request.method = "POST";
    EXPECT_EQ(replyTo(request).status, 405U);
    EXPECT_EQ(replyTo(request).headers.at(0).second, "GET");
    EXPECT_FALSE(isPoll(request));
}

TEST(AgentRequests, ADeviceIsCalledByItsAgentSlug) {
    Request request = aRequest(pollPath);
    EXPECT_EQ(deviceOf(request, anAccount()), "-");
    request.query["agent_slug"] = "laptop";
    EXPECT_EQ(deviceOf(request, anAccount()), "laptop");
    EXPECT_EQ(deviceOf(aRequest(agentConfigPath), anAccount()), "slug");
}

}  // namespace
}  // namespace orvane::emulator
