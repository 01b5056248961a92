#include "endurance/mixed_server.h"

#include "support/daemon_test.h"
#include "support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace orvane::test {

namespace {

std::string withBody(const std::string& status, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

}  // namespace

MixedServer::MixedServer(std::size_t cycles, std::function<void(std::size_t)> beforeAnswer)
    : cycles_(cycles), beforeAnswer_(std::move(beforeAnswer)), listener_(tcpSocket()) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 1) != 0 ||
        ::getsockname(listener_, generic, &size) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

MixedServer::~MixedServer() {
    (void)::shutdown(listener_, SHUT_RDWR);
    (void)::shutdown(connection_, SHUT_RDWR);
    thread_.join();
    (void)::close(listener_);
}

std::string MixedServer::url() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

std::map<int, std::size_t> MixedServer::statusesIn(std::size_t cycles) {
    const std::size_t periods = cycles / period;
    // After every policy comes an effective fetch: the first finds one, the second none, and so
    // on.
    return {{0, 2 * periods}, {200, periods + periods / 2}, {304, 15 * periods},
            {401, periods},   {404, periods / 2},           {500, periods}};
}

MixedServer::Answer MixedServer::toPoll(std::size_t cycle) {
    switch (cycle % period) {
        case 0: {
            const std::string version = std::to_string(cycle);
            return {withBody("200 OK", R"({"etag":"v)" + version +
                                           R"(","guard_config":{"capture":{"hosts":["h)" + version +
                                           R"(.example"]}}})")};
        }
        case 4:
            return {withBody("401 Unauthorized", "")};
        case 8:
            return {withBody("500 Internal Server Error", "<html>sorry</html>")};
        case 12:
            return {"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-", true};
        case 16:
            return {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"etag\":", true};
        default:
            return {"HTTP/1.1 304 Not Modified\r\n\r\n"};
    }
}

MixedServer::Answer MixedServer::toFetch(std::size_t fetch) {
    return {fetch % 2 == 0 ? withBody("200 OK", R"({"effective":)" + std::to_string(fetch) + "}")
                           : withBody("404 Not Found", "")};
}

void MixedServer::serve() {
    while (true) {
        const int connection = acceptFrom(listener_);
        if (connection < 0) {
            return;
        }
        connection_ = connection;
        std::array<char, 4096> buffer{};
        std::string request;
        ssize_t count = 0;
        while ((count = ::recv(connection, buffer.data(), buffer.size(), 0)) > 0) {
            request.append(buffer.data(), static_cast<std::size_t>(count));
            if (request.ends_with("\r\n\r\n")) {
                if (!reply(connection, request)) {
                    break;
                }
                request.clear();
            }
        }
        connection_ = -1;
        (void)::close(connection);
    }
}

bool MixedServer::reply(int connection, const std::string& request) {
    Answer answer;
    if (request.find(pollPath) == std::string::npos) {
        answer = toFetch(fetches_++);
    } else if (const std::size_t cycle = polls_++; cycle < cycles_) {
        beforeAnswer_(cycle);
        answer = toPoll(cycle);
    }
    const auto sent = ::send(connection, answer.bytes.data(), answer.bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(answer.bytes.size()) && !answer.closes;
}

}  // namespace orvane::test
