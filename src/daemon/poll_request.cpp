#include "daemon/poll_request.h"

#include "platform/text/text.h"

#include <utility>
#include <vector>

namespace orvane {

std::optional<HttpRequest> pollRequest(const OrvaneConfig::Profile& profile,
                                       const std::optional<std::string>& etag,
                                       std::int64_t waitSeconds) {
    const auto url = Url::parse(joinedToApiBase(profile.apiUrl, pollEndpoint));
    if (!url) {
        return std::nullopt;
    }
    std::vector<QueryItem> items{{"wait", std::to_string(waitSeconds)}};
    if (profile.agentSlug && !profile.agentSlug->empty()) {
        items.push_back({"agent_slug", *profile.agentSlug});
    }
    std::vector<HttpHeader> headers{{"X-Orv-Key", profile.apiKey}, {"Accept", "application/json"}};
    if (etag && !text::hasControlCharacter(*etag)) {
        headers.push_back({"If-None-Match", '"' + *etag + '"'});
    }
    return HttpRequest{url->withQuery(items), std::move(headers), std::nullopt};
}

bool isLongTag(const std::string& etag) {
    constexpr std::size_t longestThatIsTaken = 1024;
    return etag.size() > longestThatIsTaken;
}

bool mayRefuseTag(std::int64_t status) {
    return status == 0 || status == 400 || status == 413 || status == 414 || status == 431;
}

PollOutcome outcomeOf(std::int64_t status) {
    switch (status) {
        case 200:
            return PollOutcome::updated;
        case 304:
            return PollOutcome::unchanged;
        case 401:
        case 403:
            return PollOutcome::rejected;
        default:
            return PollOutcome::unexpected;
    }
}

}  // namespace orvane
