// Turns of the daemon's own loop in which the server misbehaves once, and the turn after them.
#pragma once

#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
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

/// The exchanges that a turn can consist of.
enum class Endpoint { poll, effective, identity };

/// The exchange that a server misbehaves in.
struct Scene {
    Endpoint endpoint;
    const char* path;
    /// How long the daemon bears silence.
    std::chrono::seconds silence;
    /// Whose thread makes the exchange.
    HttpSession& session;
    ScriptedServer& server;
};

/// What the daemon sees of an answer.
struct Ending {
    int status = 0;                                   ///< 0 when no header came
    std::int64_t bytes = 0;                           ///< of a body that came to its end
    std::optional<std::string> error = std::nullopt;  ///< absent for a whole answer; only its start
                                                      ///< when that is empty or ends with "("
};

/// A connection that is lost behind a header with `status`, or before there was one.
Ending lost(int status = 0);
/// Too long a wait, behind a header with `status` or before there was one.
Ending timedOut(int status = 0);
/// A failure that the HTTP library words, behind a header with `status` or before there was one.
Ending failed(int status = 0);
/// A whole answer with a body of `bytes` bytes that is not a JSON object.
Ending answered(int status, std::size_t bytes);

/// A way to misbehave in one exchange.
struct Misdeed {
    std::string name;
    Ending ending;
    /// Has the server do it in the next exchange...
    std::function<void(const Scene&)> commit;
    /// ...and behave again in those to come, where that takes doing.
    std::function<void(const Scene&)> undo = nullptr;
};

std::ostream& operator<<(std::ostream& stream, const Misdeed& misdeed);
std::ostream& operator<<(std::ostream& stream, Endpoint endpoint);

/// Where a misdeed is done.
using HostileCase = std::tuple<Misdeed, Endpoint>;

/// Names a parametrised test after its case.
std::string nameOf(const testing::TestParamInfo<HostileCase>& info);

inline auto onEveryEndpoint(const std::vector<Misdeed>& misdeeds) {
    return testing::Combine(
        testing::ValuesIn(misdeeds),
        testing::Values(Endpoint::poll, Endpoint::effective, Endpoint::identity));
}

using StepFor = std::function<Step(const Scene&)>;

/// Misdeeds done when the request has come, or the connection before anything of it is read.
Misdeed onRequest(std::string name, Ending ending, StepFor step);
Misdeed onRequest(std::string name, Ending ending, Step step);
Misdeed onConnect(std::string name, Ending ending, StepFor step);

/// The longest that an exchange may last, whatever comes meanwhile.
inline constexpr std::chrono::seconds totalLimit{360};

/// Sends `head`, then says nothing for a little longer than the daemon bears, then does `rest`.
StepFor stall(std::string head = "", Step rest = staySilent());
/// Sends `head`, then `bytes` over and over until the daemon goes: of its own accord, or because
/// its time is over after `enough` bytes.
Step flood(std::string head, std::string bytes, std::size_t enough = std::size_t{16} << 20U);
std::string repeated(const std::string& part, int times);

/// The lines that a poll and an effective fetch with `ending` are told with.
std::vector<std::string> pollLines(const Ending& ending);
std::string effectiveLine(const Ending& ending);
/// Whether a poll with `ending` is followed by a back-off.
bool costsASleep(const Ending& ending);

class HostileTurnTest : public DaemonTest, public testing::WithParamInterface<HostileCase> {
  protected:
    HostileTurnTest();

    /// Runs the loop with things stored from better times. In the first turn the server commits
    /// the misdeed on the endpoint; after that it is good. Expects all that has to come of it: what
    /// is logged, recorded, slept and stored.
    void expectEndured(const HostileCase& hostileCase);

    [[nodiscard]] Scene sceneAt(Endpoint endpoint);

    /// How long the turn took in which the server misbehaved.
    std::chrono::nanoseconds turnTime{};
    /// What the server received from the misdeed until it behaved again.
    std::string receivedMeanwhile;

    PolicyRunner runner;
    /// Goes before the runner, of which its steps use the session.
    std::unique_ptr<ScriptedServer> server = std::make_unique<ScriptedServer>();

  private:
    void offerProfile(Endpoint endpoint) const;
    static void withdrawProfile();
    void scriptHostileTurn(Endpoint endpoint, const Misdeed& misdeed);
    void scriptGoodTurn(Endpoint endpoint);
    void run(Endpoint endpoint, const Misdeed& misdeed);
    void commit(Endpoint endpoint, const Misdeed& misdeed);
    void expectLogged(Endpoint endpoint, const Ending& ending) const;
    static void expectRecorded(Endpoint endpoint, const Ending& ending);

    bool recovered_ = false;
    std::size_t receivedBefore_ = 0;
};

}  // namespace orvane::test
