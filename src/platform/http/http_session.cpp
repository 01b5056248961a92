#include "platform/http/http_session.h"

#include "platform/http/worker.h"

#include <utility>

namespace orvane {

HttpSession::HttpSession(HttpLimits limits) : worker_(std::make_unique<Worker>(limits)) {}

HttpSession::~HttpSession() = default;

void HttpSession::send(HttpRequest request, HttpCompletion completion) {
    worker_->send(std::move(request), std::move(completion));
}

std::chrono::milliseconds HttpSession::completionLimit() const {
    return worker_->completionLimit();
}

void HttpSession::endFlood() {
    worker_->endFlood();
}

HttpSession& HttpSession::shared() {
    // The default limits of the reference platform are a minute of silence and a week in all. A
    // week of lingering answers nobody waits for would pile up connections; six minutes is all that
    // any exchange of this program gets.
    static constexpr HttpLimits limits{std::chrono::seconds(60), std::chrono::seconds(360)};
    static auto* const session =
        new HttpSession(limits);  // NOLINT(cppcoreguidelines-owning-memory)
    return *session;
}

}  // namespace orvane
