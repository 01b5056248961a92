// A log message as people read it on standard error.
#pragma once

#include "platform/log/logger.h"

#include <string_view>

namespace orvane {

/// Writes "TIME LEVEL CATEGORY PID TEXT" and a line feed, in one write, so that lines of two
/// threads do not mix. What cannot be written is lost.
void writeMessageLine(LogLevel level, std::string_view category, std::string_view message);

}  // namespace orvane
