#include "control_plane/effective_config.h"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <string>

namespace orvane::test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::Optional;

constexpr const char* endpoint = "https://h/api/orvane/v1/guard/effective/";

HttpRequest requestWith(const std::optional<std::string>& agentSlug, const std::string& uuid,
                        const std::string& apiUrl = "https://h") {
    const auto url = effectiveUrl(apiUrl);
    const Profile profile{"p", apiUrl, "key", agentSlug, "tenant"};
    return effectiveRequest(url.value(), profile, uuid);
}

TEST(EffectiveUrlTest, TheEndpointFollowsTheBase) {
    struct {
        const char* apiUrl;
        const char* url;
    } const examples[] = {
        {"https://h", endpoint},
        {"https://h/", endpoint},
        {"https://h///", endpoint},
        {"/https://h", endpoint},
        {"//https://h//", endpoint},
        {"https://h/base", "https://h/base/api/orvane/v1/guard/effective/"},
        {"https://h/base//", "https://h/base/api/orvane/v1/guard/effective/"},
        {"https://h//base/", "https://h//base/api/orvane/v1/guard/effective/"},
        {"HTTP://h:8080", "HTTP://h:8080/api/orvane/v1/guard/effective/"},
        {"http://[::1]:80/", "http://[::1]:80/api/orvane/v1/guard/effective/"},
        {"https://h/p?x=1", "https://h/p?x=1/api/orvane/v1/guard/effective/"},
        {"", "/api/orvane/v1/guard/effective/"},
        {"///", "/api/orvane/v1/guard/effective/"},
        {"h", "h/api/orvane/v1/guard/effective/"},
    };
    for (const auto& [apiUrl, url] : examples) {
        SCOPED_TRACE(apiUrl);
        const auto parsed = effectiveUrl(apiUrl);
        EXPECT_EQ(parsed ? parsed->text() : "(none)", url);
    }
}

TEST(EffectiveUrlTest, ABaseThatIsNoUrlHasNoEndpoint) {
    for (const char* apiUrl :
         {" https://h", "https://h ", "https://h x", "https://h:80a", "https://[::1",
          "https://h/%zz", "https://h/\u00e9", "ht!tp://h", "127.0.0.1:8080"}) {
        SCOPED_TRACE(apiUrl);
        EXPECT_FALSE(effectiveUrl(apiUrl).has_value());
    }
}

TEST(EffectiveRequestTest, SlugAndUuidAreInTheQueryInThisOrder) {
    EXPECT_EQ(requestWith("slug", "UUID-1").url.text(),
              endpoint + "?agent_slug=slug&hardware_uuid=UUID-1"s);
}

TEST(EffectiveRequestTest, OneOfThemIsEnough) {
    EXPECT_EQ(requestWith("slug", "").url.text(), endpoint + "?agent_slug=slug"s);
    EXPECT_EQ(requestWith(std::nullopt, "UUID-1").url.text(), endpoint + "?hardware_uuid=UUID-1"s);
    EXPECT_EQ(requestWith("", "UUID-1").url.text(), endpoint + "?hardware_uuid=UUID-1"s);
}

TEST(EffectiveRequestTest, WithNeitherThereIsNoQuery) {
    EXPECT_EQ(requestWith(std::nullopt, "").url.text(), endpoint);
    EXPECT_EQ(requestWith("", "").url.text(), endpoint);
}

TEST(EffectiveRequestTest, ASpaceIsAValue) {
    EXPECT_EQ(requestWith(" ", " ").url.text(), endpoint + "?agent_slug=%20&hardware_uuid=%20"s);
}

TEST(EffectiveRequestTest, ValuesArePercentEncoded) {
    EXPECT_EQ(requestWith("a b&c", "\u00fc=\"+\"").url.text(),
              endpoint + "?agent_slug=a%20b%26c&hardware_uuid=%C3%BC%3D%22%2B%22"s);
}

TEST(EffectiveRequestTest, TheBasesQueryIsReplacedOnlyByAnother) {
    EXPECT_EQ(requestWith("slug", "", "https://h/p?x=1").url.text(), "https://h/p?agent_slug=slug");
    EXPECT_EQ(requestWith("", "", "https://h/p?x=1").url.text(),
              "https://h/p?x=1/api/orvane/v1/guard/effective/");
}

TEST(EffectiveRequestTest, TheKeyIsTheOnlyHeader) {
    EXPECT_THAT(requestWith("slug", "UUID-1").headers, ElementsAre(FieldsAre("X-Orv-Key", "key")));
}

TEST(EffectiveRequestTest, TheKeyIsSentVerbatim) {
    for (const char* key : {"", " k ", "\u00fc", "a\nb"}) {
        SCOPED_TRACE(key);
        const auto url = effectiveUrl("https://h");
        EXPECT_THAT(effectiveRequest(url.value(), {"p", "", key, {}, {}}, "").headers,
                    ElementsAre(FieldsAre("X-Orv-Key", key)));
    }
}

TEST(EffectiveRequestTest, SilenceMayLastThirtySeconds) {
    EXPECT_THAT(requestWith("slug", "UUID-1").inactivityLimit, Optional(30s));
}

TEST(EffectiveOutcomeTest, Answers) {
    struct {
        std::int64_t status;
        std::optional<std::string> body;
        EffectiveOutcome outcome;
    } const examples[] = {
        {200, "{}", EffectiveOutcome::store},
        {200, " {\"a\" : [1, {}]}\n", EffectiveOutcome::store},
        {200, "", EffectiveOutcome::ignore},
        {200, "[]", EffectiveOutcome::ignore},
        {200, "[{}]", EffectiveOutcome::ignore},
        {200, "null", EffectiveOutcome::ignore},
        {200, "\"{}\"", EffectiveOutcome::ignore},
        {200, "1", EffectiveOutcome::ignore},
        {200, "{", EffectiveOutcome::ignore},
        {200, "{}{}", EffectiveOutcome::ignore},
        {200, "not json", EffectiveOutcome::ignore},
        {200, std::nullopt, EffectiveOutcome::ignore},
        {404, "{}", EffectiveOutcome::endpointAbsent},
        {404, "", EffectiveOutcome::endpointAbsent},
        {404, std::nullopt, EffectiveOutcome::endpointAbsent},
        {0, std::nullopt, EffectiveOutcome::ignore},
        {0, "{}", EffectiveOutcome::ignore},
        {199, "{}", EffectiveOutcome::ignore},
        {201, "{}", EffectiveOutcome::ignore},
        {204, "", EffectiveOutcome::ignore},
        {301, "{}", EffectiveOutcome::ignore},
        {304, std::nullopt, EffectiveOutcome::ignore},
        {400, "{}", EffectiveOutcome::ignore},
        {401, "{}", EffectiveOutcome::ignore},
        {403, "{}", EffectiveOutcome::ignore},
        {405, "{}", EffectiveOutcome::ignore},
        {410, "{}", EffectiveOutcome::ignore},
        {500, "{}", EffectiveOutcome::ignore},
    };
    for (const auto& [status, body, outcome] : examples) {
        SCOPED_TRACE(std::to_string(status) + " " + body.value_or("(no body)"));
        EXPECT_EQ(judgeEffective(status, body), outcome);
    }
}

}  // namespace
}  // namespace orvane::test
