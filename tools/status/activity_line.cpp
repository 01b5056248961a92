#include "status/activity_line.h"

#include "control_plane/api.h"
#include "control_plane/effective_config.h"
#include "control_plane/poll_request.h"
#include "platform/json/json_reader.h"

#include <algorithm>
#include <charconv>

namespace orvane::status {

namespace {

/// The number that the `count` digits of `text` from `first` on form.
int numberAt(std::string_view text, std::size_t first, std::size_t count) {
    int number = 0;
    (void)std::from_chars(text.data() + first, text.data() + first + count, number);
    return number;
}

/// Whether `text` is `form`, in which 0 means any digit.
bool hasForm(std::string_view text, std::string_view form) {
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char c, char wanted) {
        return wanted == '0' ? c >= '0' && c <= '9' : c == wanted;
    });
}

}  // namespace

std::optional<Time> parseTime(std::string_view text) {
    if (!hasForm(text, "0000-00-00T00:00:00.000Z")) {
        return std::nullopt;
    }
    const std::chrono::year_month_day day(
        std::chrono::year(numberAt(text, 0, 4)),
        std::chrono::month(static_cast<unsigned>(numberAt(text, 5, 2))),
        std::chrono::day(static_cast<unsigned>(numberAt(text, 8, 2))));
    if (!day.ok()) {
        return std::nullopt;
    }
    return std::chrono::sys_days(day).time_since_epoch() +
           std::chrono::hours(numberAt(text, 11, 2)) + std::chrono::minutes(numberAt(text, 14, 2)) +
           std::chrono::seconds(numberAt(text, 17, 2)) +
           std::chrono::milliseconds(numberAt(text, 20, 3));
}

std::optional<Exchange> parseActivityLine(std::string_view line) {
    const auto members =
        json::readObject(line, {"bytes", "daemon", "error", "ms", "status", "ts", "url"});
    if (!members || members->string("daemon") != "policy-daemon") {
        return std::nullopt;
    }
    const auto endedAt = parseTime(members->string("ts").value_or(""));
    const auto status = members->integer("status");
    auto url = members->string("url");
    if (!endedAt || !status || !url) {
        return std::nullopt;
    }
    const bool isPoll = url->find(api::guardConfig) != std::string::npos;
    if (!isPoll && url->find(api::effectiveConfig) == std::string::npos) {
        return std::nullopt;
    }
    return Exchange{.endedAt = *endedAt,
                    .isPoll = isPoll,
                    .status = *status,
                    .milliseconds = members->integer("ms").value_or(0),
                    .bytes = members->integer("bytes").value_or(0),
                    .url = std::move(*url),
                    .error = members->string("error").value_or("")};
}

}  // namespace orvane::status
