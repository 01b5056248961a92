// The activity log: one JSON line for every policy poll and every fetch of the effective
// configuration, but none for a device-identity lookup.
#pragma once

#include <cstdint>
#include <string_view>

namespace orvane {

/// Appends to ~/.orvane/logs/policy-daemon.activity.jsonl, a JSON Lines file that other tools tail.
/// The daemon never truncates, rotates or caps it, and opens it for each line, so it may be renamed
/// at any time.
struct ActivityLog {
    ActivityLog() = delete;

    /// One exchange, in the order of `record`'s line.
    struct Exchange {
        std::string_view method{};
        std::string_view url{};
        std::int64_t status = 0;     ///< HTTP status, 0 without a response
        std::int64_t ms = 0;         ///< duration in milliseconds
        std::int64_t bytes = 0;      ///< length of the decoded body
        std::string_view summary{};  ///< omitted if empty
        std::string_view error{};    ///< human-readable; omitted if empty
    };

    /// Records one exchange. May be called from any thread. Never fails and reports nothing: a line
    /// that cannot be written is lost.
    ///
    /// If the file cannot be opened for appending, usually because it does not exist yet, it is
    /// replaced by a file with this one line.
    static void record(const Exchange& exchange) noexcept;
};

}  // namespace orvane
