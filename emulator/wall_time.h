#pragma once

#include <chrono>
#include <string>

namespace orvane::emulator {

/// `time` in UTC with milliseconds, for example 2026-11-21T02:14:00.123Z.
std::string wallTime(std::chrono::system_clock::time_point time);

}  // namespace orvane::emulator
