#include "platform/machine/clock.h"

#include "platform/machine/continuous_time.h"

#include <poll.h>

#include <algorithm>

namespace orvane::clock {

using std::chrono::milliseconds;

TimePoint monotonicNow() {
    return TimePoint(continuousTime());
}

std::chrono::nanoseconds sinceEpoch() {
    return std::chrono::system_clock::now().time_since_epoch();
}

void sleep(double seconds) {
    const TimePoint end = monotonicNow() + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                               std::chrono::duration<double>(seconds));
    ContinuousTimer timer;
    for (milliseconds left = blockLimit(end); left > milliseconds::zero(); left = blockLimit(end)) {
        timer.set(left);
        pollfd expiry{timer.descriptor(), POLLIN, 0};
        (void)::poll(&expiry, 1, static_cast<int>(left.count()));
    }
}

milliseconds blockLimit(TimePoint deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - monotonicNow());
    return std::max(left, milliseconds::zero());
}

}  // namespace orvane::clock
