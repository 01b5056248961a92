#include "control_plane/effective_config.h"

#include "control_plane/api.h"
#include "platform/json/json_reader.h"

#include <vector>

namespace orvane {

namespace {

constexpr std::chrono::seconds fetchInactivityLimit(30);

}  // namespace

std::optional<Url> effectiveUrl(std::string_view apiUrl) {
    return Url::parse(api::urlOf(apiUrl, api::effectiveConfig));
}

HttpRequest effectiveRequest(const Url& url, const Profile& profile,
                             const std::string& hardwareUuid) {
    std::vector<QueryItem> items;
    if (profile.agentSlug && !profile.agentSlug->empty()) {
        items.push_back({.name = api::agentSlugItem, .value = *profile.agentSlug});
    }
    if (!hardwareUuid.empty()) {
        items.push_back({.name = api::hardwareUuidItem, .value = hardwareUuid});
    }
    return {.url = url.withQuery(items),
            .headers = {{.name = api::keyHeader, .value = profile.apiKey}},
            .inactivityLimit = fetchInactivityLimit};
}

EffectiveOutcome judgeEffective(std::int64_t status, const std::optional<std::string>& body) {
    if (status == 200 && body && json::readObject(*body, {})) {
        return EffectiveOutcome::store;
    }
    return status == 404 ? EffectiveOutcome::endpointAbsent : EffectiveOutcome::ignore;
}

}  // namespace orvane
