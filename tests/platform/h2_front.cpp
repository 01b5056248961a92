#include "platform/h2_front.h"

#include "support/sockets.h"
#include "support/test_files.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace orvane::test {

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/// A socket that listens on any free port, which it stores.
int listenOn(std::uint16_t& port) {
    constexpr int backlog = 64;
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const int socket = tcpSocket();
    if (::bind(socket, generic, size) != 0 || ::listen(socket, backlog) != 0 ||
        ::getsockname(socket, generic, &size) != 0) {
        throw std::runtime_error("no free port");
    }
    port = ntohs(address.sin_port);
    return socket;
}

int connectTo(std::uint16_t port) {
    const sockaddr_in address = loopback(port);
    const int socket = tcpSocket();
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket);
        return -1;
    }
    return socket;
}

}  // namespace

H2Front::H2Front(const TlsIdentity& identity, const ScriptedServer& backend) {
    const int listener = listenOn(port_);
    front_.emplace(front::Options{.listener = listener,
                                  .certificatePem = readFile(identity.certificate),
                                  .privateKeyPem = readFile(identity.privateKey),
                                  .connect = [port = backend.port()] { return connectTo(port); }});
}

std::string H2Front::url() const {
    return "https://localhost:" + std::to_string(port_);
}

}  // namespace orvane::test
