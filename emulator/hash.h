#pragma once

#include <cstdint>
#include <string_view>

namespace orvane::emulator {

/// FNV-1a, 64 bits. Pure.
constexpr std::uint64_t hashOf(std::string_view content) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : content) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return hash;
}

}  // namespace orvane::emulator
