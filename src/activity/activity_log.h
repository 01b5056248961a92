// The activity log: one JSON line for every policy poll and every fetch of the effective
// configuration. The lookup of the device identity leaves none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Appends to ~/.orvane/logs/policy-daemon.activity.jsonl, a JSON Lines file that other tools tail.
/// The daemon never truncates, rotates or caps it, and opens it anew for each line, so it may be
/// renamed away at any time.
struct ActivityLog {
    ActivityLog() = delete;

    /// Records one exchange.
    ///
    /// `status` is the HTTP status, 0 without a response; `ms` its duration in milliseconds;
    /// `bytes` the length of the decoded body. An empty `summary` and an absent or empty `error`
    /// leave their members out. May be called from any thread; never fails outward and reports
    /// nothing: a line that cannot be written is lost.
    ///
    /// A file that cannot be opened for appending, as a rule because there is none yet, is replaced
    /// as a whole by this one line.
    static void record(std::string_view method, std::string_view url, std::int64_t status,
                       std::int64_t ms, std::int64_t bytes, std::string_view summary,
                       const std::optional<std::string>& error) noexcept;
};

}  // namespace orvane
