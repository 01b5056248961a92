#include "config/device_identity.h"
#include "config/orvane_config.h"
#include "platform/process/environment.h"

namespace orvane {

std::optional<OrvaneConfig::Profile> OrvaneConfig::deviceProfile() {
    // Only a switch: with the variable set, the daemon goes straight to the config file; its value
    // is never used.
    if (!environmentValue("ORVANE_API_KEY").empty()) {
        return std::nullopt;
    }
    const auto resolved = DeviceIdentity::resolve(agentProcess);
    if (!resolved || resolved->uploadKey.empty() || resolved->agentSlug.empty()) {
        return std::nullopt;
    }
    return Profile{.name = "device",
                   .apiUrl = resolved->apiUrl,
                   .apiKey = resolved->uploadKey,
                   .agentSlug = resolved->agentSlug,
                   .tenant = std::nullopt};
}

}  // namespace orvane
