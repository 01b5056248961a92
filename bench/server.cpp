// The control plane that the measurements run against. It does as little as it can, so that what is
// measured is the client.
//
//   bench-server CERTIFICATE KEY EFFECTIVE WATCHED POLICY...
//
// Listens on two free loopback ports, plain and TLS, and prints them: "listening PLAIN TLS". What a
// poll gets is said by the first part of its path, which comes from the client's API base:
//
//   /hold       nothing: it is held indefinitely
//   /same/N     304, but the N+1st poll is held
//   /fail       500
//   /change/N   200 with the POLICY files in turn, but the N+1st poll is held
//
// and any other request gets the EFFECTIVE file. N counts over all connections. Lines on standard
// output, times in nanoseconds of the monotonic clock:
//
//   poll K TIME      poll K has arrived: the first, twenty on the way, and the one that is held
//   policy K TIME    the last byte of the answer to poll K is handed to the kernel
//   capture TIME     capture-policy.json has been renamed into place in the directory WATCHED
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct Served {
    std::string effective;
    std::vector<std::string> policies;
};

Served served;
std::atomic<std::uint64_t> polls{0};

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

std::string readFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fail(path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A connection, plain or TLS, used by the one thread that serves it.
class Connection {
  public:
    Connection(int socket, SSL_CTX* tls) : socket_(socket) {
        if (tls != nullptr) {
            ssl_.reset(SSL_new(tls));
            SSL_set_fd(ssl_.get(), socket);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { ::close(socket_); }

    bool accept() { return !ssl_ || SSL_accept(ssl_.get()) == 1; }

    /// The next request's header, with the time when its first byte was there; absent at the end.
    std::optional<std::string> request(std::int64_t& arrival) {
        arrival = 0;
        for (;;) {
            const std::size_t end = received_.find("\r\n\r\n");
            if (end != std::string::npos) {
                std::string header = received_.substr(0, end + 2);
                received_.erase(0, end + 4);
                return header;
            }
            std::array<char, 8192> buffer;
            const ssize_t count =
                ssl_ ? SSL_read(ssl_.get(), buffer.data(), static_cast<int>(buffer.size()))
                     : ::read(socket_, buffer.data(), buffer.size());
            if (count <= 0) {
                return std::nullopt;
            }
            arrival = arrival == 0 ? now() : arrival;
            received_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count =
                ssl_ ? SSL_write(ssl_.get(), bytes.data(),
                                 static_cast<int>(std::min(bytes.size(), std::size_t{1} << 20)))
                     : ::write(socket_, bytes.data(), bytes.size());
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    /// Sends a 200. `lastByte` is when its last byte left, on its own.
    bool sendBody(std::string_view body, std::int64_t& lastByte) {
        const bool sent =
            send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                 std::to_string(body.size()) + "\r\n\r\n") &&
            send(body.substr(0, body.size() - 1));
        lastByte = now();
        return sent && send(body.substr(body.size() - 1));
    }

  private:
    struct SslDeleter {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };
    int socket_;
    std::unique_ptr<SSL, SslDeleter> ssl_;
    std::string received_;
};

[[noreturn]] void hold() {
    for (;;) {
        ::pause();
    }
}

/// The N of "/NAME/N/..." in a request line, absent when it asks for something else.
std::optional<std::uint64_t> countBehind(std::string_view request, std::string_view name) {
    const std::string start = "GET /" + std::string(name) + "/";
    if (!request.starts_with(start)) {
        return std::nullopt;
    }
    return std::strtoull(request.data() + start.size(), nullptr, 10);
}

/// Answers a poll. False when the connection is gone.
bool answerPoll(Connection& connection, const std::string& request, std::int64_t arrival) {
    const std::uint64_t number = ++polls;
    const auto same = countBehind(request, "same");
    const auto change = countBehind(request, "change");
    const std::uint64_t last = same.value_or(change.value_or(0));
    if (number == 1 || number > last || number % std::max<std::uint64_t>(1, last / 20) == 0) {
        std::printf("poll %llu %lld\n", static_cast<unsigned long long>(number),
                    static_cast<long long>(arrival));
    }
    if (request.starts_with("GET /fail/")) {
        return connection.send("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
    }
    if (number > last) {
        hold();
    }
    if (same) {
        return connection.send("HTTP/1.1 304 Not Modified\r\n\r\n");
    }
    std::int64_t lastByte = 0;
    if (!connection.sendBody(served.policies[number % served.policies.size()], lastByte)) {
        return false;
    }
    std::printf("policy %llu %lld\n", static_cast<unsigned long long>(number),
                static_cast<long long>(lastByte));
    return true;
}

void serve(int socket, SSL_CTX* tls) {
    constexpr int yes = 1;
    (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    Connection connection(socket, tls);
    if (!connection.accept()) {
        return;
    }
    std::int64_t arrival = 0;
    while (const auto request = connection.request(arrival)) {
        const bool isPoll = request->find("/guard-config/") != std::string::npos;
        if (!(isPoll ? answerPoll(connection, *request, arrival)
                     : connection.sendBody(served.effective, arrival))) {
            return;
        }
    }
}

int watched(const char* directory) {
    const int notices = ::inotify_init1(IN_CLOEXEC);
    if (::inotify_add_watch(notices, directory, IN_MOVED_TO) < 0) {
        fail(directory);
    }
    return notices;
}

void report(int notices) {
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t count = ::read(notices, buffer.data(), buffer.size());
        const std::int64_t time = now();
        for (ssize_t at = 0; at < count;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const char* const name = buffer.data() + at + sizeof event;
            if (std::strcmp(name, "capture-policy.json") == 0) {
                std::printf("capture %lld\n", static_cast<long long>(time));
            }
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

int listenOnLoopback(unsigned short& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, generic, length) != 0 || ::listen(listener, 4096) != 0 ||
        ::getsockname(listener, generic, &length) != 0) {
        fail("cannot listen");
    }
    port = ntohs(address.sin_port);
    return listener;
}

void acceptAll(int listener, SSL_CTX* tls) {
    for (;;) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) {
            std::thread(serve, socket, tls).detach();
        }
    }
}

SSL_CTX* tlsContext(const char* certificate, const char* key) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_chain_file(context, certificate) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1) {
        ERR_print_errors_fp(stderr);
        std::exit(1);
    }
    return context;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int fixedArguments = 5;
    if (argc <= fixedArguments) {
        std::fputs("usage: bench-server CERTIFICATE KEY EFFECTIVE WATCHED POLICY...\n", stderr);
        return 2;
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    rlimit limit{};
    (void)::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    (void)::setrlimit(RLIMIT_NOFILE, &limit);

    SSL_CTX* const tls = tlsContext(argv[1], argv[2]);
    served.effective = readFile(argv[3]);
    std::transform(argv + fixedArguments, argv + argc, std::back_inserter(served.policies),
                   readFile);
    unsigned short plainPort = 0;
    unsigned short tlsPort = 0;
    const int plain = listenOnLoopback(plainPort);
    const int secure = listenOnLoopback(tlsPort);
    const int notices = watched(argv[4]);
    std::printf("listening %d %d\n", plainPort, tlsPort);
    std::thread(report, notices).detach();
    std::thread(acceptAll, secure, tls).detach();
    acceptAll(plain, nullptr);
}
