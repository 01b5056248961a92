#include "platform/http/open_sockets.h"

#include "platform/files/descriptor.h"
#include "platform/http/tcp_socket.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

/// Address and port as text.
std::string textOf(const sockaddr* address, socklen_t size) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    (void)::getnameinfo(address, size, host.data(), host.size(), port.data(), port.size(),
                        NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(host.data()) + ' ' + port.data();
}

/// The peer of a connected socket; empty while it is being connected.
std::string peerOf(int socket) {
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    auto* const address = reinterpret_cast<sockaddr*>(&storage);
    return ::getpeername(socket, address, &size) == 0 ? textOf(address, size) : std::string();
}

}  // namespace

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

int OpenSockets::open(int family, int type, int protocol, const sockaddr* address,
                      socklen_t size) noexcept {
    const std::lock_guard lock(mutex_);
    if (!passedBy_.empty()) {
        const std::string wanted = textOf(address, size);
        if (std::find(passedBy_.begin(), passedBy_.end(), wanted) != passedBy_.end()) {
            hasPassedBy_ = true;
            return -1;
        }
    }
    const int socket = openTcpSocket(family, type, protocol);
    if (socket >= 0) {
        connections_.push_back({socket, false});
    }
    return socket;
}

void OpenSockets::noteSilent(int socket) {
    if (std::string peer = peerOf(socket); !peer.empty()) {
        fellSilent_.push_back(std::move(peer));
    }
}

int OpenSockets::close(int socket) noexcept {
    const std::lock_guard lock(mutex_);
    std::erase_if(connections_, [&](const Connection& connection) {
        if (connection.socket != socket) {
            return false;
        }
        if (!connection.hasServed) {
            noteSilent(socket);
        }
        return true;
    });
    return ::close(socket);
}

std::string descriptorShortage() {
    constexpr std::size_t enough = 4;
    std::vector<Descriptor> probes;
    while (probes.size() < enough) {
        probes.emplace_back(openTcpSocket(AF_INET, SOCK_STREAM, 0));
        if (!probes.back().isOpen()) {
            return std::generic_category().message(errno);
        }
    }
    return "";
}

}  // namespace orvane
