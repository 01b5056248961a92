#pragma once

#include <string>
#include <string_view>

namespace orvane::emulator {

/// A guard policy as the control plane hands it out. A plain value.
struct Policy {
    std::string text;         ///< The JSON object that agents receive, byte for byte.
    std::string etag;         ///< its ETag, never empty, without quotes
    std::string guardConfig;  ///< Its member "guard_config" as JSON, "{}" when it has none.
};

/// Makes a policy of `text`, JSON. Throws BadInput, which says where the mistake is, when that is
/// not a JSON object or is nested absurdly deep.
///
/// A policy whose member "etag" is a non-empty string is handed out exactly as given. Any other
/// gets an ETag derived from its content as its first member: without one, agents could not ask
/// conditionally and every one of them would fetch it again at once.
Policy readPolicy(std::string_view text);

/// The same policy with another ETag.
Policy withTag(const Policy& policy, const std::string& tag);

/// The policy's text without an ETag.
std::string textWithoutTag(const Policy& policy);

}  // namespace orvane::emulator
