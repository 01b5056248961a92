#pragma once

#include "emulator/decision.h"
#include "emulator/exchange.h"
#include "emulator/fault.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::emulator {

/// What a control plane does beyond answering.
struct Behavior {
    std::chrono::seconds longestHold{300};  ///< Polls are held no longer, whatever they ask for.
    bool jitter = false;                    ///< They are held for 80 to 100 % of their time.
    unsigned failEvery = 0;     ///< Each poll whose number is a multiple is refused; 0 for none.
    unsigned failStatus = 503;  ///< With this status.
    std::uint64_t seed = 0;     ///< For what is chosen at random.
};

/// How to run a control plane.
struct Options {
    std::string address = "127.0.0.1";  ///< The address to listen on.
    std::uint16_t port = 0;             ///< TCP port; 0 for any free one.
    Account account;                    ///< An empty `apiUrl` means the server's own address.
    Behavior behavior;
    /// With a certificate and its key the server speaks HTTPS only, HTTP/2 with those who offer it;
    /// with both empty, HTTP/1.1 in the clear only.
    std::string certificatePem;
    std::string privateKeyPem;

    /// Called when a request of an agent begins to be held, and when one has its answer, which is
    /// just before that answer is sent, or ends without one; also for requests of people that
    /// change something. Both run on the server's thread, one at a time, and must be quick, must
    /// not throw and must not destroy the control plane.
    std::function<void(const Exchange&)> onHeld;
    std::function<void(const Exchange&)> onExchange;
};

/// A control plane on this machine: it serves one policy to any number of agents, holds their polls
/// until the policy changes, and shows people at `/` what happens.
///
/// It answers from construction to destruction, on a thread of its own; a second thread ends the
/// polls whose time is up and notices agents that hang up, and with HTTPS a third one speaks TLS
/// and HTTP/2. All operations may be called from any
/// thread.
class ControlPlane {
  public:
    /// Starts to listen. Throws BadInput when that is not possible (the port is taken, the
    /// certificate does not fit the key). SIGPIPE is ignored from then on.
    explicit ControlPlane(Options options);

    /// Lets go of held polls and stops.
    ~ControlPlane();

    ControlPlane(const ControlPlane&) = delete;
    ControlPlane& operator=(const ControlPlane&) = delete;

    std::uint16_t port() const;

    /// Scheme, address and port, without a slash at the end.
    std::string baseUrl() const;

    /// Makes `json` the policy (see readPolicy) and lets held polls have it at once. Throws
    /// BadInput when it is unusable; then nothing changes.
    void setPolicy(std::string_view json);

    /// Switches `faults` on and all others off, for held polls as well.
    void setFaults(std::vector<Fault> faults);

    /// How many polls are held right now.
    std::size_t heldPolls() const;

  private:
    class Server;
    std::unique_ptr<Server> server_;
};

}  // namespace orvane::emulator
