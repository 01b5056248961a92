// The effective guard configuration: what the server's cascade of policies comes to for this agent
// on this machine. The decisions about asking for it and keeping it; all pure.
#pragma once

#include "platform/http/http_session.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::guard {

/// The endpoint's path on the API.
inline constexpr std::string_view effectiveEndpoint = "/api/orvane/v1/guard/effective/";

/// The endpoint's address on the API at `apiUrl`; absent when that is not a URL.
std::optional<Url> effectiveUrl(std::string_view apiUrl);

/// The question at `url`. An absent or empty `agentSlug` and an empty `hardwareUuid` are left out
/// of the query.
HttpRequest effectiveRequest(const Url& url, const std::string& apiKey,
                             const std::optional<std::string>& agentSlug,
                             const std::string& hardwareUuid);

/// What an answer calls for.
enum class EffectiveOutcome {
    store,           ///< keep the body, byte for byte
    endpointAbsent,  ///< the control plane does not know the endpoint yet
    ignore,          ///< keep what is stored
};

/// Judges an answer by its status (0 for none) and body: only a 200 with a JSON object is stored.
EffectiveOutcome judgeEffective(std::int64_t status, const std::optional<std::string>& body);

}  // namespace orvane::guard
