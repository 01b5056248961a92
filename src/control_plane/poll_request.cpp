#include "control_plane/poll_request.h"

#include "control_plane/api.h"
#include "platform/text/text.h"

#include <utility>
#include <vector>

namespace orvane {

std::optional<HttpRequest> pollRequest(const Profile& profile,
                                       const std::optional<std::string>& etag,
                                       std::int64_t waitSeconds) {
    const auto url = Url::parse(api::urlOf(profile.apiUrl, api::guardConfig));
    if (!url) {
        return std::nullopt;
    }
    std::vector<QueryItem> items{{.name = api::waitItem, .value = std::to_string(waitSeconds)}};
    if (profile.agentSlug && !profile.agentSlug->empty()) {
        items.push_back({.name = api::agentSlugItem, .value = *profile.agentSlug});
    }
    std::vector<HttpHeader> headers{{.name = api::keyHeader, .value = profile.apiKey},
                                    {.name = "Accept", .value = "application/json"}};
    if (etag && !text::hasControlCharacter(*etag)) {
        headers.push_back({.name = "If-None-Match", .value = '"' + *etag + '"'});
    }
    return HttpRequest{.url = url->withQuery(items),
                       .headers = std::move(headers),
                       .inactivityLimit = std::nullopt};
}

bool isLongEtag(const std::string& etag) {
    constexpr std::size_t alwaysAccepted = 1024;
    return etag.size() > alwaysAccepted;
}

bool mayRefuseEtag(std::int64_t status) {
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
