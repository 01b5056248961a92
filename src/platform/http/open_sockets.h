// The TCP connections of an HTTP session, as its library opens and closes them.
#pragma once

#include <sys/socket.h>

#include <mutex>
#include <string>
#include <vector>

namespace orvane {

/// Knows every open connection: to cut them off while the library is busy with one, to have a dead
/// peer noticed, and to pass by an address that takes connections but lets no TLS handshake end.
/// Safe on any thread.
class OpenSockets {
  public:
    /// A socket for a connection to `address`, to be closed by `close`; -1 when that is to be
    /// passed by, or none can be had. Without memory for a few bytes the process ends: nothing may
    /// be thrown through the library.
    int open(int family, int type, int protocol, const sockaddr* address, socklen_t size) noexcept;
    int close(int socket) noexcept;

    /// Nothing more comes in by any of them, and their peers learn that when the library closes
    /// them.
    void shutDown();

    /// A request goes out: what is open by now has been connected and handshaken.
    void noteSending();

    /// A new exchange starts. If connecting took the last one too long, the addresses that had
    /// taken its connections are passed by from now on.
    void noteStart(bool connectingTookTooLong);

    /// Passes no address by any more. Whether any was since `noteStart`: then it is worth trying
    /// again.
    [[nodiscard]] bool forgetSilent();

  private:
    struct Connection {
        int socket;
        bool hasServed;
    };

    /// Notes the peer of a connection that is about to be closed without having served.
    void noteSilent(int socket);

    std::mutex mutex_;  ///< guards all below
    std::vector<Connection> connections_;
    std::vector<std::string> fellSilent_;  ///< closed since `noteStart`: connected, never used
    std::vector<std::string> passedBy_;    ///< addresses to open no connection to
    bool hasPassedBy_ = false;             ///< whether that happened since `noteStart`
};

/// Why there are fewer descriptors left than it takes to look up a name and connect; empty when
/// there are enough. Safe on any thread.
std::string descriptorShortage();

}  // namespace orvane
