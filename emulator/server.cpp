#include "emulator/server.h"

#include "emulator/agent_requests.h"
#include "emulator/bad_input.h"
#include "emulator/certificate.h"
#include "emulator/listener.h"
#include "emulator/page_requests.h"
#include "emulator/sending.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <utility>
#include <variant>

namespace orvane::emulator {
namespace {

/// More than the 10,000 held polls, for those who look at them.
constexpr unsigned maxConnections = 10'240;

/// Event streams are updated no more often than this.
constexpr std::chrono::milliseconds streamInterval{100};

void tell(const std::function<void(const Exchange&)>& watcher, const Exchange& exchange) {
    if (watcher) {
        watcher(exchange);
    }
}

}  // namespace

ControlPlane::Server::Server(Options options) : options_(std::move(options)) {
    (void)std::signal(SIGPIPE, SIG_IGN);
    if (isHttps()) {
        checkPair(options_.certificatePem, options_.privateKeyPem);
    }
    const int listener = listenOn(options_.address, options_.port);
    // An early request waits here until the server knows its own address.
    const std::scoped_lock lock(mutex_);
    port_ = portOf(listener);
    if (options_.account.apiUrl.empty()) {
        options_.account.apiUrl = baseUrl();
    }
    daemon_ = start(listener);
    if (isHttps()) {
        front_ = startFront(listener);
    }
    timeKeeper_ = std::thread([this] { keepTime(); });
}

ControlPlane::Server::~Server() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        holds_.releaseAll();
    }
    hangUps_.interrupt();
    timeKeeper_.join();
    MHD_stop_daemon(daemon_);
}

/// The library listens by itself, and closes `listener` when it stops, unless the front does.
MHD_Daemon* ControlPlane::Server::start(int listener) {
    std::array<MHD_OptionItem, 2> listening{
        {{MHD_OPTION_LISTEN_SOCKET, listener, nullptr}, {MHD_OPTION_END, 0, nullptr}}};
    // Not with epoll: the library takes 128 events at a time, and if there are just as many, it
    // looks at none of them before another one comes. Held requests cost poll() nothing.
    unsigned flags = MHD_USE_POLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
    if (isHttps()) {
        flags |= MHD_USE_NO_LISTEN_SOCKET;
        listening[0] = listening[1];
    }
    MHD_Daemon* const daemon = MHD_start_daemon(
        flags, 0, nullptr, nullptr, onRequest, this, MHD_OPTION_CONNECTION_LIMIT, maxConnections,
        MHD_OPTION_URI_LOG_CALLBACK, onTarget, this, MHD_OPTION_NOTIFY_COMPLETED, onCompleted, this,
        MHD_OPTION_ARRAY, listening.data(), MHD_OPTION_END);
    if (daemon == nullptr) {
        ::close(listener);
        throw BadInput("the HTTP library does not start");
    }
    return daemon;
}

std::unique_ptr<front::Front> ControlPlane::Server::startFront(int listener) {
    front::Options options{.listener = listener,
                           .certificatePem = options_.certificatePem,
                           .privateKeyPem = options_.privateKeyPem,
                           .connect = [this] { return connect(); }};
    try {
        return std::make_unique<front::Front>(std::move(options));
    } catch (const std::runtime_error& error) {
        MHD_stop_daemon(daemon_);
        ::close(listener);
        throw BadInput(error.what());
    }
}

/// A connection from the front, whose end is returned. -1 when there can be none.
int ControlPlane::Server::connect() {
    sockaddr address{};
    address.sa_family = AF_UNIX;
    std::array<int, 2> ends{};
    const std::scoped_lock lock(mutex_);
    if (stopping_ || ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
        return -1;
    }
    // The library closes its end, whatever happens.
    (void)::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    if (MHD_add_connection(daemon_, ends[1], &address, sizeof address) != MHD_YES) {
        ::close(ends[0]);
        return -1;
    }
    return ends[0];
}

std::string ControlPlane::Server::baseUrl() const {
    return (isHttps() ? "https://" : "http://") + authorityOf(options_.address, port_);
}

void ControlPlane::Server::setPolicy(Policy policy) {
    const std::scoped_lock lock(mutex_);
    replacePolicy(std::move(policy));
}

void ControlPlane::Server::setFaults(std::vector<Fault> faults) {
    const std::scoped_lock lock(mutex_);
    replaceFaults(std::move(faults));
}

std::size_t ControlPlane::Server::heldPolls() const {
    const std::scoped_lock lock(mutex_);
    return holds_.count(HoldKind::poll);
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

void ControlPlane::Server::onCompleted(void* self, MHD_Connection*, void** context,
                                       MHD_RequestTerminationCode code) {
    const std::unique_ptr<Pending> pending(static_cast<Pending*>(std::exchange(*context, nullptr)));
    if (pending && pending->isHeld && !pending->isOver &&
        code != MHD_REQUEST_TERMINATED_DAEMON_SHUTDOWN) {
        static_cast<Server*>(self)->hungUp(*pending);
    }
}

/// Runs again for the same request each time it is released from a hold, unless the library itself
/// notices that the peer is gone.
MHD_Result ControlPlane::Server::answer(MHD_Connection* connection, Pending& pending) {
    if (pending.gone) {
        return MHD_NO;
    }
    const bool wasHeld = pending.isHeld;
    Decision decision = [&] {
        const std::scoped_lock lock(mutex_);
        return settle(connection, pending);
    }();
    if (std::holds_alternative<Hold>(decision)) {
        if (!wasHeld) {
            tell(options_.onHeld, pending.exchange);
        }
        return MHD_YES;
    }
    if (std::holds_alternative<Stream>(decision)) {
        return sendEvents(connection, *this);
    }
    if (isFromAgent(pending.request) || changesSomething(pending.request)) {
        tell(options_.onExchange, pending.exchange);
    }
    if (const auto* const drop = std::get_if<Drop>(&decision)) {
        return send(connection, *drop);
    }
    return send(connection, std::get<Reply>(std::move(decision)));
}

void ControlPlane::Server::hungUp(Pending& pending) {
    {
        const std::scoped_lock lock(mutex_);
        pending.exchange.hungUp = true;
        (void)ended(pending, Drop{});
    }
    tell(options_.onExchange, pending.exchange);
}

void ControlPlane::Server::replacePolicy(Policy policy) {
    policy_ = std::move(policy);
    ++policyVersion_;
    holds_.release(HoldKind::poll);
    wakeStreams();
}

void ControlPlane::Server::replaceFaults(std::vector<Fault> faults) {
    faults_.set(std::move(faults), Clock::now());
    decideAgain();
    hangUps_.interrupt();
}

/// About what is held, so that a fault is seen when it is switched on or off.
void ControlPlane::Server::decideAgain() {
    holds_.release(HoldKind::poll);
    holds_.release(HoldKind::silence);
    wakeStreams();
}

/// A stream that is not suspended looks for itself before it is.
void ControlPlane::Server::wakeStreams() {
    if (holds_.count(HoldKind::stream) > 0 && !std::exchange(streamsAreBehind_, true)) {
        hangUps_.interrupt();
    }
}

void ControlPlane::Server::keepTime() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        const auto streamsAt =
            streamsAreBehind_ ? streamsToldAt_ + streamInterval : Clock::time_point::max();
        const auto deadline = std::min({holds_.nextDeadline(), faults_.nextEnd(), streamsAt});
        lock.unlock();
        const auto gone = hangUps_.waitUntil(deadline);
        lock.lock();
        for (const std::uint64_t id : gone) {
            holds_.hangUp(id);
        }
        const auto now = Clock::now();
        holds_.releaseUntil(now);
        if (faults_.expire(now)) {
            decideAgain();
        }
        if (streamsAreBehind_ && now >= streamsToldAt_ + streamInterval) {
            streamsAreBehind_ = false;
            streamsToldAt_ = now;
            holds_.release(HoldKind::stream);
        }
    }
}

}  // namespace orvane::emulator
