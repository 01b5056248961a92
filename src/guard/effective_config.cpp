#include "guard/effective_config.h"

#include "platform/json/json.h"

#include <vector>

namespace orvane::guard {

namespace {

constexpr std::chrono::seconds inactivityLimit(30);

}  // namespace

std::optional<Url> effectiveUrl(std::string_view apiUrl) {
    return Url::parse(joinedToApiBase(apiUrl, effectiveEndpoint));
}

HttpRequest effectiveRequest(const Url& url, const std::string& apiKey,
                             const std::optional<std::string>& agentSlug,
                             const std::string& hardwareUuid) {
    std::vector<QueryItem> items;
    if (agentSlug && !agentSlug->empty()) {
        items.push_back({"agent_slug", *agentSlug});
    }
    if (!hardwareUuid.empty()) {
        items.push_back({"hardware_uuid", hardwareUuid});
    }
    return {url.withQuery(items), {{"X-Orv-Key", apiKey}}, inactivityLimit};
}

EffectiveOutcome judgeEffective(std::int64_t status, const std::optional<std::string>& body) {
    if (status == 200 && body && json::readObject(*body, {})) {
        return EffectiveOutcome::store;
    }
    return status == 404 ? EffectiveOutcome::endpointAbsent : EffectiveOutcome::ignore;
}

}  // namespace orvane::guard
