#pragma once

#include "emulator/decision.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace orvane::emulator {

/// What the program `orvane-control-plane` is asked to do.
struct Flags {
    bool help = false;
    std::uint16_t port = 0;
    Account account;
    Behavior behavior;
    std::filesystem::path policy;  ///< Empty: none, as with the paths below.
    std::filesystem::path portFile;
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
};

/// Reads the arguments that follow the program's name; nothing when they make no sense.
std::optional<Flags> readFlags(std::span<const char* const> arguments);

/// What `--help` prints, ending with a line feed.
const char* usage();

}  // namespace orvane::emulator
