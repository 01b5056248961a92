// The command line.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace orvane::status {

enum class Format { text, json, prometheus };

struct Arguments {
    bool wantsHelp = false;
    bool wantsVersion = false;
    bool isForAll = false;  ///< every account, not just the one that runs this
    bool isPlain = false;
    Format format = Format::text;
};

/// Parses what follows the program's name; absent if it is not understood. Pure.
std::optional<Arguments> parseArguments(const std::vector<std::string_view>& words);

/// What --help prints.
std::string_view usage();

}  // namespace orvane::status
