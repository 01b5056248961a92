#include "support/virtual_clock.h"

#include "platform/machine/clock.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <utility>

namespace orvane {

namespace {

struct State {
    std::mutex mutex;
    std::chrono::nanoseconds offset{0};
    std::optional<std::chrono::steady_clock::time_point> stoppedAt;
    std::optional<std::chrono::nanoseconds> wallClock;
    std::vector<double> sleeps;
    std::function<void(double)> hook;
};

State& state() {
    static auto* const one = new State;  // never destroyed: worker threads may outlive main
    return *one;
}

}  // namespace

namespace virtual_clock {

void advance(std::chrono::nanoseconds by) {
    const std::lock_guard lock(state().mutex);
    state().offset += by;
}

void stop() {
    const std::lock_guard lock(state().mutex);
    state().stoppedAt = std::chrono::steady_clock::now();
}

void setWallClock(std::optional<std::chrono::nanoseconds> sinceEpoch) {
    const std::lock_guard lock(state().mutex);
    state().wallClock = sinceEpoch;
}

std::vector<double> sleeps() {
    const std::lock_guard lock(state().mutex);
    return state().sleeps;
}

void onSleep(std::function<void(double)> hook) {
    const std::lock_guard lock(state().mutex);
    state().hook = std::move(hook);
}

void reset() {
    const std::lock_guard lock(state().mutex);
    state().offset = {};
    state().stoppedAt.reset();
    state().wallClock.reset();
    state().sleeps.clear();
    state().hook = nullptr;
}

}  // namespace virtual_clock

namespace clock {

TimePoint monotonicNow() {
    const std::lock_guard lock(state().mutex);
    return state().stoppedAt.value_or(std::chrono::steady_clock::now()) + state().offset;
}

std::chrono::nanoseconds sinceEpoch() {
    const std::lock_guard lock(state().mutex);
    return state().wallClock.value_or(std::chrono::system_clock::now().time_since_epoch());
}

void sleep(double seconds) {
    std::function<void(double)> hook;
    {
        const std::lock_guard lock(state().mutex);
        state().sleeps.push_back(seconds);
        state().offset += std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(seconds));
        hook = state().hook;
    }
    if (hook) {
        hook(seconds);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // a loop of sleeps is no busy loop
}

std::chrono::milliseconds blockLimit(TimePoint deadline) {
    // A short slice, for the clock may be moved meanwhile.
    constexpr std::chrono::milliseconds slice(5);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - monotonicNow());
    return std::clamp(left, std::chrono::milliseconds::zero(), slice);
}

}  // namespace clock

}  // namespace orvane
