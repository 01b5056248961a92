// The machine's clock, but for its sleep, which always lasts for ORVANE_SLEEP seconds.
#include "platform/machine/clock.h"
#include "platform/machine/continuous_time.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace orvane::clock {

TimePoint monotonicNow() {
    return TimePoint(continuousTime());
}

std::chrono::nanoseconds sinceEpoch() {
    return std::chrono::system_clock::now().time_since_epoch();
}

void sleep(double /*seconds*/) {
    const double set = std::strtod(std::getenv("ORVANE_SLEEP"), nullptr);
    std::this_thread::sleep_for(std::chrono::duration<double>(set));
}

std::chrono::milliseconds blockLimit(TimePoint deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - monotonicNow());
    return std::max(left, std::chrono::milliseconds::zero());
}

}  // namespace orvane::clock
