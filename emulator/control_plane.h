#pragma once

#include "emulator/decision.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace orvane::emulator {

/// One request and what became of it, for whoever watches. Holds no credentials.
struct Exchange {
    std::string method;
    std::string target;                 ///< Path and query exactly as sent.
    std::string ifNoneMatch;            ///< As sent, with its quotes; empty when absent.
    unsigned status = 0;                ///< 0 while the request is still held.
    std::size_t bytes = 0;              ///< Length of the answer's body.
    std::chrono::milliseconds held{0};  ///< From the request's arrival to its answer.
};

/// How to run a control plane.
struct Options {
    std::uint16_t port = 0;  ///< TCP port on the loopback interface; 0 for any free one.
    Account account;         ///< An empty `apiUrl` stands for the server's own address.
    Behavior behavior;
    std::string certificatePem;  ///< With a certificate and its key the server speaks HTTPS only;
    std::string privateKeyPem;   ///< with both empty, HTTP only.

    /// Called when a request begins to be held, and when a request has its answer, which is just
    /// before that answer is sent. Both run on the server's thread, one at a time, and must be
    /// quick, must not throw and must not destroy the control plane.
    std::function<void(const Exchange&)> onHeld;
    std::function<void(const Exchange&)> onExchange;
};

/// A control plane on this machine's loopback interface: it serves one policy to any number of
/// agents and holds their polls until the policy changes.
///
/// It answers from construction to destruction, on a thread of its own; a second thread ends the
/// polls whose time is up. An agent that hangs up while held is noticed when the hold ends. All
/// operations may be called from any thread.
class ControlPlane {
  public:
    /// Starts to listen. Throws std::runtime_error when that is not possible (the port is taken,
    /// the certificate is unusable, HTTPS is not supported).
    explicit ControlPlane(Options options);

    /// Lets go of held polls and stops.
    ~ControlPlane();

    ControlPlane(const ControlPlane&) = delete;
    ControlPlane& operator=(const ControlPlane&) = delete;

    std::uint16_t port() const;

    /// Scheme, address and port, without a slash at the end.
    std::string baseUrl() const;

    /// Makes `json` the policy (see readPolicy) and lets held polls have it at once.
    /// False, and nothing changes, when it is not a JSON object.
    bool setPolicy(std::string_view json);

    /// How many polls are held right now.
    std::size_t heldPolls() const;

  private:
    class Server;
    std::unique_ptr<Server> server_;
};

}  // namespace orvane::emulator
