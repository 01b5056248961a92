// Poll cycles of the daemon's own loop in which the server misbehaves once, and the cycle after.
#pragma once

#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/sanitizers.h"
#include "support/scripted_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace orvane::test {

/// The exchanges that a poll cycle can consist of.
enum class Endpoint { poll, effective, identity };

/// The exchange in which the server misbehaves.
struct FaultContext {
    Endpoint endpoint;
    const char* path;
    /// The daemon's inactivity limit.
    std::chrono::seconds silence;
    /// The session whose thread performs the exchange.
    HttpSession& session;
    ScriptedServer& server;
};

/// What the daemon is expected to see of a response.
struct ExpectedResult {
    int status = 0;                                   ///< 0 if no header arrived
    std::int64_t bytes = 0;                           ///< of a body that arrived completely
    std::optional<std::string> error = std::nullopt;  ///< absent for a complete response; only its
                                                      ///< start if that is empty or ends with "("
};

/// A connection that is lost after a header with `status`, or before any.
ExpectedResult lost(int status = 0);
/// A timeout, after a header with `status` or before any.
ExpectedResult timedOut(int status = 0);
/// A failure with libcurl's message, after a header with `status` or before any.
ExpectedResult failed(int status = 0);
/// A complete response with a body of `bytes` bytes that is not a JSON object.
ExpectedResult answered(int status, std::size_t bytes);

/// A way in which the server misbehaves in one exchange.
struct ServerFault {
    std::string name;
    ExpectedResult expected;
    /// Makes the server do it in the next exchange...
    std::function<void(const FaultContext&)> inject;
    /// ...and behave again afterwards, where that takes action.
    std::function<void(const FaultContext&)> undo = nullptr;
};

std::ostream& operator<<(std::ostream& stream, Endpoint endpoint);

/// A fault and the endpoint it is injected at. A fault may hold megabytes, and every test is a
/// process that lists all of them, so they are not copied.
using HostileCase = std::tuple<const ServerFault*, Endpoint>;

/// Names a parametrized test after its case.
std::string nameOf(const testing::TestParamInfo<HostileCase>& info);

/// Each of `faults`, which have to outlive the tests, at each of `endpoints`; if
/// ORVANE_EACH_FAULT_ONCE at one of them, in turn. Under ThreadSanitizer at the first alone: what
/// happens between threads is the same at all of them.
inline auto combine(const std::vector<ServerFault>& faults, std::vector<Endpoint> endpoints) {
    if constexpr (isThreadSanitized) {
        endpoints.resize(1);
    }
    std::vector<HostileCase> cases;
    for (const ServerFault& fault : faults) {
        if constexpr (ORVANE_EACH_FAULT_ONCE) {
            cases.emplace_back(&fault, endpoints[cases.size() % endpoints.size()]);
        } else {
            for (const Endpoint endpoint : endpoints) {
                cases.emplace_back(&fault, endpoint);
            }
        }
    }
    return testing::ValuesIn(cases);
}

inline auto onEveryEndpoint(const std::vector<ServerFault>& faults) {
    return combine(faults, {Endpoint::poll, Endpoint::effective, Endpoint::identity});
}
void onEveryEndpoint(std::vector<ServerFault>&& faults) = delete;

using StepFor = std::function<Step(const FaultContext&)>;

/// Faults injected when the request has arrived, or on connect, before anything is read.
ServerFault onRequest(std::string name, ExpectedResult expected, StepFor step);
ServerFault onRequest(std::string name, ExpectedResult expected, Step step);
ServerFault onConnect(std::string name, ExpectedResult expected, StepFor step);

/// The longest that an exchange may last, whatever arrives meanwhile.
inline constexpr std::chrono::seconds totalLimit{360};

/// Sends `head`, stays silent for a little longer than the inactivity limit, then does `rest`.
StepFor stall(std::string head = "", Step rest = staySilent());
/// Sends `head`, then `bytes` over and over until the daemon goes: of its own accord, or because
/// its time is over after `enough` bytes.
Step flood(std::string head, std::string bytes, std::size_t enough = std::size_t{16} << 20U);
std::string repeated(const std::string& part, int times);

/// The lines logged for a poll and for an effective fetch with `expected`.
std::vector<std::string> pollLines(const ExpectedResult& expected);
std::string effectiveLine(const ExpectedResult& expected);
/// Whether a poll with `expected` is followed by a back-off.
bool costsASleep(const ExpectedResult& expected);

class HostileCycleTest : public DaemonTest, public testing::WithParamInterface<HostileCase> {
  protected:
    HostileCycleTest();

    /// Runs the loop with files stored earlier. In the first cycle the server injects the fault at
    /// the endpoint; after that it behaves. Checks all that has to follow: what is logged,
    /// recorded, slept and stored.
    void expectEndured(const HostileCase& hostileCase);

    [[nodiscard]] FaultContext contextAt(Endpoint endpoint);

    /// How long the cycle took in which the server misbehaved.
    std::chrono::nanoseconds cycleTime{};
    /// What the server received from the fault until it behaved again.
    std::string receivedMeanwhile;

    PolicyRunner runner;
    /// Destroyed before the runner, whose session its steps use.
    std::unique_ptr<ScriptedServer> server = std::make_unique<ScriptedServer>();

  private:
    void offerProfile(Endpoint endpoint) const;
    static void withdrawProfile();
    void scriptFaultyCycle(Endpoint endpoint, const ServerFault& fault);
    void scriptGoodCycle(Endpoint endpoint);
    void run(Endpoint endpoint, const ServerFault& fault);
    void inject(Endpoint endpoint, const ServerFault& fault);
    void expectLogged(Endpoint endpoint, const ExpectedResult& expected) const;
    static void expectRecorded(Endpoint endpoint, const ExpectedResult& expected);

    bool recovered_ = false;
    std::size_t receivedBefore_ = 0;
};

}  // namespace orvane::test
