// Times as text and as whole numbers. All pure, safe on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace orvane {

/// `sinceEpoch` as an ISO 8601 internet date-time in UTC with exactly three fractional digits, for
/// example 2026-11-16T07:13:43.123Z. Rounded to the nearest millisecond, carrying upwards.
std::string iso8601(std::chrono::nanoseconds sinceEpoch);

/// `seconds` times 1000, cut toward zero. A value that is not finite or does not fit ends the
/// process (abort): it would mean that the clock itself is broken.
std::int64_t wholeMilliseconds(double seconds);

}  // namespace orvane
