#include "daemon/exchange.h"

#include "activity/activity_log.h"
#include "platform/http/semaphore.h"
#include "platform/machine/clock.h"
#include "platform/text/timestamp.h"

#include <memory>
#include <utility>

namespace orvane {

namespace {

/// Shared with the completion, which still holds it while it signals.
struct PendingExchange {
    Semaphore done{0};
    ExchangeResult cells;
};

std::int64_t millisecondsSince(clock::TimePoint start) {
    return wholeMilliseconds(std::chrono::duration<double>(clock::monotonicNow() - start).count());
}

}  // namespace

ExchangeResult exchange(HttpSession& session, const HttpRequest& request, FillCells fill) {
    const auto pending = std::make_shared<PendingExchange>();
    const auto start = clock::monotonicNow();
    session.send(request, [pending, fill = std::move(fill)](HttpResult result) {
        fill(std::move(result), pending->cells);
        pending->done.signal();
    });
    while (!pending->done.waitUntil(clock::monotonicNow() + session.completionLimit())) {
        session.endFlood();
    }
    const std::int64_t ms = millisecondsSince(start);
    ExchangeResult result = std::move(pending->cells);
    const auto bytes = static_cast<std::int64_t>(result.body ? result.body->size() : 0);
    ActivityLog::record("GET", request.url.text(), result.status, ms, bytes, "", result.error);
    return result;
}

}  // namespace orvane
