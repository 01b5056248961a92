#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace orvane::emulator {

using Clock = std::chrono::steady_clock;

/// Notices when the peers of connections close them, while nobody reads from them.
///
/// One thread waits; all other operations may be called from any thread.
class HangUps {
  public:
    HangUps();
    ~HangUps();
    HangUps(const HangUps&) = delete;
    HangUps& operator=(const HangUps&) = delete;

    /// From now on waitUntil() tells `id` when the peer of `socket` is gone.
    void watch(int socket, std::uint64_t id) const;
    /// No longer. To be called before the socket is closed.
    void forget(int socket) const;

    /// Blocks until peers are gone, which it returns, or `deadline`, or interrupt(). An id that is
    /// forgotten at the same moment may still be among them.
    std::vector<std::uint64_t> waitUntil(Clock::time_point deadline) const;
    /// Ends waitUntil(), or the next one.
    void interrupt() const;

  private:
    int queue_;
    int wakeUp_ = -1;
};

}  // namespace orvane::emulator
