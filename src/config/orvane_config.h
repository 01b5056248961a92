// Which API base and which credentials to use, and under which profile name.
#pragma once

#include "control_plane/profile.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

/// The sources of credentials, in the order in which the poll loop asks them: the managed
/// enrollment file, the device identity, the user's config file. No state but the config file's
/// location; every call reads its files anew. Nothing is logged and nothing fails outward: what
/// cannot be had is absent.
struct OrvaneConfig {
    OrvaneConfig() = delete;

    using Profile = orvane::Profile;

    /// The user's config file, ~/.orvane/config. Found once per process, on first use, from any
    /// thread.
    static const std::filesystem::path& configPath();

    /// The profile "managed" from the enrollment file that management leaves in the setup
    /// directory: a JSON object with non-empty texts "api_url" and "api_key", taken as they stand.
    /// May be called from any thread.
    static std::optional<Profile> managedProfile();

    /// Gets the device identity's profile, if there is one.
    using DeviceLookup = std::function<std::optional<Profile>()>;

    /// The device identity's profile unless ORVANE_API_KEY is set and not empty. Asks the control
    /// plane, and may block for as long as `DeviceIdentity::resolve` does.
    static std::optional<Profile> deviceProfile();

    /// The profile for one turn: the managed one, else `loadFirstProfile` with the sections
    /// "claude-code", "claude-cowork", "connect" and "default".
    static std::optional<Profile> currentProfile(const DeviceLookup& device = deviceProfile);

    /// The profile that `device` returns, else the first of `preferred` that names a section of the
    /// config file with a non-empty "api_url" and "api_key".
    static std::optional<Profile> loadFirstProfile(const std::vector<std::string>& preferred,
                                                   const DeviceLookup& device = deviceProfile);
};

}  // namespace orvane
