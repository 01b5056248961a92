// Replaces platform/machine/clock: time that tests move. Sleeping returns at once and advances it.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace orvane::virtual_clock {

/// Moves the monotonic clock forward. Threads that block on a deadline notice within milliseconds.
void advance(std::chrono::nanoseconds by);

/// From now on the monotonic clock moves by `advance` and by sleeping alone, however long a busy
/// machine takes for the test.
void stop();

/// Fixes the wall clock at `sinceEpoch`; absent lets it follow the machine's.
void setWallClock(std::optional<std::chrono::nanoseconds> sinceEpoch);

/// The lengths, in seconds, of all sleeps since the last `reset`.
std::vector<double> sleeps();

/// For a hook to throw: the daemon's loop has no end of its own.
struct EndOfLoop {};

/// Called at the end of every sleep, on the thread that sleeps; may throw.
void onSleep(std::function<void(double seconds)> hook);

/// Back to the machine's time, no sleeps, no hook.
void reset();

}  // namespace orvane::virtual_clock
