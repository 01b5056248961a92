#include "support/sockets.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace orvane::test {

namespace {

/// A child that is started just now may still get it: macOS cannot do both in one step.
int closedOnExec(int socket) {
    (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
    return socket;
}

}  // namespace

int tcpSocket() {
    return closedOnExec(::socket(AF_INET, SOCK_STREAM, 0));
}

int acceptFrom(int listener) {
    return closedOnExec(::accept(listener, nullptr, nullptr));
}

}  // namespace orvane::test
