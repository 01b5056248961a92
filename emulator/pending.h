// A request to the local control plane as libmicrohttpd hands it over, piece by piece.
#pragma once

#include "emulator/decision.h"
#include "emulator/exchange.h"
#include "emulator/hang_ups.h"

#include <microhttpd.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::emulator {

/// A request on its way to an answer. The HTTP library carries it along with the connection.
struct Pending {
    explicit Pending(std::string target) { exchange.target = std::move(target); }

    const Clock::time_point arrived = Clock::now();
    Request request;
    Exchange exchange;
    bool headersRead = false;
    bool isHeld = false;       // Has been, at least once.
    bool gone = false;         // The peer hung up while it was held.
    bool isOver = false;       // What became of it has been noted.
    std::uint64_t number = 0;  // Of a poll among its device's, once it is counted.
    bool isRefused = false;    // For its number among all polls.
    std::optional<std::chrono::milliseconds> hold;  // How long at most, once that is decided.
    std::chrono::seconds lateBy{0};                 // How late an answer has to be sent.
    std::optional<Clock::time_point> answerAt;      // When, once there is an answer.
};

/// Fills in what the request line and the headers say.
void readHeaders(MHD_Connection* connection, const char* method, const char* path,
                 Pending& pending);

/// Appends to the body, or notes that it is too long.
void readBody(std::string_view bytes, Request& request);

}  // namespace orvane::emulator
