// Whether a daemon is well.
#pragma once

#include "status/facts.h"

#include <string>
#include <string_view>

namespace orvane::status {

/// The values are the exit statuses that monitoring systems expect of a check.
enum class Level {
    healthy = 0,
    degraded = 1,
    notWorking = 2,
    unknown = 3,
};

struct Verdict {
    Level level = Level::healthy;
    std::string problem;  ///< a fixed word for programs; empty if healthy
    std::string reason;   ///< the problem in words
    std::string advice;   ///< what to do
};

/// How long ago the last good poll may have ended: the longest poll, and one that is cut off.
inline constexpr std::chrono::seconds goodPollLimit(690);

/// The most serious problem that the facts show. Pure.
Verdict judge(const Facts& facts);

/// "healthy", "degraded", "not working" or "unknown".
std::string_view nameOf(Level level);

/// The more serious of two: not working, degraded, unknown, healthy.
Level worse(Level a, Level b);

}  // namespace orvane::status
