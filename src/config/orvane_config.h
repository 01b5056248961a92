// Which API base and which credentials to use.
#pragma once

#include "control_plane/profile.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

/// The sources of credentials, in the order in which the poll loop tries them: the managed
/// enrollment file, the device identity, the user's config file. Files are read on every call.
/// Nothing is logged and nothing fails: missing or unusable sources yield nullopt.
struct OrvaneConfig {
    OrvaneConfig() = delete;

    using Profile = orvane::Profile;

    /// The user's config file, ~/.orvane/config. Determined once per process, on first use.
    /// Thread-safe.
    static const std::filesystem::path& configPath();

    /// The profile "managed" from the enrollment file in the setup directory: a JSON object with
    /// non-empty strings "api_url" and "api_key", used verbatim. Thread-safe.
    [[nodiscard]] static std::optional<Profile> managedProfile();

    /// Returns the device identity's profile, if there is one.
    using DeviceLookup = std::function<std::optional<Profile>()>;

    /// The device identity's profile unless ORVANE_API_KEY is set and not empty. Sends a request,
    /// and may block for as long as `DeviceIdentity::resolve` does.
    [[nodiscard]] static std::optional<Profile> deviceProfile();

    /// The profile for one poll cycle: the managed one, else `loadFirstProfile` with the sections
    /// "claude-code", "claude-cowork", "connect" and "default".
    [[nodiscard]] static std::optional<Profile> currentProfile(
        const DeviceLookup& device = deviceProfile);

    /// The profile that `device` returns, else that of the first name in `preferred` that is a
    /// section of the config file with a non-empty "api_url" and "api_key".
    [[nodiscard]] static std::optional<Profile> loadFirstProfile(
        const std::vector<std::string>& preferred, const DeviceLookup& device = deviceProfile);
};

}  // namespace orvane
