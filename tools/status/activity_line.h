// One line of the activity log.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::status {

/// Since 1970-01-01T00:00:00Z.
using Time = std::chrono::nanoseconds;

/// An HTTP exchange of the daemon, as recorded in the activity log.
struct Exchange {
    Time endedAt{};
    bool isPoll = false;  ///< otherwise a fetch of the effective configuration
    std::int64_t status = 0;
    std::int64_t milliseconds = 0;
    std::int64_t bytes = 0;
    std::string url;
    std::string error;  ///< empty if there was none
};

/// Parses `line`. Absent if it is torn, or not a line of the daemon's own. Pure.
std::optional<Exchange> parseActivityLine(std::string_view line);

/// The time in an ISO 8601 text such as 2026-11-16T07:13:43.123Z; absent for any other form. Pure.
std::optional<Time> parseTime(std::string_view text);

}  // namespace orvane::status
