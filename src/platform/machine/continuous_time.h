// A clock that advances while the machine sleeps, and a timer on it; differs between systems.
#pragma once

#include "platform/files/descriptor.h"

#include <chrono>

namespace orvane {

/// Time since some moment before this process started, including the machine's sleep. Safe on any
/// thread.
std::chrono::nanoseconds continuousTime();

/// A descriptor that becomes readable at a moment in continuous time. The timeout of poll(2) does
/// not count the machine's sleep, so a long wait polls this as well, and then wakes up at once if
/// the machine has slept through the moment. Not thread-safe.
class ContinuousTimer {
  public:
    /// Makes it readable after `fromNow`, whatever was set before; 0 means never. If no descriptor
    /// is available now, the next call tries again.
    void set(std::chrono::milliseconds fromNow);

    /// The descriptor to poll; -1, which poll(2) ignores, if there is none.
    [[nodiscard]] int descriptor() const { return descriptor_.number(); }

  private:
    Descriptor descriptor_;
};

}  // namespace orvane
