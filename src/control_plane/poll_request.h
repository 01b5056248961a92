// The policy poll: building the request, interpreting the status. Pure functions.
#pragma once

#include "control_plane/profile.h"
#include "platform/http/http_session.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace orvane {

/// How long the server is asked to hold a poll. An idle device then sends twelve an hour; a longer
/// hold would save little, and more proxies and firewalls would drop the connection meanwhile.
inline constexpr std::int64_t longPollSeconds = 300;

/// The limits of a session that polls: longer than the server holds a poll, so that we never cut
/// off a held one: 30 s for its response to arrive, and 30 s more for a large body.
inline constexpr HttpLimits pollLimits{.inactivity = std::chrono::seconds(longPollSeconds + 30),
                                       .total = std::chrono::seconds(longPollSeconds + 60)};

/// The conditional long-poll for `profile`, to be held up to `waitSeconds`; absent if the profile's
/// `apiUrl` is not a URL. `etag` is sent in double quotes (RFC 9110, 13.1.2) unless it contains a
/// control character: otherwise the poll could never be sent and the ETag never replaced.
[[nodiscard]] std::optional<HttpRequest> pollRequest(const Profile& profile,
                                                     const std::optional<std::string>& etag,
                                                     std::int64_t waitSeconds);

/// Whether `etag` is so long that a proxy or server may refuse a poll with it. Shorter ones always
/// get through.
bool isLongEtag(const std::string& etag);

/// Whether `status` is one that a poll with a long ETag ends with if a header of that size is
/// refused: 400, 413, 414, 431, or 0 for none.
bool mayRefuseEtag(std::int64_t status);

/// What a poll's status calls for.
enum class PollOutcome {
    updated,     ///< 200: there is a policy to store
    unchanged,   ///< 304
    rejected,    ///< 401, 403: credentials rejected
    unexpected,  ///< anything else, including 0 after a transport error
};

PollOutcome outcomeOf(std::int64_t status);

}  // namespace orvane
