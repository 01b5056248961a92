// The policy poll: how it is asked and what its status means. All pure.
#pragma once

#include "config/orvane_config.h"
#include "platform/http/http_session.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The endpoint's path on the API.
inline constexpr std::string_view pollEndpoint = "/api/orvane/v1/connect/guard-config/";

/// How long the server is asked to hold a poll.
inline constexpr std::int64_t longPollSeconds = 300;

/// The conditional long-poll for `profile`, to be held up to `waitSeconds`; absent when the
/// profile's `apiUrl` is not a URL. `etag` is sent in double quotes (RFC 9110, 13.1.2) unless it
/// holds a control character: a poll that cannot be sent could never bring a better tag.
std::optional<HttpRequest> pollRequest(const OrvaneConfig::Profile& profile,
                                       const std::optional<std::string>& etag,
                                       std::int64_t waitSeconds);

/// Whether `etag` is too long to be sure that a poll with it gets through. Shorter ones always do.
bool isLongTag(const std::string& etag);

/// Whether `status` is what a poll with a long tag ends with when something on the way does not
/// take a header of that size: 400, 413, 414, 431, or 0 for none.
bool mayRefuseTag(std::int64_t status);

/// What a poll's status calls for.
enum class PollOutcome {
    updated,     ///< 200: there is a policy to store
    unchanged,   ///< 304
    rejected,    ///< 401, 403: the credentials are not good
    unexpected,  ///< anything else, 0 after a transport error included
};

PollOutcome outcomeOf(std::int64_t status);

}  // namespace orvane
