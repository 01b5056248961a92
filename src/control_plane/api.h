// The names in the control plane's API.
#pragma once

#include <string>
#include <string_view>

namespace orvane::api {

/// The endpoints' paths.
inline constexpr std::string_view guardConfig = "/api/orvane/v1/connect/guard-config/";
inline constexpr std::string_view effectiveConfig = "/api/orvane/v1/guard/effective/";
inline constexpr std::string_view agentConfig = "/api/orvane/v1/endpoint/agent-config/";

/// Request headers: the API key, and a device's token with the tenant it belongs to.
inline constexpr const char* keyHeader = "X-Orv-Key";
inline constexpr const char* deviceHeader = "X-Orv-Device";
inline constexpr const char* tenantHeader = "X-Orv-Tenant";

/// Query items.
inline constexpr const char* waitItem = "wait";
inline constexpr const char* agentSlugItem = "agent_slug";
inline constexpr const char* hardwareUuidItem = "hardware_uuid";
inline constexpr const char* processItem = "process";

/// The URL text of `endpoint` on the API at `apiUrl`: the base without its leading and trailing
/// slashes, then the endpoint's path.
std::string urlOf(std::string_view apiUrl, std::string_view endpoint);

}  // namespace orvane::api
