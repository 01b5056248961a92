#include "control_plane/agent_config.h"

#include "control_plane/api.h"
#include "platform/json/json_reader.h"

#include <utility>

namespace orvane {

namespace {

constexpr std::chrono::seconds lookupInactivityLimit(12);

}  // namespace

std::optional<HttpRequest> agentConfigRequest(const DeviceEnrollment& enrollment,
                                              std::string_view process) {
    const auto base = enrollment.apiUrl.empty() ? std::nullopt : Url::parse(enrollment.apiUrl);
    if (!base) {
        return std::nullopt;
    }
    const QueryItem item{.name = api::processItem, .value = std::string(process)};
    return HttpRequest{.url = base->appendingPath(api::agentConfig.substr(1)).withQuery({&item, 1}),
                       .headers = {{.name = api::deviceHeader, .value = enrollment.deviceToken},
                                   {.name = api::tenantHeader, .value = enrollment.tenantSlug}},
                       .inactivityLimit = lookupInactivityLimit};
}

std::optional<AgentConfig> readAgentConfig(const std::optional<HttpResponse>& response,
                                           const std::string& fallbackApiUrl) {
    if (!response || response->status != 200 || !response->body) {
        return std::nullopt;
    }
    const auto members = json::readObject(
        *response->body, {"upload_api_key", "api_url", "agent_slug", "agent_type"});
    auto uploadKey = members ? members->nonEmptyString("upload_api_key") : std::nullopt;
    if (!uploadKey) {
        return std::nullopt;
    }
    return AgentConfig{.apiUrl = members->string("api_url").value_or(fallbackApiUrl),
                       .uploadKey = std::move(*uploadKey),
                       .agentSlug = members->string("agent_slug").value_or(""),
                       .agentType = members->string("agent_type").value_or("")};
}

}  // namespace orvane
