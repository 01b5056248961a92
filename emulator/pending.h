// A request to the local control plane as libmicrohttpd hands it over, piece by piece.
#pragma once

#include "emulator/control_plane.h"
#include "emulator/decision.h"

#include <microhttpd.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::emulator {

using Clock = std::chrono::steady_clock;

/// A request on its way to an answer. The HTTP library carries it along with the connection.
struct Pending {
    explicit Pending(std::string target) { exchange.target = std::move(target); }

    const Clock::time_point arrived = Clock::now();
    Request request;
    Exchange exchange;
    bool headersRead = false;
    bool counted = false;                           // Among the polls.
    std::optional<std::chrono::milliseconds> hold;  // How long at most, once that is decided.
};

/// Fills in what the request line and the headers say.
void readHeaders(MHD_Connection* connection, const char* method, const char* path,
                 Pending& pending);

/// Appends to the body, or notes that it is too long.
void readBody(std::string_view bytes, Request& request);

/// Queues the answer; MHD_NO, on which the library closes the connection, when there is no memory.
MHD_Result send(MHD_Connection* connection, Reply reply);

}  // namespace orvane::emulator
