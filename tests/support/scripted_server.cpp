#include "support/scripted_server.h"

#include "support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace orvane::test {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

ReceivedRequest parseRequest(std::string raw) {
    ReceivedRequest request;
    std::size_t lineEnd = raw.find("\r\n");
    const std::string first = raw.substr(0, lineEnd);
    const auto space = first.find(' ');
    request.method = first.substr(0, space);
    request.target = first.substr(space + 1, first.rfind(' ') - space - 1);
    for (std::size_t at = lineEnd + 2; (lineEnd = raw.find("\r\n", at)) != at; at = lineEnd + 2) {
        const std::string line = raw.substr(at, lineEnd - at);
        const auto colon = line.find(':');
        const auto value = line.find_first_not_of(' ', colon + 1);
        request.headers.emplace_back(line.substr(0, colon),
                                     value == std::string::npos ? "" : line.substr(value));
    }
    request.raw = std::move(raw);
    return request;
}

std::string reasonOf(int status) {
    return status == 200 ? "OK" : "Scripted";
}

/// A flag that ends every pause at once.
class StopSignal {
  public:
    void set() {
        const std::lock_guard lock(mutex_);
        set_ = true;
        changed_.notify_all();
    }
    bool isSet() {
        const std::lock_guard lock(mutex_);
        return set_;
    }
    /// True when set before `duration` was over.
    bool waitFor(std::chrono::milliseconds duration) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, duration, [this] { return set_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

/// Keeps what it is given, from any thread.
class Record {
  public:
    void add(std::string_view bytes) {
        const std::lock_guard lock(mutex_);
        bytes_ += bytes;
    }
    std::string bytes() {
        const std::lock_guard lock(mutex_);
        return bytes_;
    }

  private:
    std::mutex mutex_;
    std::string bytes_;
};

class SocketConnection : public Connection {
  public:
    SocketConnection(int socket, SSL_CTX* tls, StopSignal& stop, Record& received)
        : socket_(socket), tls_(tls), stop_(stop), received_(received) {
        if (tls_ != nullptr) {
            SSL_CTX_up_ref(tls_);
        }
    }
    SocketConnection(const SocketConnection&) = delete;
    SocketConnection& operator=(const SocketConnection&) = delete;
    ~SocketConnection() override {
        if (ssl_ != nullptr) {
            SSL_shutdown(ssl_);
            SSL_free(ssl_);
        }
        SSL_CTX_free(tls_);
        ::close(socket_);
    }

    /// Speaks TLS from now on if requested. False when the peer does not.
    bool handshake() {
        if (tls_ == nullptr) {
            return true;
        }
        ssl_ = SSL_new(tls_);
        SSL_set_fd(ssl_, socket_);
        BIO_set_callback_ex(SSL_get_rbio(ssl_), &recordEncrypted);
        BIO_set_callback_arg(SSL_get_rbio(ssl_), reinterpret_cast<char*>(&received_));
        const bool accepted = waitReadable() && SSL_accept(ssl_) == 1;
        if (!accepted && SSL_get_verify_mode(ssl_) != SSL_VERIFY_NONE) {
            letItReadTheAlert();
        }
        return accepted;
    }

    bool send(std::string_view bytes) override {
        while (!bytes.empty()) {
            const long count = writeSome(bytes);
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    std::string receive(std::size_t limit) override {
        if ((ssl_ == nullptr || SSL_pending(ssl_) == 0) && !waitReadable()) {
            return {};
        }
        std::string buffer(limit, '\0');
        const long count = ssl_ != nullptr ? SSL_read(ssl_, buffer.data(), static_cast<int>(limit))
                                           : ::recv(socket_, buffer.data(), limit, 0);
        buffer.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        received_.add(buffer);
        return buffer;
    }

    void reset() override {
        const linger now{1, 0};
        (void)::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

    void cut() override { (void)::shutdown(socket_, SHUT_WR); }

    bool pause(std::chrono::milliseconds duration) override { return !stop_.waitFor(duration); }

  private:
    /// A BIO_callback_fn_ex: sees what the TLS library reads from the socket.
    static long recordEncrypted(BIO* socket, int operation, const char* data,
                                std::size_t /*length*/, int /*command*/, long /*argument*/,
                                int result, std::size_t* processed) {
        if (operation == (BIO_CB_READ | BIO_CB_RETURN) && result > 0) {
            reinterpret_cast<Record*>(BIO_get_callback_arg(socket))->add({data, *processed});
        }
        return result;
    }

    long writeSome(std::string_view bytes) {
        constexpr std::size_t most = 65536;
        const std::size_t size = std::min(bytes.size(), most);
        return ssl_ != nullptr ? SSL_write(ssl_, bytes.data(), static_cast<int>(size))
                               : ::send(socket_, bytes.data(), size, 0);
    }

    /// False when the server ends first.
    /// Closing with something unread would reset the connection, and take the alert away.
    void letItReadTheAlert() {
        std::array<char, 4096> unread{};
        (void)::shutdown(socket_, SHUT_WR);
        while (waitReadable() && ::recv(socket_, unread.data(), unread.size(), 0) > 0) {
        }
    }

    bool waitReadable() {
        constexpr int slice = 20;
        while (!stop_.isSet()) {
            pollfd entry{socket_, POLLIN, 0};
            if (::poll(&entry, 1, slice) > 0) {
                return true;
            }
        }
        return false;
    }

    int socket_;
    SSL_CTX* tls_;
    SSL* ssl_ = nullptr;
    StopSignal& stop_;
    Record& received_;
};

/// An SSL_CTX_alpn_select_cb_func that takes nothing but HTTP/2.
int chooseHttp2(SSL* /*ssl*/, const unsigned char** chosen, unsigned char* length,
                const unsigned char* offered, unsigned offeredLength, void* /*argument*/) {
    static constexpr std::array<unsigned char, 3> http2{2, 'h', '2'};
    unsigned char* choice = nullptr;
    const int found =
        SSL_select_next_proto(&choice, length, http2.data(), http2.size(), offered, offeredLength);
    *chosen = choice;
    return found == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
        return equalsIgnoringCase(header.first, name);
    });
    return found == headers.end() ? std::nullopt : std::optional(found->second);
}

Step answer(int status, std::string body,
            std::vector<std::pair<std::string, std::string>> headers) {
    return [=](Connection& connection, const ReceivedRequest&) {
        std::string head = "HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) + "\r\n";
        for (const auto& [name, value] : headers) {
            head.append(name).append(": ").append(value).append("\r\n");
        }
        if (status >= 200 && status != 204 && status != 304) {
            head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        return connection.send(head + "\r\n" + body);
    };
}

Step sendAndClose(std::string bytes) {
    return [=](Connection& connection, const ReceivedRequest&) {
        (void)connection.send(bytes);
        return false;
    };
}

Step closeAtOnce() {
    return [](Connection&, const ReceivedRequest&) { return false; };
}

Step resetAtOnce() {
    return [](Connection& connection, const ReceivedRequest&) {
        connection.reset();
        return false;
    };
}

Step staySilent() {
    return sendAndStall("");
}

Step sendAndStall(std::string bytes) {
    return [=](Connection& connection, const ReceivedRequest&) {
        (void)connection.send(bytes);
        while (!connection.receive(1024).empty()) {
        }
        return false;
    };
}

Step trickle(std::string head, char byte, std::chrono::milliseconds interval) {
    return [=](Connection& connection, const ReceivedRequest&) {
        bool going = connection.send(head);
        while (going) {
            going = connection.pause(interval) && connection.send({&byte, 1});
        }
        return false;
    };
}

Step after(std::function<void()> action, Step step) {
    return [action = std::move(action), step = std::move(step)](Connection& connection,
                                                                const ReceivedRequest& request) {
        action();
        return step(connection, request);
    };
}

class ScriptedServer::Engine {
  public:
    explicit Engine(const std::optional<TlsIdentity>& tls) : isTls_(tls.has_value()) {
        (void)std::signal(SIGPIPE, SIG_IGN);  // the TLS library writes to peers that are gone
        if (tls) {
            show(*tls);
        }
        listener_ = tcpSocket();
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(listener_, generic(address), size) != 0 ||
            ::listen(listener_, usualBacklog) != 0 ||
            ::getsockname(listener_, generic(address), &size) != 0) {
            throw std::runtime_error("cannot listen on loopback");
        }
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { acceptAll(); });
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine() {
        stop_.set();
        acceptor_.join();
        for (std::thread& thread : connections_) {
            thread.join();
        }
        ::close(listener_);
        SSL_CTX_free(tls_);
    }

    void on(const std::string& path, std::vector<Step> steps) {
        const std::lock_guard lock(mutex_);
        auto& queue = scripts_[path];
        std::move(steps.begin(), steps.end(), std::back_inserter(queue));
    }

    void always(const std::string& path, Step step) {
        const std::lock_guard lock(mutex_);
        always_[path] = std::move(step);
    }

    void onConnect(Step step) {
        const std::lock_guard lock(mutex_);
        onConnect_ = std::move(step);
    }

    void show(const TlsIdentity& identity) {
        SSL_CTX* tls = contextFor(identity);
        const std::lock_guard lock(mutex_);
        SSL_CTX_free(std::exchange(tls_, tls));
    }

    /// The system drops a connection's first packet when too many wait to be accepted: one more
    /// than none.
    void startDroppingPackets() {
        const std::lock_guard lock(mutex_);
        accepting_ = false;
        sockaddr_in address{};
        socklen_t size = sizeof address;
        filler_ = tcpSocket();
        if (::listen(listener_, 0) != 0 || ::getsockname(listener_, generic(address), &size) != 0 ||
            ::connect(filler_, generic(address), size) != 0) {
            throw std::runtime_error("cannot fill the queue of connections");
        }
    }

    void stopDroppingPackets() {
        const std::lock_guard lock(mutex_);
        ::close(filler_);
        (void)::listen(listener_, usualBacklog);
        accepting_ = true;
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] bool isTls() const { return isTls_; }
    [[nodiscard]] std::string received() { return received_.bytes(); }

    std::vector<ReceivedRequest> requests() {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

    std::size_t connectionCount() {
        const std::lock_guard lock(mutex_);
        return connections_.size();
    }

    bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, limit, [&] { return requests_.size() >= count; });
    }

  private:
    static constexpr int usualBacklog = 64;

    static sockaddr* generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

    static SSL_CTX* contextFor(const TlsIdentity& identity) {
        SSL_CTX* const tls = SSL_CTX_new(TLS_server_method());
        // Old versions must be speakable here, so that the daemon can be seen to refuse them.
        SSL_CTX_set_security_level(tls, 0);
        SSL_CTX_set_min_proto_version(tls, TLS1_VERSION);
        if (identity.highestVersion != 0) {
            SSL_CTX_set_max_proto_version(tls, identity.highestVersion);
        }
        if (identity.choosesHttp2) {
            SSL_CTX_set_alpn_select_cb(tls, &chooseHttp2, nullptr);
        }
        if (identity.wantsClientCertificate) {
            SSL_CTX_set_verify(tls, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        }
        if (SSL_CTX_use_certificate_chain_file(tls, identity.certificate.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(tls, identity.privateKey.c_str(), SSL_FILETYPE_PEM) != 1) {
            throw std::runtime_error("cannot use the certificate");
        }
        return tls;
    }

    void acceptAll() {
        constexpr int slice = 20;
        while (!stop_.isSet()) {
            pollfd entry{listener_, POLLIN, 0};
            if (::poll(&entry, 1, slice) <= 0) {
                continue;
            }
            const std::lock_guard lock(mutex_);
            const int socket = accepting_ ? acceptFrom(listener_) : -1;
            if (socket >= 0) {
                connections_.emplace_back([this, socket] { serve(socket); });
            }
        }
    }

    void serve(int socket) {
        std::unique_lock lock(mutex_);
        SocketConnection connection(socket, tls_, stop_, received_);
        const Step first = onConnect_;
        lock.unlock();
        if ((first && !first(connection, {})) || !connection.handshake()) {
            return;
        }
        while (auto request = readRequest(connection)) {
            if (!nextStep(*request)(connection, *request)) {
                return;
            }
        }
    }

    static std::optional<ReceivedRequest> readRequest(Connection& connection) {
        constexpr std::size_t slice = 4096;
        std::string raw;
        while (raw.find("\r\n\r\n") == std::string::npos) {
            const std::string part = connection.receive(slice);
            if (part.empty()) {
                return std::nullopt;
            }
            raw += part;
        }
        return parseRequest(std::move(raw));
    }

    Step nextStep(const ReceivedRequest& request) {
        constexpr int notFound = 404;
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        arrived_.notify_all();
        const auto script = scripts_.find(request.path());
        if (script == scripts_.end() || script->second.empty()) {
            const auto usual = always_.find(request.path());
            return usual != always_.end()     ? usual->second
                   : script != scripts_.end() ? staySilent()
                                              : answer(notFound);
        }
        Step step = std::move(script->second.front());
        script->second.pop_front();
        return step;
    }

    int listener_ = -1;
    std::uint16_t port_ = 0;
    const bool isTls_;
    StopSignal stop_;
    Record received_;
    std::mutex mutex_;
    SSL_CTX* tls_ = nullptr;
    bool accepting_ = true;
    int filler_ = -1;
    std::condition_variable arrived_;
    std::map<std::string, std::deque<Step>> scripts_;
    std::map<std::string, Step> always_;
    Step onConnect_;
    std::vector<ReceivedRequest> requests_;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

ScriptedServer::ScriptedServer(std::optional<TlsIdentity> tls)
    : engine_(std::make_unique<Engine>(tls)) {}

ScriptedServer::~ScriptedServer() = default;

void ScriptedServer::on(const std::string& path, std::vector<Step> steps) {
    engine_->on(path, std::move(steps));
}

void ScriptedServer::always(const std::string& path, Step step) {
    engine_->always(path, std::move(step));
}

void ScriptedServer::onConnect(Step step) {
    engine_->onConnect(std::move(step));
}

void ScriptedServer::show(const TlsIdentity& identity) {
    engine_->show(identity);
}

void ScriptedServer::startDroppingPackets() {
    engine_->startDroppingPackets();
}

void ScriptedServer::stopDroppingPackets() {
    engine_->stopDroppingPackets();
}

std::uint16_t ScriptedServer::port() const {
    return engine_->port();
}

std::string ScriptedServer::url() const {
    return (engine_->isTls() ? "https://localhost:" : "http://127.0.0.1:") + std::to_string(port());
}

std::vector<ReceivedRequest> ScriptedServer::requests() const {
    return engine_->requests();
}

std::vector<ReceivedRequest> ScriptedServer::requestsTo(const std::string& path) const {
    std::vector<ReceivedRequest> found = engine_->requests();
    std::erase_if(found, [&](const ReceivedRequest& request) { return request.path() != path; });
    return found;
}

std::size_t ScriptedServer::connectionCount() const {
    return engine_->connectionCount();
}

std::string ScriptedServer::received() const {
    return engine_->received();
}

bool ScriptedServer::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    return engine_->waitForRequests(count, limit);
}

}  // namespace orvane::test
