// The program's arguments.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace orvane {

/// What the program prints instead of running, if "--version" or "--help" is its only argument;
/// otherwise nullopt. All other arguments are ignored. Pure.
[[nodiscard]] std::optional<std::string> answerTo(std::span<const char* const> arguments);

}  // namespace orvane
