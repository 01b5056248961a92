// Time that goes on while the machine sleeps: what systems spell differently of clocks.
#pragma once

#include "platform/files/descriptor.h"

#include <chrono>

namespace orvane {

/// Time since some moment before this process began, the machine's sleep included. Safe on any
/// thread.
std::chrono::nanoseconds continuousTime();

/// A descriptor that becomes readable at a moment in continuous time. The time limits of poll(2)
/// and its like count only time awake, so what waits for long waits for this as well, and then
/// knows at once when the machine has slept through the moment. For one thread.
class ContinuousTimer {
  public:
    /// Not readable before `fromNow` has gone by, whatever was set before; 0 is never. Tried again
    /// the next time when there is no descriptor to be had now.
    void set(std::chrono::milliseconds fromNow);

    /// To wait for; -1, which poll(2) passes over, when there is none.
    [[nodiscard]] int descriptor() const { return descriptor_.number(); }

  private:
    Descriptor descriptor_;
};

}  // namespace orvane
