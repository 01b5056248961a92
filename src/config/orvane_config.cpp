#include "config/orvane_config.h"

#include "config/config_file.h"
#include "platform/files/files.h"
#include "platform/machine/paths.h"
#include "platform/text/text.h"

namespace orvane {

namespace {

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
    // branch of a race: another thread initializes it
    static const std::filesystem::path path = paths::orvaneDirectory() / "config";
    return path;
}

std::optional<OrvaneConfig::Profile> OrvaneConfig::currentProfile(const DeviceLookup& device) {
    if (auto managed = managedProfile()) {
        return managed;
    }
    return loadFirstProfile({"claude-code", "claude-cowork", "connect", "default"}, device);
}

std::optional<OrvaneConfig::Profile> OrvaneConfig::loadFirstProfile(
    const std::vector<std::string>& preferred, const DeviceLookup& device) {
    if (auto profile = device()) {
        return profile;
    }
    return configFileProfile(preferred);
}

}  // namespace orvane
