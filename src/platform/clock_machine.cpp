#include "platform/clock.h"

#include <algorithm>
#include <thread>

namespace orvane::clock {

TimePoint monotonicNow() {
    return std::chrono::steady_clock::now();
}

std::chrono::nanoseconds sinceEpoch() {
    return std::chrono::system_clock::now().time_since_epoch();
}

void sleep(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

std::chrono::milliseconds blockLimit(TimePoint deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - monotonicNow());
    return std::max(left, std::chrono::milliseconds::zero());
}

}  // namespace orvane::clock
