#pragma once

#include "emulator/fault.h"
#include "emulator/hang_ups.h"

#include <cstdint>
#include <vector>

namespace orvane::emulator {

/// The faults that are switched on, until their time is over.
class ActiveFaults {
  public:
    /// Switches `faults` on and all others off.
    void set(std::vector<Fault> faults, Clock::time_point now);
    /// Switches off those whose time is over; true if there were any.
    bool expire(Clock::time_point now);

    const std::vector<Fault>& list() const { return faults_; }
    /// When the next one is over; far in the future when none is limited.
    Clock::time_point nextEnd() const;
    /// Another number after each change.
    std::uint64_t version() const { return version_; }

  private:
    std::vector<Fault> faults_;
    std::vector<Clock::time_point> ends_;  // One for each.
    std::uint64_t version_ = 1;
};

}  // namespace orvane::emulator
