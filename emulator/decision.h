#pragma once

#include "emulator/policy.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace orvane::emulator {

/// Whom the control plane serves. A secret left empty matches nothing.
struct Account {
    std::string apiKey;       ///< What agents send as X-Orv-Key.
    std::string deviceToken;  ///< What a device sends as X-Orv-Device to be given `apiKey`.
    std::string tenantSlug;   ///< What it sends with it as X-Orv-Tenant.
    std::string agentSlug;    ///< The agent a device is told it belongs to.
    std::string agentType;    ///< That agent's type.
    std::string apiUrl;       ///< The base URL a device is told to use.
};

/// What a control plane does beyond answering.
struct Behavior {
    bool jitter = false;        ///< Polls are held for 80 to 100 % of the time that they ask for.
    unsigned failEvery = 0;     ///< Each poll whose number is a multiple is refused; 0 for none.
    unsigned failStatus = 503;  ///< With this status.
};

/// The parts of an HTTP request that an answer can depend on; texts are empty when absent.
struct Request {
    std::string method;
    std::string path;                          ///< Decoded, without the query.
    std::map<std::string, std::string> query;  ///< Decoded; the first of items of the same name.
    std::string apiKey;                        ///< Header X-Orv-Key.
    std::string device;                        ///< Header X-Orv-Device.
    std::string tenant;                        ///< Header X-Orv-Tenant.
    std::string ifNoneMatch;                   ///< Header If-None-Match, with its quotes.
    std::string body;                          ///< Cut off where it became too long.
    bool bodyTooLong = false;
};

/// Answer now.
struct Reply {
    unsigned status = 0;
    std::string body;   ///< JSON, or empty for an answer without a body.
    std::string allow;  ///< For the header Allow; empty for none.
};

/// Answer when the policy changes, or "304 Not Modified" once the request is this old.
struct Hold {
    std::chrono::seconds atMost{0};
};

/// Make this the policy and answer "204 No Content".
struct Accept {
    Policy policy;
};

using Decision = std::variant<Reply, Hold, Accept>;

/// Whether `request` asks for the policy, as agents do.
bool isPoll(const Request& request);

/// What to do about `request`, given whom we serve and the policy in force (if any).
/// A pure function: it keeps nothing, changes nothing and may be called on any thread.
Decision decide(const Request& request, const Account& account,
                const std::optional<Policy>& policy);

}  // namespace orvane::emulator
