#pragma once

#include "emulator/control_plane.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orvane::emulator {

/// What the program `orvane-control-plane` is asked to do.
struct Flags {
    bool help = false;
    bool version = false;
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;
    Account account{.apiKey = "local-key"};
    Behavior behavior;  ///< Its seed counts only if `seed` is set.
    std::optional<std::uint64_t> seed;
    std::vector<Fault> faults;
    std::filesystem::path policy;  ///< Empty: none, as with the paths below.
    std::filesystem::path portFile;
    std::filesystem::path record;
    std::filesystem::path tlsDirectory;
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
    std::string checkedUrl;           ///< The control plane to check; empty to be one.
    std::filesystem::path authority;  ///< What to trust when that is checked.
    std::chrono::seconds wait{5};     ///< How long to wait for its answers.
};

/// Reads the arguments that follow the program's name. Throws BadInput when they make no sense.
Flags readFlags(std::span<const char* const> arguments);

/// What `--help` prints, ending with a line feed.
const char* usage();

}  // namespace orvane::emulator
