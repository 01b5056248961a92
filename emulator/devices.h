#pragma once

#include "emulator/exchange.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace orvane::emulator {

/// What is known of each device: its polls that are held, its last exchanges. Not thread-safe.
///
/// A device is what sends one agent slug; those without any are one. The oldest of more than
/// `maxDevices` are forgotten.
class Devices {
  public:
    using WallClock = std::chrono::system_clock;
    static constexpr std::size_t maxDevices = 20'000;
    static constexpr std::size_t timelineLength = 20;

    /// The number of the device's next poll, counted from 1.
    std::uint64_t nextPoll(const std::string& device);

    /// A request of `exchange.device` begins to be held, or goes on to be.
    void held(const Exchange& exchange, bool begins, WallClock::time_point now);

    /// An exchange has its answer, or ended without one. `wasHeld` says whether it was held.
    void ended(const Exchange& exchange, bool wasHeld, WallClock::time_point now);

    /// Devices that have changed since `version`, at most `most` of them, those that changed first
    /// first: a JSON array, and the version up to which they are in it. Versions begin at 0.
    std::pair<std::string, std::uint64_t> changedSince(std::uint64_t version,
                                                       std::size_t most) const;

    /// The version now.
    std::uint64_t version() const { return version_; }

    /// The last exchanges of a device, the newest last: a JSON array, empty for an unknown device.
    std::string timeline(const std::string& name) const;

  private:
    struct Event {
        WallClock::time_point at;
        Exchange exchange;
    };
    struct Device {
        std::uint64_t polls = 0;
        unsigned held = 0;
        WallClock::time_point heldSince;
        std::chrono::seconds wait{0};
        bool hasIdentity = false;  // It was enrolled by a device identity.
        std::string fault;         // The one that struck what is held.
        WallClock::time_point lastSeen;
        std::string tag;  // What its last poll had in If-None-Match.
        std::deque<Event> timeline;
        std::uint64_t version = 0;
    };

    Device& deviceOf(const std::string& name);
    void touch(const std::string& name, Device& device, WallClock::time_point now);
    static std::string rowText(const std::string& name, const Device& device);

    std::map<std::string, Device> devices_;
    std::set<std::pair<std::uint64_t, std::string>> byVersion_;
    std::uint64_t version_ = 0;
};

}  // namespace orvane::emulator
