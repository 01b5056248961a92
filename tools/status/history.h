// What the activity log says about the last day.
#pragma once

#include "status/activity_line.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace orvane::status {

/// The polls of one hour.
struct Hour {
    std::int64_t polls = 0;
    std::int64_t failed = 0;
};

inline constexpr std::size_t hoursInHistory = 24;

struct History {
    std::optional<Exchange> lastPoll;
    std::optional<Time> lastGoodPoll;        ///< when it ended
    std::optional<Exchange> lastUpdate;      ///< the last poll that was answered with 200
    std::optional<Exchange> lastEffective;   ///< the last fetch of the effective configuration
    Hour day;                                ///< the last 24 hours
    std::array<Hour, hoursInHistory> hours;  ///< the same by hours, the current one first
    std::optional<Time> countedSince;        ///< if the log was too long to count 24 hours
};

/// Whether the response with status 200 that ended at `endedAt` has been stored in a file that was
/// last written at `storedAt`. The first seconds after a response count as stored: storing it may
/// be in progress. Pure.
bool wasStored(Time endedAt, const std::optional<Time>& storedAt, Time now);

/// Whether a poll went well: it was answered with 304, or with a policy that was stored (at
/// `policyStoredAt`, if any). Pure.
bool isGood(const Exchange& poll, const std::optional<Time>& policyStoredAt, Time now);

/// Collects a history from exchanges, the latest one first.
class HistoryReader {
  public:
    HistoryReader(std::optional<Time> policyStoredAt, Time now);

    /// Returns whether older exchanges can add anything.
    bool add(const Exchange& exchange);

    /// What has been collected; `isWhole` unless older exchanges were left unread.
    [[nodiscard]] History result(bool isWhole) const;

  private:
    std::optional<Time> policyStoredAt_;
    Time now_;
    History history_;
    std::optional<Time> oldest_;
};

/// The result of reading the log files.
struct LoggedHistory {
    History history;
    bool isReadable = true;  ///< false if there is a log that cannot be read
};

/// Reads the activity log in `directory` and the newest rotated one, from their ends. Reads 1 MiB
/// at most, whatever their size, and holds a fraction of it.
LoggedHistory readHistory(const std::filesystem::path& directory,
                          const std::optional<Time>& policyStoredAt, Time now);

}  // namespace orvane::status
