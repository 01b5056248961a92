#include "status/json_report.h"

#include "platform/json/json_writer.h"
#include "platform/text/timestamp.h"
#include "status/words.h"

#include <deque>
#include <vector>

namespace orvane::status {

namespace {

/// Collects members and keeps their texts.
class Members {
  public:
    void add(std::string_view key, std::string_view text) {
        members_.push_back({key, std::string_view(texts_.emplace_back(text))});
    }
    void add(std::string_view key, std::int64_t number) { members_.push_back({key, number}); }
    void addFlag(std::string_view key, bool flag) { members_.push_back({key, flag}); }
    void addTime(std::string_view key, const std::optional<Time>& time) {
        if (time) {
            add(key, iso8601(*time));
        }
    }
    template <typename Value>
    void addIfKnown(std::string_view key, const std::optional<Value>& value) {
        if (value) {
            add(key, *value);
        }
    }
    [[nodiscard]] std::string text() const { return json::writeObject(members_); }

  private:
    std::deque<std::string> texts_;
    std::vector<json::Field> members_;
};

std::string_view nameOf(CaptureState state) {
    switch (state) {
        case CaptureState::inStep:
            return "in step";
        case CaptureState::different:
            return "different";
        case CaptureState::missing:
            return "missing";
        case CaptureState::notAsked:
            break;
    }
    return "not in the policy";
}

void addService(Members& members, const Service& service) {
    members.add("service", nameOf(service.state));
    members.addIfKnown("pid", service.pid);
    members.addIfKnown("restarts", service.restarts);
    if (service.runningFor) {
        members.add("running_seconds",
                    std::chrono::floor<std::chrono::seconds>(*service.runningFor).count());
    }
}

void addPolicy(Members& members, const Policy& policy) {
    if (!policy.isThere) {
        return;
    }
    members.addIfKnown("policy_etag", policy.tag);
    members.add("policy_bytes", policy.bytes);
    members.addTime("policy_stored_at", policy.storedAt);
}

void addHistory(Members& members, const History& history) {
    if (const auto& poll = history.lastPoll) {
        members.addTime("last_poll_at", poll->endedAt);
        members.add("last_poll_status", poll->status);
        members.add("last_poll_ms", poll->milliseconds);
        if (!poll->error.empty()) {
            members.add("last_poll_error", poll->error);
        }
    }
    members.addTime("last_good_poll_at", history.lastGoodPoll);
    members.add("polls_24h", history.day.polls);
    members.add("polls_failed_24h", history.day.failed);
    members.addTime("polls_counted_since", history.countedSince);
}

void addCapture(Members& members, const Capture& capture) {
    members.add("capture", nameOf(capture.state));
    if (capture.state != CaptureState::notAsked) {
        members.addFlag("capture_enabled", capture.enabled);
        members.add("capture_hosts", capture.hosts);
        members.addFlag("capture_readable", capture.isReadableByOthers);
    }
}

}  // namespace

std::string jsonReport(const Facts& facts, const Verdict& verdict) {
    Members members;
    members.add("version", ORVANE_VERSION);
    members.add("account", facts.account);
    members.addTime("checked_at", facts.now);
    members.add("status", static_cast<std::int64_t>(verdict.level));
    members.add("verdict", nameOf(verdict.level));
    if (!verdict.problem.empty()) {
        members.add("problem", verdict.problem);
        members.add("reason", verdict.reason);
        members.add("advice", verdict.advice);
    }
    addService(members, facts.service);
    if (facts.source) {
        members.add("profile", facts.source->name);
        members.add("api_url", facts.source->apiUrl);
        members.addFlag("profile_inferred", facts.source->isInferred);
    }
    addPolicy(members, facts.policy);
    addHistory(members, facts.history);
    addCapture(members, facts.capture);
    return members.text() + "\n";
}

}  // namespace orvane::status
