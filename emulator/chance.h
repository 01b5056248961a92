#pragma once

#include <cstdint>
#include <string_view>

namespace orvane::emulator {

/// Where in a sequence of random numbers one is: each device has a sequence of its own, so that
/// what happens to it does not depend on what others do meanwhile.
struct Draw {
    std::uint64_t seed = 0;
    std::string_view device;
    std::uint64_t poll = 0;  ///< The number of the device's poll.
    std::uint64_t topic =
        0;  ///< What it is drawn for: numbers of one poll do not depend on each other.
};

/// A random number from 0 to `limit` - 1, the same for the same draw. Pure.
std::uint64_t chance(const Draw& draw, std::uint64_t limit);

}  // namespace orvane::emulator
