#include "platform/http/tcp_socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace orvane {

int openTcpSocket(int family, int type, int protocol) noexcept {
    constexpr int unacknowledgedMilliseconds = 60'000;
    const int socket = ::socket(family, type | SOCK_CLOEXEC, protocol);
    if (socket >= 0) {
        // Probes are sent only while no data waits to be acknowledged; see tcp(7).
        (void)::setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &tcpProbes, sizeof tcpProbes);
        (void)::setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledgedMilliseconds,
                           sizeof unacknowledgedMilliseconds);
    }
    return socket;
}

}  // namespace orvane
