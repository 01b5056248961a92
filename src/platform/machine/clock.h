// The machine's clocks. Declared once, defined in clock_machine.cpp for the daemon and in a twin
// whose time the tests set; which one a program gets is decided when it is linked.
#pragma once

#include <chrono>

namespace orvane::clock {

/// A point on a clock that only moves forward, while the machine sleeps too, and that no one can
/// set.
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

/// Now, on the monotonic clock. Safe on any thread.
TimePoint monotonicNow();

/// The wall clock: time since 1970-01-01T00:00:00Z. May step either way. Safe on any thread.
std::chrono::nanoseconds sinceEpoch();

/// Blocks the calling thread for `seconds`, those included for which the machine sleeps.
void sleep(double seconds);

/// How long a thread may block before `deadline` has to be looked at again: never beyond it by more
/// than a millisecond, 0 when it has passed. What blocks with a limit of time awake takes a
/// ContinuousTimer as well.
std::chrono::milliseconds blockLimit(TimePoint deadline);

}  // namespace orvane::clock
