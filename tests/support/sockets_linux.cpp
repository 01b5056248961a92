#include "support/sockets.h"

#include <sys/socket.h>

namespace orvane::test {

int tcpSocket() {
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

int acceptFrom(int listener) {
    return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
}

}  // namespace orvane::test
