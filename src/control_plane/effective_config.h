// The effective guard configuration: the result of the server's policy cascade for this agent and
// machine. Building the request, interpreting the response. Pure functions.
#pragma once

#include "control_plane/profile.h"
#include "platform/http/http_session.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The endpoint's URL on the API at `apiUrl`; absent if that is not a URL.
[[nodiscard]] std::optional<Url> effectiveUrl(std::string_view apiUrl);

/// The request to `url` with the profile's key. An absent or empty agent slug and an empty
/// `hardwareUuid` are left out of the query.
[[nodiscard]] HttpRequest effectiveRequest(const Url& url, const Profile& profile,
                                           const std::string& hardwareUuid);

/// What a response calls for.
enum class EffectiveOutcome {
    store,           ///< keep the body, byte for byte
    endpointAbsent,  ///< the control plane does not know the endpoint yet
    ignore,          ///< keep what is stored
};

/// Judges a response by its status (0 for none) and body: only a 200 with a JSON object is stored.
EffectiveOutcome judgeEffective(std::int64_t status, const std::optional<std::string>& body);

}  // namespace orvane
