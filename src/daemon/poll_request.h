// The policy poll: how it is asked and what its status means. All pure.
#pragma once

#include "config/orvane_config.h"
#include "platform/http_session.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvane {

/// The conditional long-poll for `profile`, to be held up to `waitSeconds`; absent when the
/// profile's `apiUrl` is not a URL. `etag` is sent in double quotes (RFC 9110, 13.1.2) unless it
/// holds a control character: a poll that cannot be sent could never bring a better tag.
std::optional<HttpRequest> pollRequest(const OrvaneConfig::Profile& profile,
                                       const std::optional<std::string>& etag,
                                       std::int64_t waitSeconds);

/// What a poll's status calls for.
enum class PollOutcome {
    updated,     ///< 200: there is a policy to store
    unchanged,   ///< 304
    rejected,    ///< 401, 403: the credentials are not good
    unexpected,  ///< anything else, 0 after a transport error included
};

PollOutcome outcomeOf(std::int64_t status);

}  // namespace orvane
