#include "control_plane/poll_request.h"

#include <gmock/gmock.h>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;

Profile profile(const std::string& apiUrl) {
    return {"p", apiUrl, "key-1", std::nullopt, "tenant-1"};
}

std::vector<std::string> headerLines(const HttpRequest& request) {
    std::vector<std::string> lines;
    for (const HttpHeader& header : request.headers) {
        lines.push_back(header.name + ": " + header.value);
    }
    return lines;
}

TEST(PollRequestTest, AsksForAHoldOfTheGivenSeconds) {
    const auto request = pollRequest(profile("https://h"), std::nullopt, 300);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->url.text(), "https://h/api/orvane/v1/connect/guard-config/?wait=300");
}

TEST(PollRequestTest, LeavesTheLimitsToTheSession) {
    EXPECT_EQ(pollRequest(profile("https://h"), std::nullopt, 300)->inactivityLimit, std::nullopt);
}

TEST(PollRequestTest, ReplacesAQueryOfTheBase) {
    const auto request = pollRequest(profile("https://h/p?x=1"), std::nullopt, 300);
    EXPECT_EQ(request->url.text(), "https://h/p?wait=300");
}

TEST(PollRequestTest, TheTenantIsNotSent) {
    const auto request = pollRequest(profile("https://h"), "v1", 300);
    EXPECT_THAT(headerLines(*request), ElementsAre("X-Orv-Key: key-1", "Accept: application/json",
                                                   "If-None-Match: \"v1\""));
}

TEST(PollRequestTest, AnEtagWithAnyControlCharacterIsLeftOut) {
    using namespace std::string_literals;
    for (const std::string& etag : {"a\0b"s, "a\rb"s, "a\nb"s, "a\tb"s, "a\x7f"s, "\x1f"s}) {
        const auto request = pollRequest(profile("https://h"), etag, 300);
        EXPECT_THAT(headerLines(*request),
                    ElementsAre("X-Orv-Key: key-1", "Accept: application/json"));
    }
}

TEST(PollRequestTest, ABaseThatDoesNotParseGivesNone) {
    for (const char* base : {"https://h x", "127.0.0.1:8080", "https://h:80a", "https://[::1"}) {
        EXPECT_FALSE(pollRequest(profile(base), std::nullopt, 300)) << base;
    }
}

TEST(PollRequestTest, AnEtagIsLongFrom1025BytesOn) {
    EXPECT_FALSE(isLongEtag(""));
    EXPECT_FALSE(isLongEtag(std::string(1024, 'x')));
    EXPECT_TRUE(isLongEtag(std::string(1025, 'x')));
}

TEST(PollRequestTest, OnlyCertainStatusesSpeakAgainstTheEtag) {
    std::vector<std::int64_t> found;
    for (std::int64_t status = 0; status < 1000; ++status) {
        if (mayRefuseEtag(status)) {
            found.push_back(status);
        }
    }
    EXPECT_THAT(found, ElementsAre(0, 400, 413, 414, 431));
}

TEST(PollOutcomeTest, EveryStatusHasItsMeaning) {
    for (std::int64_t status = 0; status < 1000; ++status) {
        const auto expected = status == 200                    ? PollOutcome::updated
                              : status == 304                  ? PollOutcome::unchanged
                              : status == 401 || status == 403 ? PollOutcome::rejected
                                                               : PollOutcome::unexpected;
        EXPECT_EQ(outcomeOf(status), expected) << status;
    }
}

}  // namespace
}  // namespace orvane::test
