#pragma once

#include <cstdint>
#include <vector>

namespace orvane::front {

/// Says which sockets it is worth trying to read or write again.
///
/// One thread waits; interrupt() may be called from any thread.
class Readiness {
  public:
    Readiness();
    ~Readiness();
    Readiness(const Readiness&) = delete;
    Readiness& operator=(const Readiness&) = delete;

    /// From now on, wait() returns `id`, which is not 0, when the socket becomes readable or
    /// writable or loses its peer, once for each time. Ends when the socket is closed. False when
    /// the system watches no more sockets.
    [[nodiscard]] bool watch(int socket, std::uint64_t id) const;

    /// Blocks until there are sockets to try, or interrupt().
    std::vector<std::uint64_t> wait() const;
    /// Ends wait(), or the next one.
    void interrupt() const;

  private:
    int queue_;
    int wakeUp_ = -1;
};

}  // namespace orvane::front
