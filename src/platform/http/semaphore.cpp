#include "platform/http/semaphore.h"

namespace orvane {

void Semaphore::signal() {
    // Notified under the lock: the waiter may destroy the semaphore as soon as it has the count.
    const std::lock_guard lock(mutex_);
    ++count_;
    positive_.notify_one();
}

void Semaphore::wait() {
    std::unique_lock lock(mutex_);
    positive_.wait(lock, [this] { return count_ > 0; });
    --count_;
}

bool Semaphore::waitUntil(clock::TimePoint deadline) {
    std::unique_lock lock(mutex_);
    while (count_ == 0) {
        const auto limit = clock::blockLimit(deadline);
        if (limit == std::chrono::milliseconds::zero()) {
            return false;
        }
        (void)positive_.wait_for(lock, limit);
    }
    --count_;
    return true;
}

bool Semaphore::waitFor(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    if (!positive_.wait_until(lock, deadline, [this] { return count_ > 0; })) {
        return false;
    }
    --count_;
    return true;
}

}  // namespace orvane
