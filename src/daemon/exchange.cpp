#include "daemon/exchange.h"

#include "activity/activity_log.h"
#include "platform/machine/clock.h"
#include "platform/text/timestamp.h"

#include <string_view>
#include <utility>

namespace orvane {

namespace {

std::int64_t millisecondsSince(clock::TimePoint start) {
    return wholeMilliseconds(std::chrono::duration<double>(clock::monotonicNow() - start).count());
}

ExchangeResult resultOf(HttpResult outcome, PartialResponse partial) {
    ExchangeResult result;
    result.error = outcome.error();
    if (!result.error || partial == PartialResponse::keep) {
        if (auto response = outcome.takeResponse()) {
            result.status = response->status;
            result.body = std::move(response->body);
        }
    }
    return result;
}

}  // namespace

ExchangeResult exchange(HttpSession& session, const HttpRequest& request, PartialResponse partial,
                        const ErrorHandler& onError) {
    const auto start = clock::monotonicNow();
    ExchangeResult result = resultOf(session.perform(request), partial);
    const std::int64_t ms = millisecondsSince(start);
    if (result.error && onError) {
        onError(*result.error);
    }
    ActivityLog::record({.method = "GET",
                         .url = request.url.text(),
                         .status = result.status,
                         .ms = ms,
                         .bytes = static_cast<std::int64_t>(result.body ? result.body->size() : 0),
                         .summary = "",
                         .error = result.error ? std::string_view(*result.error) : ""});
    return result;
}

}  // namespace orvane
