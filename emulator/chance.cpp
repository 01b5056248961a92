#include "emulator/chance.h"

#include "emulator/hash.h"

namespace orvane::emulator {
namespace {

/// One step of SplitMix64, which spreads each bit of its input over all of its output.
std::uint64_t mixed(std::uint64_t value) {
    value += 0x9e3779b97f4a7c15;
    value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9;
    value = (value ^ (value >> 27U)) * 0x94d049bb133111eb;
    return value ^ (value >> 31U);
}

}  // namespace

std::uint64_t chance(const Draw& draw, std::uint64_t limit) {
    std::uint64_t value = mixed(draw.seed);
    for (const std::uint64_t part : {hashOf(draw.device), draw.poll, draw.topic}) {
        value = mixed(value ^ part);
    }
    return value % limit;
}

}  // namespace orvane::emulator
