// One HTTP exchange as the caller sees it: synchronous, and on record.
#pragma once

#include "platform/http/http_session.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace orvane {

/// The cells that a completion fills and the waiting thread reads.
struct ExchangeResult {
    std::int64_t status = 0;           ///< 0 without an HTTP response
    std::optional<std::string> body;   ///< absent without a whole one
    std::optional<std::string> error;  ///< of the transport, for people
};

/// Decides what of a transport's result goes into the cells. Called on the session's thread.
using FillCells = std::function<void(HttpResult result, ExchangeResult& cells)>;

/// Sends `request` on `session`, blocks without limit until its completion has run `fill` (the
/// session's own limits end every exchange), and writes the exchange's line to the activity log.
ExchangeResult exchange(HttpSession& session, const HttpRequest& request, FillCells fill);

}  // namespace orvane
