#pragma once

#include "emulator/hang_ups.h"

#include <microhttpd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>

namespace orvane::emulator {

/// Why a connection is suspended.
enum class HoldKind : std::uint8_t {
    poll,     ///< Until the policy or the faults change.
    silence,  ///< Until the faults change.
    stream    ///< Until there is something to tell.
};

/// The connections that are suspended, each until a deadline or an event. Not thread-safe, but for
/// what is said of HangUps.
class Holds {
  public:
    explicit Holds(HangUps& hangUps) : hangUps_(hangUps) {}

    /// Suspends `connection`. `gone`, which has to live until it is resumed, becomes true if its
    /// peer closes it meanwhile.
    void add(MHD_Connection* connection, HoldKind kind, Clock::time_point deadline, bool& gone);

    /// Resume those that ...
    void releaseAll();
    void release(HoldKind kind);
    void releaseUntil(Clock::time_point deadline);
    void hangUp(std::uint64_t id);

    /// The first deadline; far in the future when there is none.
    Clock::time_point nextDeadline() const;

    std::size_t count(HoldKind kind) const;

  private:
    struct Held {
        MHD_Connection* connection;
        int socket;
        HoldKind kind;
        Clock::time_point deadline;
        bool* gone;
    };
    using Found = std::map<std::uint64_t, Held>::iterator;

    Found resume(Found found);
    void releaseIf(const std::function<bool(const Held&)>& isMeant);

    HangUps& hangUps_;
    std::uint64_t lastId_ = 0;
    std::map<std::uint64_t, Held> held_;
    std::set<std::pair<Clock::time_point, std::uint64_t>> deadlines_;
    std::map<HoldKind, std::size_t> counts_;
};

}  // namespace orvane::emulator
