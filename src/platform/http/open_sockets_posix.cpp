#include "platform/http/open_sockets.h"

#include "platform/files/descriptor.h"
#include "platform/http/tcp_socket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

/// The bytes of an address, to compare and to keep.
std::string bytesOf(const sockaddr* address, socklen_t size) {
    return {reinterpret_cast<const char*>(address), size};
}

void cutOff(int socket) {
    constexpr linger resetAtClose{1, 0};
    (void)::setsockopt(socket, SOL_SOCKET, SO_LINGER, &resetAtClose, sizeof resetAtClose);
    (void)::shutdown(socket, SHUT_RDWR);
}

/// One end of a connection. Before there is one, its address is one that no machine has or reaches.
class End {
  public:
    /// `ask` is getsockname or getpeername.
    template <typename Ask>
    End(Ask ask, int socket) {
        (void)ask(socket, generic(), &size_);
    }

    [[nodiscard]] bool isAddressOfThisMachine() {
        const Descriptor probe = probeSocket();
        return ::bind(probe.number(), generic(), size_) == 0 || errno != EADDRNOTAVAIL;
    }

    /// Whether there is a route to it. Sends nothing.
    [[nodiscard]] bool isReachable() {
        const Descriptor probe = probeSocket();
        return ::connect(probe.number(), generic(), size_) == 0;
    }

  private:
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address_); }
    [[nodiscard]] Descriptor probeSocket() const {
        return Descriptor(::socket(address_.ss_family, SOCK_DGRAM, 0));
    }

    sockaddr_storage address_{};
    socklen_t size_ = sizeof address_;
};

}  // namespace

void OpenSockets::shutDown() {
    const std::lock_guard lock(mutex_);
    for (const Connection& connection : connections_) {
        cutOff(connection.socket);
    }
}

OpenSockets::Stranded OpenSockets::cutOffStranded() {
    Stranded stranded;
    const std::lock_guard lock(mutex_);
    for (const Connection& connection : connections_) {
        if (End(::getsockname, connection.socket).isAddressOfThisMachine()) {
            continue;
        }
        const bool isReachable = End(::getpeername, connection.socket).isReachable();
        if (isReachable) {
            cutOff(connection.socket);
        }
        stranded.isAnyCutOff |= isReachable;
        stranded.isAnyLeft |= !isReachable;
    }
    return stranded;
}

void OpenSockets::noteSending() {
    const std::lock_guard lock(mutex_);
    for (Connection& connection : connections_) {
        connection.hasServed = true;
    }
}

void OpenSockets::noteStart() {
    const std::lock_guard lock(mutex_);
    if (clock::monotonicNow() - silentSince_ >= passedOverFor) {
        silent_.clear();
    }
    hasPassedOver_ = false;
}

void OpenSockets::passOverSilent() {
    const std::lock_guard lock(mutex_);
    for (const Connection& connection : connections_) {
        if (!connection.hasServed) {
            silent_.push_back(connection.address);
        }
    }
    silentSince_ = clock::monotonicNow();
}

bool OpenSockets::forgetSilent() {
    const std::lock_guard lock(mutex_);
    silent_.clear();
    return std::exchange(hasPassedOver_, false);
}

int OpenSockets::open(int family, int type, int protocol, const sockaddr* address,
                      socklen_t size) noexcept {
    std::string wanted = bytesOf(address, size);
    const std::lock_guard lock(mutex_);
    if (std::find(silent_.begin(), silent_.end(), wanted) != silent_.end()) {
        hasPassedOver_ = true;
        errno = EHOSTUNREACH;
        return -1;
    }
    const int socket = openTcpSocket(family, type, protocol);
    if (socket >= 0) {
        connections_.push_back(
            {.socket = socket, .address = std::move(wanted), .hasServed = false});
    }
    return socket;
}

int OpenSockets::close(int socket) noexcept {
    const std::lock_guard lock(mutex_);
    std::erase_if(connections_,
                  [=](const Connection& connection) { return connection.socket == socket; });
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
