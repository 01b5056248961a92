#include "emulator/front/front.h"

#include "emulator/front/client.h"
#include "emulator/front/readiness.h"
#include "emulator/front/tls_context.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <thread>
#include <utility>

namespace orvane::front {

class Front::Loop {
  public:
    explicit Loop(Options options)
        : options_(std::move(options)),
          context_(contextFor(options_.certificatePem, options_.privateKeyPem)) {
        (void)::fcntl(options_.listener, F_SETFL, ::fcntl(options_.listener, F_GETFL) | O_NONBLOCK);
        (void)readiness_.watch(options_.listener, listenerId);
        thread_ = std::thread([this] { run(); });
    }
    ~Loop() {
        isStopping_ = true;
        readiness_.interrupt();
        thread_.join();
        clients_.clear();
        ::close(options_.listener);
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

  private:
    static constexpr std::uint64_t listenerId = 1;

    void run() {
        while (!isStopping_) {
            for (const std::uint64_t id : readiness_.wait()) {
                advance(id);
            }
            // Always, since one that was out of descriptors before is not reported again.
            accept();
        }
    }

    void advance(std::uint64_t id) {
        const auto found = clients_.find(id);
        if (found != clients_.end() && !found->second.advance()) {
            clients_.erase(found);
        }
    }

    void accept() {
        for (;;) {
            const int socket = ::accept(options_.listener, nullptr, nullptr);
            if (socket < 0) {
                return;
            }
            const int yes = 1;
            (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
            const std::uint64_t id = ++lastId_;
            const auto backend = [this, id] { return connect(id); };
            clients_.try_emplace(id, socket, context_.get(), backend);
            if (!readiness_.watch(socket, id)) {
                clients_.erase(id);
            }
        }
    }

    std::unique_ptr<Wire> connect(std::uint64_t client) {
        const int socket = options_.connect();
        if (socket < 0) {
            return nullptr;
        }
        auto wire = std::make_unique<Wire>(socket);
        return readiness_.watch(socket, client) ? std::move(wire) : nullptr;
    }

    const Options options_;
    const TlsContext context_;
    const Readiness readiness_;
    std::uint64_t lastId_ = listenerId;
    std::map<std::uint64_t, Client> clients_;
    std::atomic<bool> isStopping_ = false;
    std::thread thread_;
};

Front::Front(Options options) : loop_(std::make_unique<Loop>(std::move(options))) {}

Front::~Front() = default;

}  // namespace orvane::front
