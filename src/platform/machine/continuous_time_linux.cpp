#include "platform/machine/continuous_time.h"

#include <sys/timerfd.h>

#include <ctime>

namespace orvane {

std::chrono::nanoseconds continuousTime() {
    timespec now{};
    (void)::clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

void ContinuousTimer::set(std::chrono::milliseconds fromNow) {
    if (!descriptor_.isOpen()) {
        descriptor_ = Descriptor(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK));
    }
    const auto seconds = std::chrono::floor<std::chrono::seconds>(fromNow);
    const itimerspec once{{},
                          {seconds.count(), std::chrono::nanoseconds(fromNow - seconds).count()}};
    (void)::timerfd_settime(descriptor_.number(), 0, &once, nullptr);
}

}  // namespace orvane
