#include "control_plane/agent_config.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace orvane::test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::FieldsAre;
using ::testing::Optional;

constexpr const char* goodAnswer =
    R"({"upload_api_key":"up-1","api_url":"https://api","agent_slug":"slug","agent_type":"kind"})";

TEST(AgentConfigRequestTest, TheEndpointIsJoinedToTheBaseWithOneSlash) {
    struct {
        const char* base;
        const char* url;
    } const examples[] = {
        {"http://h", "http://h/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://h/", "http://h/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"https://h:8443/base",
         "https://h:8443/base/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"https://h/base/", "https://h/base/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://h/a%20b", "http://h/a%20b/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://[::1]:8080", "http://[::1]:8080/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://h?x=1", "http://h/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://h/b?process=q&y=2", "http://h/b/api/orvane/v1/endpoint/agent-config/?process=p"},
        {"http://h/b/?", "http://h/b/api/orvane/v1/endpoint/agent-config/?process=p"},
    };
    for (const auto& [base, url] : examples) {
        SCOPED_TRACE(base);
        const auto request = agentConfigRequest({"t", "a", base}, "p");
        EXPECT_EQ(request ? request->url.text() : "(none)", url);
    }
}

TEST(AgentConfigRequestTest, TheProcessIsPercentEncoded) {
    struct {
        const char* process;
        const char* query;
    } const examples[] = {
        {"claude", "process=claude"},     {"", "process="},
        {"a b", "process=a%20b"},         {"\u00fc", "process=%C3%BC"},
        {"a&b", "process=a%26b"},         {"a=b", "process=a%3Db"},
        {"a+b", "process=a%2Bb"},         {"50%", "process=50%25"},
        {"%20", "process=%2520"},         {"a#b", "process=a%23b"},
        {"A-z_0.9~", "process=A-z_0.9~"},
    };
    for (const auto& [process, query] : examples) {
        SCOPED_TRACE(process);
        const auto request = agentConfigRequest({"t", "a", "http://h"}, process);
        EXPECT_EQ(request ? request->url.text() : "(none)",
                  "http://h/api/orvane/v1/endpoint/agent-config/?"s + query);
    }
}

TEST(AgentConfigRequestTest, TokenAndTenantAreTheOnlyHeaders) {
    const auto request = agentConfigRequest({"t", "a", "http://h"}, "p");
    EXPECT_THAT(request, Optional(Field(&HttpRequest::headers,
                                        ElementsAre(FieldsAre("X-Orv-Device", "t"),
                                                    FieldsAre("X-Orv-Tenant", "a")))));
}

TEST(AgentConfigRequestTest, SilenceMayLastTwelveSeconds) {
    const auto request = agentConfigRequest({"t", "a", "http://h"}, "p");
    EXPECT_THAT(request, Optional(Field(&HttpRequest::inactivityLimit, Optional(12s))));
}

TEST(AgentConfigRequestTest, WhatIsNoUrlCannotBeAsked) {
    for (const char* base :
         {"", " ", " http://h", "http://h ", "http://h x", "http://h:80a", "http://[::1",
          "http://h/%zz", "http://h/\u00e9", "http://h/a\nb", "127.0.0.1:8080", "http://h/a#b#c"}) {
        SCOPED_TRACE(base);
        EXPECT_FALSE(agentConfigRequest({"t", "a", base}, "p").has_value());
    }
}

std::optional<AgentConfig> judge(std::int64_t status, std::optional<std::string> body) {
    return readAgentConfig(HttpResponse{status, std::move(body)}, "https://file");
}

TEST(AgentConfigTest, ACompleteResponseIsTakenVerbatim) {
    EXPECT_EQ(judge(200, goodAnswer), (AgentConfig{"https://api", "up-1", "slug", "kind"}));
    EXPECT_EQ(judge(200, R"({"upload_api_key":" k ","api_url":"no url","agent_slug":" ",
                             "agent_type":"\u00fc","more":[1]})"),
              (AgentConfig{"no url", " k ", " ", "\u00fc"}));
}

TEST(AgentConfigTest, TheUploadKeyIsEnough) {
    EXPECT_EQ(judge(200, R"({"upload_api_key":"k"})"), (AgentConfig{"https://file", "k", "", ""}));
}

TEST(AgentConfigTest, EmptyStringsAreTakenVerbatim) {
    EXPECT_EQ(judge(200, R"({"upload_api_key":"k","api_url":"","agent_slug":"","agent_type":""})"),
              (AgentConfig{"", "k", "", ""}));
}

TEST(AgentConfigTest, WhatIsNotAStringCountsAsMissing) {
    for (const char* value : {"null", "1", "true", "{}", R"(["x"])"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(judge(200, R"({"upload_api_key":"k","api_url":)"s + value + R"(,"agent_slug":)" +
                                 value + R"(,"agent_type":)" + value + "}"),
                  (AgentConfig{"https://file", "k", "", ""}));
        EXPECT_EQ(judge(200, R"({"api_url":"https://api","upload_api_key":)"s + value + "}"),
                  std::nullopt);
    }
}

TEST(AgentConfigTest, EveryStringHasItsOwnPlace) {
    EXPECT_EQ(judge(200, R"({"upload_api_key":"k","api_url":"u"})"),
              (AgentConfig{"u", "k", "", ""}));
    EXPECT_EQ(judge(200, R"({"upload_api_key":"k","agent_slug":"s"})"),
              (AgentConfig{"https://file", "k", "s", ""}));
    EXPECT_EQ(judge(200, R"({"upload_api_key":"k","agent_type":"t"})"),
              (AgentConfig{"https://file", "k", "", "t"}));
}

TEST(AgentConfigTest, WithoutAnUploadKeyItIsWorthNothing) {
    EXPECT_EQ(judge(200, "{}"), std::nullopt);
    EXPECT_EQ(judge(200, R"({"upload_api_key":""})"), std::nullopt);
    EXPECT_EQ(judge(200, R"({"upload_api_key":"","api_url":"https://api","agent_slug":"s"})"),
              std::nullopt);
    EXPECT_EQ(judge(200, R"({"UPLOAD_API_KEY":"k"})"), std::nullopt);
}

TEST(AgentConfigTest, OnlyABodyWithAnObjectCounts) {
    EXPECT_EQ(judge(200, std::nullopt), std::nullopt);
    for (const char* body :
         {"", "null", "[]", R"("upload_api_key")", "not json", R"([{"upload_api_key":"k"}])",
          R"({"upload_api_key":"k")", R"({"upload_api_key":"k"}x)"}) {
        SCOPED_TRACE(body);
        EXPECT_EQ(judge(200, body), std::nullopt);
    }
}

TEST(AgentConfigTest, OnlyStatus200Counts) {
    for (const std::int64_t status : {0,   100, 199, 201, 202, 203, 204, 206, 299, 300, 301, 302,
                                      304, 307, 308, 400, 401, 403, 404, 429, 500, 502, 503}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(judge(status, goodAnswer), std::nullopt);
    }
}

TEST(AgentConfigTest, WithoutAResponseThereIsNothing) {
    EXPECT_EQ(readAgentConfig(std::nullopt, "https://file"), std::nullopt);
}

}  // namespace
}  // namespace orvane::test
