#include "platform/http/http_session.h"

#include "platform/http/semaphore.h"
#include "platform/http/worker.h"
#include "platform/machine/clock.h"
#include "platform/process/guarded.h"

#include <mutex>
#include <utility>

namespace orvane {

namespace {

/// Where a result waits for the thread that requested it. Shared with the completion, which may
/// come after that thread has given up; the mutex is for that case alone.
class PendingResult {
  public:
    void put(HttpResult result) {
        {
            const std::lock_guard lock(mutex_);
            result_ = std::move(result);
        }
        done_.signal();
    }

    Semaphore& done() { return done_; }

    std::optional<HttpResult> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(result_, std::nullopt);
    }

  private:
    Semaphore done_{0};
    std::mutex mutex_;
    std::optional<HttpResult> result_ ORVANE_GUARDED_BY(mutex_);
};

std::shared_ptr<PendingResult> start(HttpSession& session, HttpRequest request) {
    auto pending = std::make_shared<PendingResult>();
    session.send(std::move(request),
                 [pending](HttpResult result) { pending->put(std::move(result)); });
    return pending;
}

}  // namespace

HttpSession::HttpSession(HttpLimits limits) : worker_(std::make_unique<Worker>(limits)) {}

HttpSession::~HttpSession() = default;

void HttpSession::send(HttpRequest request, HttpCompletion completion) {
    worker_->send(std::move(request), std::move(completion));
}

HttpResult HttpSession::perform(HttpRequest request) {
    const auto pending = start(*this, std::move(request));
    while (!pending->done().waitUntil(clock::monotonicNow() + worker_->completionLimit())) {
        worker_->endFlood();
    }
    return pending->take().value();
}

std::optional<HttpResult> HttpSession::performWithin(HttpRequest request,
                                                     std::chrono::milliseconds limit) {
    const auto pending = start(*this, std::move(request));
    if (!pending->done().waitFor(limit)) {
        worker_->endFlood();
    }
    return pending->take();  // there may be one even now
}

HttpSession& HttpSession::shared() {
    // Usual HTTP clients allow a minute of inactivity and a week in all. Over a week, responses
    // that nobody waits for any longer would pile up; no exchange of this program gets more than
    // six minutes.
    static constexpr HttpLimits limits{.inactivity = std::chrono::seconds(60),
                                       .total = std::chrono::seconds(360)};
    static auto* const session =
        // branch of a race: another thread initializes it
        new HttpSession(limits);  // NOLINT(cppcoreguidelines-owning-memory)
    return *session;
}

}  // namespace orvane
