#include "platform/h2_front.h"

#include "support/sockets.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace orvane::test {

namespace {

using namespace std::chrono_literals;

/// Where the proxy is; empty when it is not installed.
std::string executable() {
    for (const char* path : {"/usr/sbin/nghttpx", "/usr/bin/nghttpx", "/usr/local/bin/nghttpx",
                             "/opt/homebrew/bin/nghttpx"}) {
        if (::access(path, X_OK) == 0) {
            return path;
        }
    }
    return "";
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

std::uint16_t freePort() {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const int socket = tcpSocket();
    const bool found =
        ::bind(socket, generic, size) == 0 && ::getsockname(socket, generic, &size) == 0;
    ::close(socket);
    if (!found) {
        throw std::runtime_error("no free port");
    }
    return ntohs(address.sin_port);
}

bool accepts(std::uint16_t port) {
    const sockaddr_in address = loopback(port);
    const int socket = tcpSocket();
    const bool connected =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return connected;
}

/// Becomes the program in `words`, which does not outlive the other end of `lifeline`.
[[noreturn]] void become(const std::vector<std::string>& words, int lifeline) {
    constexpr const char* script = R"((read -r _ <&3; kill -9 $$) & exec "$@" 3<&-)";
    std::vector<const char*> arguments{"/bin/sh", "-c", script, "sh"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    const int null = ::open("/dev/null", O_RDWR);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        (void)::dup2(null, descriptor);
    }
    if (::dup2(lifeline, 3) == 3) {
        (void)::execv(arguments.front(), const_cast<char* const*>(arguments.data()));
    }
    ::_exit(127);
}

}  // namespace

bool H2Front::isInstalled() {
    return !executable().empty();
}

H2Front::H2Front(const TlsIdentity& identity, const ScriptedServer& backend) : port_(freePort()) {
    const std::vector<std::string> words{executable(),
                                         "--conf=/dev/null",
                                         "--no-ocsp",
                                         "--workers=1",
                                         "--pid-file=" + (directory_.path() / "pid").string(),
                                         "--frontend=127.0.0.1," + std::to_string(port_),
                                         "--backend=127.0.0.1," + std::to_string(backend.port()),
                                         identity.privateKey,
                                         identity.certificate};
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    lifeline_ = ends[1];
    (void)::fcntl(lifeline_, F_SETFD, FD_CLOEXEC);
    pid_ = ::fork();
    if (pid_ == 0) {
        become(words, ends[0]);
    }
    ::close(ends[0]);
    for (const auto end = std::chrono::steady_clock::now() + 20s; !accepts(port_);) {
        if (pid_ < 0 || ::waitpid(pid_, nullptr, WNOHANG) != 0 ||
            std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("the HTTP/2 proxy does not start");
        }
        std::this_thread::sleep_for(5ms);
    }
}

H2Front::~H2Front() {
    ::close(lifeline_);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::string H2Front::url() const {
    return "https://localhost:" + std::to_string(port_);
}

}  // namespace orvane::test
