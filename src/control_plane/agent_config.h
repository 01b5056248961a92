// The lookup of a device's agent configuration: building the request, interpreting the response.
// Pure functions.
#pragma once

#include "platform/http/http_session.h"

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The agent process whose configuration the daemon requests.
inline constexpr const char* agentProcess = "claude";

/// What a device identifies itself with, and where.
struct DeviceEnrollment {
    std::string deviceToken;
    std::string tenantSlug;
    std::string apiUrl;
};

/// The control plane's response for one agent process. `uploadKey` is never empty, the others
/// may be.
struct AgentConfig {
    std::string apiUrl;  ///< base of the API to use from now on
    std::string uploadKey;
    std::string agentSlug;
    std::string agentType;

    bool operator==(const AgentConfig&) const = default;  // artificial branch: defaulted
};

/// The request for `process`; absent if the enrollment's `apiUrl` is not a URL.
[[nodiscard]] std::optional<HttpRequest> agentConfigRequest(const DeviceEnrollment& enrollment,
                                                            std::string_view process);

/// Interprets the response: only a 200 counts whose body is an object with a non-empty string
/// "upload_api_key". Without a string "api_url" in it, `fallbackApiUrl` is used.
[[nodiscard]] std::optional<AgentConfig> readAgentConfig(
    const std::optional<HttpResponse>& response, const std::string& fallbackApiUrl);

}  // namespace orvane
