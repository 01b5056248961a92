// The program.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace orvane::status {

/// Does what the command line says for `user`, who runs it, and returns the exit status.
int run(const std::vector<std::string_view>& words, std::uint32_t user);

}  // namespace orvane::status
