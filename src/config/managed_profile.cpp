#include "config/orvane_config.h"
#include "platform/files/files.h"
#include "platform/json/json_reader.h"
#include "platform/machine/paths.h"

namespace orvane {

std::optional<OrvaneConfig::Profile> OrvaneConfig::managedProfile() {
    const auto content =
        files::read(paths::setupDirectory() / "enroll-config.json", files::foreignSizeLimit);
    const auto members =
        content ? json::readObject(*content, {"api_url", "api_key"}) : std::nullopt;
    if (!members) {
        return std::nullopt;
    }
    auto apiUrl = members->nonEmptyString("api_url");
    auto apiKey = members->nonEmptyString("api_key");
    if (!apiUrl || !apiKey) {
        return std::nullopt;
    }
    return Profile{.name = "managed",
                   .apiUrl = std::move(*apiUrl),
                   .apiKey = std::move(*apiKey),
                   .agentSlug = std::nullopt,
                   .tenant = std::nullopt};
}

}  // namespace orvane
