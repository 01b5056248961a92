// States, times, durations and foreign strings, in words. All pure.
#pragma once

#include "status/facts.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvane::status {

/// The fixed name of a state, such as "not installed".
std::string_view nameOf(ServiceState state);

/// How units are written: "3 d 4 h", or "3 days 4 hours".
enum class Units { abbreviated, spelledOut };

/// A duration in its one or two largest units. A negative one counts as 0.
std::string inWords(std::chrono::nanoseconds duration, Units units);

/// Local time with seconds, such as 2026-11-21 22:04:59.
std::string localTime(Time time);

/// "1 poll", "2 polls".
std::string counted(std::int64_t count, std::string_view noun);

/// `text` without anything that a terminal would interpret, and with at most `most` characters.
std::string printable(std::string_view text, std::size_t most);

/// `url` without the user name and password that may be in it.
std::string withoutUserInfo(std::string_view url);

/// `text` in lines of at most `width` columns where it has spaces to break it at; all lines but the
/// first one are indented by `indent`, and the first one begins at `column`. Sequences that color
/// it take no columns.
std::string wrapped(std::string_view text, std::size_t column, std::size_t indent,
                    std::size_t width);

}  // namespace orvane::status
