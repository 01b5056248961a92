// The program.
#pragma once

#include <string_view>
#include <vector>

namespace orvane::status {

/// Does what the command line says, and returns the exit status.
int run(const std::vector<std::string_view>& words);

}  // namespace orvane::status
