// The TCP connections of an HTTP session, as its library opens and closes them.
#pragma once

#include "platform/machine/clock.h"
#include "platform/process/guarded.h"

#include <sys/socket.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace orvane {

/// Knows every open connection: to cut them off while the library is busy with one, to have a dead
/// peer noticed, and to pass over addresses that do not answer. Safe on any thread.
class OpenSockets {
  public:
    /// How long an address that did not answer is passed over.
    static constexpr std::chrono::hours passedOverFor{1};

    /// A socket for a connection to `address`, to be closed by `close`; -1 when that is to be
    /// passed over, or there is none. Without memory for a few bytes the process ends: nothing may
    /// be thrown through the library.
    int open(int family, int type, int protocol, const sockaddr* address, socklen_t size) noexcept;
    int close(int socket) noexcept;

    /// Nothing more comes in by any of them, and their peers learn that when the library closes
    /// them.
    void shutDown();

    /// What there is to do about connections from an address that the machine does not have any
    /// more. Nothing comes in by them, and nobody says so.
    struct Stranded {
        bool isAnyCutOff = false;  ///< as `shutDown` does: their requests can be sent again
        bool isAnyLeft = false;    ///< there is no way to its peer yet, so look again later
    };

    /// Cuts off those whose peer can be reached from another address.
    Stranded cutOffStranded();

    /// A request goes out: what is open by now has been connected and handshaken.
    void noteSending();

    /// A new exchange starts.
    void noteStart();

    /// From now on passes over the addresses of all connections that no request has gone out on.
    void passOverSilent();

    /// Passes over no address any more. Whether any was since `noteStart`: then it is worth trying
    /// again.
    [[nodiscard]] bool forgetSilent();

  private:
    struct Connection {
        int socket;
        std::string address;
        bool hasServed;
    };

    std::mutex mutex_;
    std::vector<Connection> connections_ ORVANE_GUARDED_BY(mutex_);
    /// Addresses to open no connection to, and when the last of them was added.
    std::vector<std::string> silent_ ORVANE_GUARDED_BY(mutex_);
    clock::TimePoint silentSince_ ORVANE_GUARDED_BY(mutex_);
    /// Whether one of them was requested since `noteStart`.
    bool hasPassedOver_ ORVANE_GUARDED_BY(mutex_) = false;
};

/// Why there are fewer descriptors left than it takes to look up a name and connect; empty when
/// there are enough. Safe on any thread.
std::string descriptorShortage();

}  // namespace orvane
