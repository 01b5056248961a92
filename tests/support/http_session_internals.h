// What only tests may reach of an HTTP session.
#pragma once

#include "platform/http/http_session.h"
#include "platform/http/worker.h"

#include <chrono>

namespace orvane {

struct HttpSessionInternals {
    static constexpr std::chrono::seconds grace = HttpSession::Worker::grace;

    static void endFlood(HttpSession& session) { session.worker_->endFlood(); }

    static std::chrono::milliseconds completionLimit(const HttpSession& session) {
        return session.worker_->completionLimit();
    }
};

}  // namespace orvane
