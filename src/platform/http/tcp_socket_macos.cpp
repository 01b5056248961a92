#include "platform/http/tcp_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace orvane {

int openTcpSocket(int family, int type, int protocol) noexcept {
    const int socket = ::socket(family, type, protocol);
    if (socket >= 0) {
        (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
        (void)::setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &tcpProbes, sizeof tcpProbes);
    }
    return socket;
}

}  // namespace orvane
