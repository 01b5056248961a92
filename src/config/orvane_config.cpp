#include "config/orvane_config.h"

#include "config/config_file.h"
#include "config/device_identity.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace orvane {

namespace {

/// The agent process that the device identity is asked for.
constexpr const char* processName = "claude";

std::optional<OrvaneConfig::Profile> deviceProfile() {
    const auto resolved = DeviceIdentity::resolve(processName);
    if (!resolved || resolved->uploadKey.empty() || resolved->agentSlug.empty()) {
        return std::nullopt;
    }
    return OrvaneConfig::Profile{"device", resolved->apiUrl, resolved->uploadKey,
                                 resolved->agentSlug, std::nullopt};
}

std::optional<OrvaneConfig::Profile> configFileProfile(const std::vector<std::string>& preferred) {
    const auto content = files::read(OrvaneConfig::configPath());
    if (!content || !text::isUtf8(*content)) {
        return std::nullopt;
    }
    const ConfigSections sections = parseConfig(text::withoutByteOrderMark(*content));
    for (const std::string& name : preferred) {
        const auto section = sections.find(name);
        if (section == sections.end()) {
            continue;
        }
        if (auto profile = profileOf(name, section->second)) {
            return profile;
        }
    }
    return std::nullopt;
}

}  // namespace

const std::filesystem::path& OrvaneConfig::configPath() {
    static const std::filesystem::path path = paths::orvaneDirectory() / "config";
    return path;
}

std::optional<OrvaneConfig::Profile> OrvaneConfig::loadFirstProfile(
    const std::vector<std::string>& preferred) {
    // Only a switch: a key in the environment sends the daemon straight to the config file, and is
    // itself never used.
    if (environmentValue("ORVANE_API_KEY").empty()) {
        if (auto profile = deviceProfile()) {
            return profile;
        }
    }
    return configFileProfile(preferred);
}

}  // namespace orvane
