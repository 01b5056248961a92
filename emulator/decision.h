// What to do about a request: a value, computed by a pure function from what is known.
#pragma once

#include "emulator/fault.h"
#include "emulator/policy.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvane::emulator {

/// Whom the control plane serves. A secret left empty matches nothing.
struct Account {
    std::string apiKey{};       ///< What agents send as X-Orv-Key.
    std::string deviceToken{};  ///< What a device sends as X-Orv-Device to be given `apiKey`.
    std::string tenantSlug{};   ///< What it sends with it as X-Orv-Tenant.
    std::string agentSlug{};    ///< The agent slug sent to devices.
    std::string agentType{};    ///< That agent's type.
    std::string apiUrl{};       ///< The base URL sent to devices.
};

/// The parts of an HTTP request that an answer can depend on; strings are empty when absent.
struct Request {
    std::string method;
    std::string path;                          ///< Decoded, without the query.
    std::map<std::string, std::string> query;  ///< Decoded; the first of items of the same name.
    std::string apiKey;                        ///< Header X-Orv-Key.
    std::string device;                        ///< Header X-Orv-Device.
    std::string tenant;                        ///< Header X-Orv-Tenant.
    std::string ifNoneMatch;                   ///< Header If-None-Match, with its quotes.
    std::string host;                          ///< Header Host.
    std::string origin;                        ///< Header Origin.
    std::string body;                          ///< Cut off where it became too long.
    bool bodyTooLong = false;
    bool isHttp2 = false;  ///< Between the agent and the front.
};

/// The item `name` of the query; empty when there is none.
std::string queryItem(const Request& request, const std::string& name);

/// What comes after a reply's body, up to the length that its header promises.
enum class Rest : std::uint8_t {
    nothing,  ///< The body is all there is.
    lost,     ///< The connection ends before the rest.
    spaces    ///< The rest is spaces.
};

/// Answer now.
struct Reply {
    unsigned status = 0;
    std::string body{};  ///< Empty for an answer without one.
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers{};  ///< Beside Content-Type.
    Rest rest = Rest::nothing;
    std::uint64_t promised = 0;  ///< The length in the header, if there is a rest.
};

/// `{"error": why}` with the status.
Reply refusal(unsigned status, const std::string& why);

/// Answer when the policy changes, or "304 Not Modified" once the request is this old.
struct Hold {
    std::chrono::seconds atMost{0};
};

/// Keep the connection and say nothing.
struct Silence {};

/// Send these bytes, which need not be HTTP, and close the connection.
struct Drop {
    std::string bytes;
};

/// Make this the policy and answer "204 No Content".
struct Accept {
    Policy policy;
};

/// Switch these faults on and all others off, and answer "204 No Content".
struct Misbehave {
    std::vector<Fault> faults;
};

/// Send events until the connection ends.
struct Stream {};

using Decision = std::variant<Reply, Hold, Silence, Drop, Accept, Misbehave, Stream>;

}  // namespace orvane::emulator
