// A control plane that holds every poll until it is told to answer one; versions are those of
// support/policy_versions.h.
#pragma once

#include "support/scripted_server.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

class PolicyServer {
  public:
    PolicyServer();
    PolicyServer(const PolicyServer&) = delete;
    PolicyServer& operator=(const PolicyServer&) = delete;

    [[nodiscard]] std::string url() const { return server_.url(); }

    /// Answers one poll, the one that is held or the next to come: with 304 when it has the ETag of
    /// `version`, else with that version's policy.
    void answerOne(int version);

    /// The ETags, without their quotes, of all polls so far.
    [[nodiscard]] std::vector<std::optional<std::string>> polls() const;
    /// The targets, with their queries, of all requests for the effective configuration so far.
    [[nodiscard]] std::vector<std::string> effectiveTargets() const;

  private:
    bool poll(Connection& connection, const ReceivedRequest& request);
    bool effective(Connection& connection, const ReceivedRequest& request);
    std::optional<int> takeAnswer();

    mutable std::mutex mutex_;
    std::vector<int> answers_;  ///< versions to answer with, not used yet
    int version_ = 0;           ///< the last that was answered with
    std::vector<std::optional<std::string>> polls_;
    ScriptedServer server_;  ///< last: its threads use the rest
};

}  // namespace orvane::test
