#include "platform/open_sockets.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace orvane {

namespace {

/// Address and port as text; empty when there is none.
std::string textOf(const sockaddr* address, socklen_t size) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    const bool known = ::getnameinfo(address, size, host.data(), host.size(), port.data(),
                                     port.size(), NI_NUMERICHOST | NI_NUMERICSERV) == 0;
    return known ? std::string(host.data()) + ' ' + port.data() : std::string();
}

/// The peer of a connected socket; empty while it is being connected.
std::string peerOf(curl_socket_t socket) {
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    auto* const address = reinterpret_cast<sockaddr*>(&storage);
    return ::getpeername(socket, address, &size) == 0 ? textOf(address, size) : std::string();
}

void setNumber(int socket, int level, int option, int value) {
    (void)::setsockopt(socket, level, option, &value, sizeof value);
}

/// Gives up a peer from which nothing has been heard for a minute: neither what was sent nor the
/// probes (`CURLOPT_TCP_KEEPIDLE`, `CURLOPT_TCP_KEEPINTVL`) were acknowledged. The system does it
/// without waking this process.
void noticeDeadPeer(int socket) {
    constexpr int probes = 3;
    setNumber(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
#ifdef TCP_USER_TIMEOUT
    constexpr int milliseconds = 60'000;
    setNumber(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, milliseconds);
#endif
}

}  // namespace

bool OpenSockets::watch(CURL* easy) {
    const auto set = [=](CURLoption option, auto value) {
        return curl_easy_setopt(easy, option, value) == CURLE_OK;
    };
    return set(CURLOPT_OPENSOCKETFUNCTION, &OpenSockets::open) &&
           set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this)) &&
           set(CURLOPT_CLOSESOCKETFUNCTION, &OpenSockets::close) &&
           set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(this));
}

void OpenSockets::shutDown() {
    constexpr linger resetAtClose{1, 0};
    const std::lock_guard lock(mutex_);
    for (const Connection& connection : connections_) {
        (void)::setsockopt(connection.socket, SOL_SOCKET, SO_LINGER, &resetAtClose,
                           sizeof resetAtClose);
        (void)::shutdown(connection.socket, SHUT_RDWR);
    }
}

void OpenSockets::noteSending() {
    const std::lock_guard lock(mutex_);
    for (Connection& connection : connections_) {
        connection.hasServed = true;
    }
}

void OpenSockets::noteStart(bool connectingTookTooLong) {
    const std::lock_guard lock(mutex_);
    if (connectingTookTooLong) {
        passedBy_ = std::move(fellSilent_);
    }
    fellSilent_.clear();
    hasPassedBy_ = false;
}

bool OpenSockets::forgetSilent() {
    const std::lock_guard lock(mutex_);
    passedBy_.clear();
    return std::exchange(hasPassedBy_, false);
}

// Nothing may be thrown through the library: without memory for a few bytes, the process ends.
curl_socket_t OpenSockets::open(void* self, curlsocktype /*purpose*/,
                                curl_sockaddr* address) noexcept {
    auto& sockets = *static_cast<OpenSockets*>(self);
    const std::lock_guard lock(sockets.mutex_);
    if (!sockets.passedBy_.empty()) {
        const std::string wanted = textOf(&address->addr, address->addrlen);
        if (std::find(sockets.passedBy_.begin(), sockets.passedBy_.end(), wanted) !=
            sockets.passedBy_.end()) {
            sockets.hasPassedBy_ = true;
            return CURL_SOCKET_BAD;
        }
    }
    const int socket = ::socket(address->family, address->socktype, address->protocol);
    if (socket >= 0) {
        (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
        noticeDeadPeer(socket);
        sockets.connections_.push_back({socket, false});
    }
    return socket;
}

int OpenSockets::close(void* self, curl_socket_t socket) noexcept {
    auto& sockets = *static_cast<OpenSockets*>(self);
    const std::lock_guard lock(sockets.mutex_);
    const auto place =
        std::find_if(sockets.connections_.begin(), sockets.connections_.end(),
                     [=](const Connection& connection) { return connection.socket == socket; });
    if (place != sockets.connections_.end()) {
        if (!place->hasServed) {
            if (std::string peer = peerOf(socket); !peer.empty()) {
                sockets.fellSilent_.push_back(std::move(peer));
            }
        }
        sockets.connections_.erase(place);
    }
    return ::close(socket);
}

}  // namespace orvane
