// The program's arguments.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace orvane {

/// What the program prints instead of running: for "--version" or "--help" as the only argument
/// after its name. Absent for anything else, which is ignored: the daemon takes no arguments. Pure.
std::optional<std::string> answerTo(std::span<const char* const> arguments);

}  // namespace orvane
