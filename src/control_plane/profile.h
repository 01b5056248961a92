// The credentials for the control plane.
#pragma once

#include <optional>
#include <string>

namespace orvane {

/// The credentials for one poll cycle. `apiKey` is never empty. `apiUrl` is not validated; only the
/// device profile's may be empty. An optional string may be present and empty.
struct Profile {
    std::string name;    ///< "managed", "device" or a config section's name
    std::string apiUrl;  ///< base of the control plane's API
    std::string apiKey;  ///< sent with every request
    std::optional<std::string> agentSlug;
    std::optional<std::string> tenant;  ///< not used

    bool operator==(const Profile&) const = default;  // artificial branch: defaulted
};

}  // namespace orvane
