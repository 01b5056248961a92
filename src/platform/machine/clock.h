// The machine's clocks. Declared once; defined in clock_machine.cpp for the daemon and in a fake
// for tests, which sets the time. The choice is made when a program is linked.
#pragma once

#include <chrono>

namespace orvane::clock {

/// A time on the monotonic clock, which also advances while the machine sleeps.
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

/// Now, on the monotonic clock. Safe on any thread.
TimePoint monotonicNow();

/// Now, on the wall clock: time since 1970-01-01T00:00:00Z. May jump either way. Safe on any
/// thread.
std::chrono::nanoseconds sinceEpoch();

/// Blocks the calling thread for `seconds`. Time during which the machine sleeps counts.
void sleep(double seconds);

/// How long a thread may block before it has to check `deadline` again: at most one millisecond
/// past it; 0 if it has passed. A wait whose timeout does not count the machine's sleep needs a
/// ContinuousTimer as well.
std::chrono::milliseconds blockLimit(TimePoint deadline);

}  // namespace orvane::clock
