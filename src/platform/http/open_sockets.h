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

/// Tracks every open connection: to cut them off while libcurl is busy with one, to detect dead
/// peers, and to skip addresses that do not answer. Safe on any thread.
class OpenSockets {
  public:
    /// How long an address that did not answer is skipped.
    static constexpr std::chrono::hours passedOverFor{1};

    /// A socket for a connection to `address`, to be closed by `close`; -1 if the address is
    /// skipped, or there is no socket. If memory runs out here the process ends, because nothing
    /// may be thrown through libcurl.
    int open(int family, int type, int protocol, const sockaddr* address, socklen_t size) noexcept;
    int close(int socket) noexcept;

    /// Stops all traffic now; the peers see a reset when libcurl closes the sockets.
    void shutDown();

    /// What was found about connections from an address that the machine no longer has. Nothing
    /// arrives on them, and no error is reported.
    struct Stranded {
        bool isAnyCutOff = false;  ///< as `shutDown` does: their requests can be retried
        bool isAnyLeft = false;    ///< there is no route to its peer yet, so check again later
    };

    /// Cuts off those whose peer can be reached from another address.
    Stranded cutOffStranded();

    /// A request is sent: all connections open by now are ready, TLS handshake included.
    void noteSending();

    /// A new exchange starts.
    void noteStart();

    /// From now on skips the addresses of all connections that no request was sent on.
    void passOverSilent();

    /// Skips no address any more. Returns whether any was skipped since `noteStart`: then a retry
    /// makes sense.
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

/// Why there are too few descriptors left to look up a name and connect; empty if there are enough.
/// Safe on any thread.
std::string descriptorShortage();

}  // namespace orvane
