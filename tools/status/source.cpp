#include "status/source.h"

#include "config/device_identity.h"
#include "config/orvane_config.h"
#include "control_plane/api.h"
#include "control_plane/poll_request.h"
#include "status/words.h"

namespace orvane::status {

namespace {

using Profile = OrvaneConfig::Profile;

/// Where a poll with `profile` goes; absent if it cannot be sent.
std::optional<std::string> pollUrl(const Profile& profile) {
    const auto request = pollRequest(profile, std::nullopt, longPollSeconds);
    return request ? std::optional(request->url.text()) : std::nullopt;
}

/// The profile that the daemon apparently got for the device identity.
std::optional<Profile> inferredDevice(const std::optional<Exchange>& lastPoll,
                                      const std::optional<Profile>& withoutDevice) {
    const auto enrollment = DeviceIdentity::storedEnrollment();
    if (!enrollment || !agentConfigRequest(*enrollment, "")) {
        return std::nullopt;
    }
    if (!lastPoll) {
        return Profile{.name = "device",
                       .apiUrl = enrollment->apiUrl,
                       .apiKey = "",
                       .agentSlug = std::nullopt,
                       .tenant = std::nullopt};
    }
    // The control plane did not know the device, or ORVANE_API_KEY is set.
    if (withoutDevice && pollUrl(*withoutDevice) == lastPoll->url) {
        return std::nullopt;
    }
    return Profile{.name = "device",
                   .apiUrl = lastPoll->url.substr(0, lastPoll->url.find(api::guardConfig)),
                   .apiKey = "",
                   .agentSlug = std::nullopt,
                   .tenant = std::nullopt};
}

}  // namespace

std::optional<Source> currentSource(const std::optional<Exchange>& lastPoll) {
    const auto withoutDevice = OrvaneConfig::currentProfile([] { return std::nullopt; });
    bool isInferred = false;
    const auto device = [&] {
        isInferred = DeviceIdentity::storedEnrollment().has_value();
        return inferredDevice(lastPoll, withoutDevice);
    };
    const auto profile = OrvaneConfig::currentProfile(device);
    if (!profile) {
        return std::nullopt;
    }
    return Source{.name = profile->name,
                  .apiUrl = withoutUserInfo(profile->apiUrl),
                  .isUrl = pollUrl(*profile).has_value(),
                  .isInferred = isInferred};
}

}  // namespace orvane::status
