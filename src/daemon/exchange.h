// A blocking HTTP exchange that is recorded in the activity log.
#pragma once

#include "platform/http/http_session.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace orvane {

/// The result of an exchange.
struct ExchangeResult {
    std::int64_t status = 0;           ///< 0 without a response
    std::optional<std::string> body;   ///< absent unless it arrived completely
    std::optional<std::string> error;  ///< the transport's, human-readable
};

/// Whether a status counts if the response ended early, after its header.
enum class PartialResponse { discard, keep };

using ErrorHandler = std::function<void(const std::string& error)>;

/// Sends `request` on `session`, blocks until the exchange has ended (the session's limits ensure
/// that), and appends a line to the activity log. A transport error is passed to `onError` before
/// that line is written.
ExchangeResult exchange(HttpSession& session, const HttpRequest& request, PartialResponse partial,
                        const ErrorHandler& onError = nullptr);

}  // namespace orvane
