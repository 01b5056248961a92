// A control plane that answers a very long row of polls, quickly and without keeping any: every
// twenty cycles bring each kind of answer, always in the same order.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>

namespace orvane::test {

/// Serves one connection at a time on a thread of its own, from construction to destruction.
class MixedServer {
  public:
    static constexpr std::size_t period = 20;

    /// Answers `cycles` polls and holds the next one. `beforeAnswer` is called on the server's
    /// thread with the number of the cycle, while the daemon waits.
    MixedServer(std::size_t cycles, std::function<void(std::size_t cycle)> beforeAnswer);
    MixedServer(const MixedServer&) = delete;
    MixedServer& operator=(const MixedServer&) = delete;
    ~MixedServer();

    /// "http://127.0.0.1:PORT"
    [[nodiscard]] std::string url() const;
    /// The polls that have come, the one that is held included.
    [[nodiscard]] std::size_t polls() const { return polls_; }
    [[nodiscard]] std::size_t effectiveFetches() const { return fetches_; }

    /// The arithmetic: how often the daemon records each status (0 for a broken answer) in so many
    /// cycles, a multiple of twice the period.
    static std::map<int, std::size_t> statusesIn(std::size_t cycles);
    /// How many of them cost a back-off.
    static std::size_t errorsIn(std::size_t cycles) { return cycles / period * 4; }

  private:
    struct Answer {
        std::string bytes;
        bool closes = false;
    };
    void serve();
    /// False when the connection is to be closed.
    bool reply(int connection, const std::string& request);
    [[nodiscard]] static Answer toPoll(std::size_t cycle);
    [[nodiscard]] static Answer toFetch(std::size_t fetch);

    const std::size_t cycles_;
    std::function<void(std::size_t)> beforeAnswer_;
    int listener_;
    std::uint16_t port_ = 0;
    std::atomic<int> connection_{-1};
    std::atomic<std::size_t> polls_{0};
    std::atomic<std::size_t> fetches_{0};
    std::thread thread_;
};

}  // namespace orvane::test
