#include "emulator/control_plane.h"

#include "emulator/pending.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::emulator {
namespace {

constexpr unsigned maxConnections = 10'000;

void tell(const std::function<void(const Exchange&)>& watcher, const Exchange& exchange) {
    if (watcher) {
        watcher(exchange);
    }
}

}  // namespace

class ControlPlane::Server {
  public:
    explicit Server(Options options);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;
    std::string baseUrl() const;
    void setPolicy(Policy policy);
    std::size_t heldPolls() const;

  private:
    // What the HTTP library calls on its thread; `self` is the Server, `context` the Pending.
    static void* onTarget(void* self, const char* target, MHD_Connection* connection);
    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* path,
                                const char* method, const char* version, const char* bytes,
                                size_t* size, void** context);
    static void onCompleted(void* self, MHD_Connection* connection, void** context,
                            MHD_RequestTerminationCode code);

    bool isHttps() const { return !options_.certificatePem.empty(); }
    MHD_Daemon* listen();
    MHD_Result answer(MHD_Connection* connection, Pending& pending);
    std::optional<Reply> replyOrHold(MHD_Connection* connection, Pending& pending);
    bool isToBeRefused(Pending& pending);
    std::chrono::milliseconds holdFor(std::chrono::milliseconds atMost);
    void replacePolicy(Policy policy);
    void releaseUntil(Clock::time_point deadline);
    void endHolds();

    Options options_;
    mutable std::mutex mutex_;  // Guards the members below, down to daemon_.
    std::condition_variable holdsChanged_;
    std::optional<Policy> policy_;
    std::set<std::pair<Clock::time_point, MHD_Connection*>> held_;  // By the end of their time.
    bool stopping_ = false;
    unsigned polls_ = 0;
    std::mt19937 random_{std::random_device{}()};
    MHD_Daemon* daemon_ = nullptr;
    std::thread holdsEnder_;
};

ControlPlane::Server::Server(Options options) : options_(std::move(options)) {
    // Whoever asks at once waits here until the server knows its own address.
    const std::scoped_lock lock(mutex_);
    daemon_ = listen();
    if (options_.account.apiUrl.empty()) {
        options_.account.apiUrl = baseUrl();
    }
    holdsEnder_ = std::thread([this] { endHolds(); });
}

ControlPlane::Server::~Server() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        releaseUntil(Clock::time_point::max());
    }
    holdsChanged_.notify_one();
    holdsEnder_.join();
    MHD_stop_daemon(daemon_);
}

MHD_Daemon* ControlPlane::Server::listen() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(options_.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::vector<MHD_OptionItem> tls{{MHD_OPTION_END, 0, nullptr}};
    unsigned flags = MHD_USE_AUTO_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
    if (isHttps()) {
        flags |= MHD_USE_TLS;
        tls = {{MHD_OPTION_HTTPS_MEM_CERT, 0, options_.certificatePem.data()},
               {MHD_OPTION_HTTPS_MEM_KEY, 0, options_.privateKeyPem.data()},
               {MHD_OPTION_END, 0, nullptr}};
    }
    MHD_Daemon* const daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, onRequest, this, MHD_OPTION_SOCK_ADDR,
                         &address, MHD_OPTION_CONNECTION_LIMIT, maxConnections,
                         MHD_OPTION_URI_LOG_CALLBACK, onTarget, this, MHD_OPTION_NOTIFY_COMPLETED,
                         onCompleted, this, MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
    if (daemon == nullptr) {
        throw std::runtime_error(
            "the control plane cannot listen on 127.0.0.1:" + std::to_string(options_.port) +
            (isHttps() ? " with this certificate" : ""));
    }
    return daemon;
}

std::uint16_t ControlPlane::Server::port() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

std::string ControlPlane::Server::baseUrl() const {
    return (isHttps() ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port());
}

void ControlPlane::Server::setPolicy(Policy policy) {
    const std::scoped_lock lock(mutex_);
    replacePolicy(std::move(policy));
}

std::size_t ControlPlane::Server::heldPolls() const {
    const std::scoped_lock lock(mutex_);
    return held_.size();
}

void* ControlPlane::Server::onTarget(void*, const char* target, MHD_Connection*) {
    return std::make_unique<Pending>(target).release();
}

MHD_Result ControlPlane::Server::onRequest(void* self, MHD_Connection* connection, const char* path,
                                           const char* method, const char*, const char* bytes,
                                           size_t* size, void** context) {
    auto& pending = *static_cast<Pending*>(*context);
    if (!pending.headersRead) {
        readHeaders(connection, method, path, pending);
        return MHD_YES;
    }
    if (*size != 0) {
        readBody({bytes, std::exchange(*size, 0)}, pending.request);
        return MHD_YES;
    }
    return static_cast<Server*>(self)->answer(connection, pending);
}

void ControlPlane::Server::onCompleted(void*, MHD_Connection*, void** context,
                                       MHD_RequestTerminationCode) {
    const std::unique_ptr<Pending> ended(static_cast<Pending*>(std::exchange(*context, nullptr)));
}

/// Runs again for the same request each time it is released from a hold.
MHD_Result ControlPlane::Server::answer(MHD_Connection* connection, Pending& pending) {
    auto reply = replyOrHold(connection, pending);
    if (!reply) {
        tell(options_.onHeld, pending.exchange);
        return MHD_YES;
    }
    Exchange& exchange = pending.exchange;
    exchange.status = reply->status;
    exchange.bytes = reply->body.size();
    exchange.held =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - pending.arrived);
    tell(options_.onExchange, exchange);
    return send(connection, std::move(*reply));
}

/// Nothing when the request is held. Looking at the policy and joining the held ones is one step,
/// so that no change can slip in between.
std::optional<Reply> ControlPlane::Server::replyOrHold(MHD_Connection* connection,
                                                       Pending& pending) {
    const std::scoped_lock lock(mutex_);
    if (isToBeRefused(pending)) {
        return Reply{options_.behavior.failStatus, {}, {}};
    }
    Decision decision = decide(pending.request, options_.account, policy_);
    if (auto* const reply = std::get_if<Reply>(&decision)) {
        return std::move(*reply);
    }
    if (auto* const accepted = std::get_if<Accept>(&decision)) {
        replacePolicy(std::move(accepted->policy));
        return Reply{204, {}, {}};
    }
    if (!pending.hold) {
        pending.hold = holdFor(std::get<Hold>(decision).atMost);
    }
    const auto deadline = pending.arrived + *pending.hold;
    if (stopping_ || Clock::now() >= deadline) {
        return Reply{304, {}, {}};
    }
    MHD_suspend_connection(connection);
    held_.emplace(deadline, connection);
    holdsChanged_.notify_one();
    return std::nullopt;
}

/// Expects the mutex to be held, as do the next three.
bool ControlPlane::Server::isToBeRefused(Pending& pending) {
    if (options_.behavior.failEvery == 0 || !isPoll(pending.request) ||
        std::exchange(pending.counted, true)) {
        return false;
    }
    return ++polls_ % options_.behavior.failEvery == 0;
}

std::chrono::milliseconds ControlPlane::Server::holdFor(std::chrono::milliseconds atMost) {
    if (!options_.behavior.jitter) {
        return atMost;
    }
    std::uniform_int_distribution<std::chrono::milliseconds::rep> length(atMost.count() * 4 / 5,
                                                                         atMost.count());
    return std::chrono::milliseconds(length(random_));
}

void ControlPlane::Server::replacePolicy(Policy policy) {
    policy_ = std::move(policy);
    releaseUntil(Clock::time_point::max());
}

void ControlPlane::Server::releaseUntil(Clock::time_point deadline) {
    while (!held_.empty() && held_.begin()->first <= deadline) {
        MHD_resume_connection(held_.begin()->second);
        held_.erase(held_.begin());
    }
}

void ControlPlane::Server::endHolds() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (held_.empty()) {
            holdsChanged_.wait(lock);
        } else {
            holdsChanged_.wait_until(lock, Clock::time_point(held_.begin()->first));
        }
        releaseUntil(Clock::now());
    }
}

ControlPlane::ControlPlane(Options options)
    : server_(std::make_unique<Server>(std::move(options))) {}

ControlPlane::~ControlPlane() = default;

std::uint16_t ControlPlane::port() const {
    return server_->port();
}

std::string ControlPlane::baseUrl() const {
    return server_->baseUrl();
}

bool ControlPlane::setPolicy(std::string_view json) {
    auto policy = readPolicy(json);
    if (!policy) {
        return false;
    }
    server_->setPolicy(std::move(*policy));
    return true;
}

std::size_t ControlPlane::heldPolls() const {
    return server_->heldPolls();
}

}  // namespace orvane::emulator
