#include "emulator/listener.h"

#include "emulator/bad_input.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace orvane::emulator {
namespace {

constexpr int backlog = 4096;

std::string messageOf(int error) {
    return error == EADDRINUSE ? "the port is taken; give another one with --port, or none for any"
                               : std::strerror(error);
}

}  // namespace

int listenOn(const std::string& address, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        throw BadInput("\"" + address + "\" is not an address to listen on, such as 127.0.0.1");
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
    const int socket = ::socket(found->ai_family, SOCK_STREAM, 0);
    const int yes = 1;
    (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
    (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (::bind(socket, found->ai_addr, found->ai_addrlen) != 0 || ::listen(socket, backlog) != 0) {
        const std::string why = messageOf(errno);
        ::close(socket);
        throw BadInput("cannot listen on " + authorityOf(address, port) + ": " + why);
    }
    return socket;
}

std::uint16_t portOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    (void)::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    // The port is at the same place in both kinds.
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

std::string authorityOf(const std::string& address, std::uint16_t port) {
    const bool isIpv6 = address.find(':') != std::string::npos;
    return (isIpv6 ? '[' + address + ']' : address) + ':' + std::to_string(port);
}

}  // namespace orvane::emulator
