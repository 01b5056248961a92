#pragma once

#include "emulator/check/outcome.h"
#include "platform/http/http_session.h"

#include <chrono>
#include <optional>

namespace orvane::emulator {

/// Sends requests as a daemon does, with its own HTTP client. Not thread-safe.
class Client {
  public:
    /// Sends `request` and waits for its end, but no longer than `patience`; the request is
    /// canceled then.
    Outcome ask(const HttpRequest& request, std::chrono::milliseconds patience);

  private:
    std::optional<HttpSession> session_;
};

}  // namespace orvane::emulator
