#include "platform/machine/continuous_time.h"

#include <mach/mach_time.h>
#include <sys/event.h>

#include <cstdint>

namespace orvane {

namespace {

/// The kernel's ticks in `time`.
std::uint64_t ticksIn(std::chrono::nanoseconds time) {
    mach_timebase_info_data_t base{};
    (void)::mach_timebase_info(&base);
    const auto nanoseconds = static_cast<std::uint64_t>(time.count());
    return nanoseconds / base.numer * base.denom +
           nanoseconds % base.numer * base.denom / base.numer;
}

}  // namespace

std::chrono::nanoseconds continuousTime() {
    // libc++ reads CLOCK_MONOTONIC_RAW there, which counts the machine's sleep.
    return std::chrono::steady_clock::now().time_since_epoch();
}

void ContinuousTimer::set(std::chrono::milliseconds fromNow) {
    if (!descriptor_.isOpen()) {
        descriptor_ = Descriptor(::kqueue());  // closed on exec, and not inherited by a fork either
    }
    constexpr timespec atOnce{};
    struct kevent change {};
    // What has expired and was not looked at goes with the timer; there may be none.
    EV_SET(&change, 0, EVFILT_TIMER, EV_DELETE, 0, 0, nullptr);
    (void)::kevent(descriptor_.number(), &change, 1, nullptr, 0, &atOnce);
    if (fromNow > std::chrono::milliseconds::zero()) {
        constexpr unsigned continuous = NOTE_MACHTIME | NOTE_ABSOLUTE | NOTE_MACH_CONTINUOUS_TIME;
        const auto moment = static_cast<std::intptr_t>(::mach_continuous_time() + ticksIn(fromNow));
        EV_SET(&change, 0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, continuous, moment, nullptr);
        (void)::kevent(descriptor_.number(), &change, 1, nullptr, 0, &atOnce);
    }
}

}  // namespace orvane
