// A log message as a line on standard error.
#pragma once

#include "platform/log/logger.h"

#include <string_view>

namespace orvane {

/// Writes "TIME LEVEL CATEGORY PID MESSAGE" and a line feed, in one write if possible, so that the
/// lines of two threads do not mix. What cannot be written is lost.
void writeMessageLine(LogLevel level, std::string_view category, std::string_view message);

}  // namespace orvane
