#include "status/verdict.h"

#include "control_plane/poll_request.h"
#include "status/service.h"
#include "status/service_verdict.h"
#include "status/words.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace orvane::status {

namespace {

using Judgment = std::optional<Verdict>;

constexpr std::size_t longestText = 200;

std::string ago(Time time, Time now) {
    return inWords(now - time, Units::abbreviated) + " ago";
}

/// What brings policy, ETag and everything derived from them in step again.
std::string fetchAgain() {
    return std::string("fetch the policy again: rm -f ~/.orvane/policy-etag.json; ")
        .append(serviceCommands.restart);
}

bool isDiskFull(const Facts& facts) {
    constexpr std::uintmax_t leastFree = 65536;
    return facts.freeBytes && *facts.freeBytes < leastFree;
}

/// Whether the last answer that brought a policy was not stored.
bool wasUpdateLost(const Facts& facts) {
    const auto& update = facts.history.lastUpdate;
    const auto storedAt =
        facts.policy.isThere ? std::optional(facts.policy.storedAt) : std::nullopt;
    return update && !wasStored(update->endedAt, storedAt, facts.now);
}

std::string whyPollFailed(const Exchange& poll) {
    return poll.error.empty() ? "HTTP " + std::to_string(poll.status)
                              : printable(poll.error, longestText);
}

/// For a poll that failed.
std::string adviceFor(const Exchange& poll) {
    if (outcomeOf(poll.status) == PollOutcome::rejected) {
        return "sign in again, or enroll with a new key";
    }
    if (poll.status == 0) {
        return "look at the network, the name and the certificate in \"No connection\" of the "
               "manual";
    }
    constexpr std::int64_t firstServerError = 500;
    return poll.status < firstServerError ? "correct api_url; redirects are not followed"
                                          : "look at the control plane";
}

Verdict diskFull(Level level) {
    return {.level = level,
            .problem = "disk-full",
            .reason = "the disk with ~/.orvane is full, so nothing can be stored",
            .advice = "make room; then fetch the policy again if it is missing"};
}

Verdict updateLost(const Facts& facts, Level level) {
    return {.level = level,
            .problem = "policy-not-stored",
            .reason =
                "the answer of " + localTime(facts.history.lastUpdate->endedAt) + " was not stored",
            .advice = std::string("look for the reason (no policy in it, no rights): ")
                          .append(serviceCommands.log)};
}

// ---- The polls ----------------------------------------------------------------------------------

Judgment judgeSource(const Facts& facts) {
    if (!facts.source) {
        return Verdict{.level = Level::notWorking,
                       .problem = "no-profile",
                       .reason = "no source of credentials is complete",
                       .advice = "enroll, or find the mistake in the source that is meant"};
    }
    if (!facts.source->isUrl) {
        return Verdict{.level = Level::notWorking,
                       .problem = "bad-url",
                       .reason = "api_url is not a URL",
                       .advice = "correct it: https:// and a host, no spaces"};
    }
    return std::nullopt;
}

Judgment judgeLog(const Facts& facts) {
    constexpr std::chrono::seconds clockDrift(60);
    if (!facts.isLogReadable) {
        return Verdict{.level = Level::unknown,
                       .problem = "log-unreadable",
                       .reason = "the activity log cannot be read",
                       .advice = "look at the rights of ~/.orvane/logs and what is in it"};
    }
    const auto& last = facts.history.lastPoll;
    if (last && last->endedAt - facts.now > clockDrift) {
        return Verdict{.level = Level::unknown,
                       .problem = "clock",
                       .reason = "the last poll is dated in the future",
                       .advice = "look at the clock; the next poll shows more"};
    }
    return std::nullopt;
}

/// Whether a poll has ended since the service was started, as far as that is known.
bool hasPolled(const Facts& facts) {
    const auto& last = facts.history.lastPoll;
    return last &&
           (!facts.service.runningFor || last->endedAt >= facts.now - *facts.service.runningFor);
}

Verdict noPollSince(Time last, Time now) {
    std::string reason = "the last poll ended " + ago(last, now);
    std::string advice = "after a sleep of the machine, wait eight minutes; else look at the log: ";
    return {.level = Level::notWorking,
            .problem = "no-poll",
            .reason = std::move(reason),
            .advice = std::move(advice.append(serviceCommands.log))};
}

Judgment judgePolls(const Facts& facts) {
    const auto& history = facts.history;
    const auto limit = facts.now - goodPollLimit;
    if (history.lastGoodPoll && *history.lastGoodPoll >= limit) {
        return std::nullopt;
    }
    if (isDiskFull(facts)) {
        return diskFull(Level::notWorking);
    }
    if (!hasPolled(facts) && facts.service.runningFor.value_or(goodPollLimit) < goodPollLimit) {
        return Verdict{.level = Level::unknown,
                       .problem = "first-poll",
                       .reason = "started " +
                                 inWords(*facts.service.runningFor, Units::abbreviated) +
                                 " ago; its first poll has not ended",
                       .advice = "ask again in a few minutes"};
    }
    if (!history.lastPoll) {
        return Verdict{.level = Level::notWorking,
                       .problem = "never-polled",
                       .reason = "no poll is on record",
                       .advice = std::string("look for the reason: ").append(serviceCommands.log)};
    }
    const bool hasRecentPoll = history.lastPoll->endedAt >= limit;
    if (hasRecentPoll && history.lastPoll->status == 200) {
        return updateLost(facts, Level::notWorking);
    }
    if (hasRecentPoll) {
        return Verdict{.level = Level::notWorking,
                       .problem = "no-good-poll",
                       .reason = "polls fail: " + whyPollFailed(*history.lastPoll),
                       .advice = adviceFor(*history.lastPoll)};
    }
    return noPollSince(history.lastPoll->endedAt, facts.now);
}

Judgment judgeLastPoll(const Facts& facts) {
    const Exchange& last = *facts.history.lastPoll;
    const PollOutcome outcome = outcomeOf(last.status);
    const bool isFailure = outcome == PollOutcome::rejected || outcome == PollOutcome::unexpected;
    if (!isFailure || !hasPolled(facts)) {
        return std::nullopt;
    }
    return Verdict{.level = Level::degraded,
                   .problem = "poll-failed",
                   .reason = "the last poll failed: " + whyPollFailed(last),
                   .advice = adviceFor(last)};
}

// ---- The files ----------------------------------------------------------------------------------

Judgment judgeDisk(const Facts& facts) {
    return isDiskFull(facts) ? Judgment(diskFull(Level::degraded)) : std::nullopt;
}

Judgment judgePolicy(const Facts& facts) {
    const Policy& policy = facts.policy;
    if (wasUpdateLost(facts)) {
        return updateLost(facts, Level::degraded);
    }
    if (!policy.isThere) {
        return Verdict{.level = Level::degraded,
                       .problem = "no-policy",
                       .reason = "no policy is stored",
                       .advice = fetchAgain()};
    }
    if (!policy.isUsable) {
        return Verdict{.level = Level::degraded,
                       .problem = "policy-unusable",
                       .reason = "policy.json is not a JSON object",
                       .advice = fetchAgain()};
    }
    if (policy.ownTag && policy.ownTag != policy.tag) {
        return Verdict{.level = Level::degraded,
                       .problem = "tag-differs",
                       .reason = "the stored policy and its ETag are not of the same version",
                       .advice = fetchAgain()};
    }
    return std::nullopt;
}

Judgment judgeEffective(const Facts& facts) {
    constexpr std::int64_t ok = 200;
    constexpr std::int64_t notFound = 404;
    const auto& last = facts.history.lastEffective;
    if (!last || last->status == notFound ||
        (last->status == ok && wasStored(last->endedAt, facts.effectiveStoredAt, facts.now))) {
        return std::nullopt;
    }
    return Verdict{.level = Level::degraded,
                   .problem = "effective-stale",
                   .reason = "the effective configuration of " + localTime(last->endedAt) +
                             " was not stored (HTTP " + std::to_string(last->status) + ")",
                   .advice = fetchAgain()};
}

Judgment judgeCapture(const Facts& facts) {
    // It is written when the effective configuration has been fetched.
    constexpr std::chrono::seconds deriving(60);
    const Capture& capture = facts.capture;
    const bool isStale =
        capture.state == CaptureState::different || capture.state == CaptureState::missing;
    if (isStale && facts.now - facts.policy.storedAt >= deriving) {
        if (capture.owner) {
            return Verdict{
                .level = Level::degraded,
                .problem = "capture-not-ours",
                .reason = "capture-policy.json is not in step and belongs to " +
                          printable(*capture.owner, longestText),
                .advice =
                    "have the accounts share it: \"Several accounts on one machine\" in fleet.md"};
        }
        return Verdict{
            .level = Level::degraded,
            .problem = "capture-stale",
            .reason = capture.state == CaptureState::missing
                          ? "capture-policy.json is missing"
                          : "capture-policy.json is not in step with the policy",
            .advice = "when a poll ends, it is written again; to have that now, " + fetchAgain()};
    }
    if (!capture.isReadableByOthers) {
        return Verdict{
            .level = Level::degraded,
            .problem = "capture-unreadable",
            .reason = "other accounts cannot read capture-policy.json",
            .advice =
                "chmod 644 /private/tmp/dev.orvane.setup/capture-policy.json, and look at the "
                "directory's mode"};
    }
    return std::nullopt;
}

}  // namespace

Verdict judge(const Facts& facts) {
    // The most serious ones first, and of two with one cause, the cause.
    constexpr std::array judges{judgeService, judgeSource,    judgeLog,
                                judgePolls,   judgeLastPoll,  judgeDisk,
                                judgePolicy,  judgeEffective, judgeCapture};
    for (const auto& judgment : judges) {
        if (auto verdict = judgment(facts)) {
            return *verdict;
        }
    }
    return {};
}

std::string_view nameOf(Level level) {
    constexpr std::array<std::string_view, 4> names{"healthy", "degraded", "not working",
                                                    "unknown"};
    return names.at(static_cast<std::size_t>(level));
}

Level worse(Level a, Level b) {
    constexpr std::array rising{Level::healthy, Level::unknown, Level::degraded, Level::notWorking};
    const auto rank = [&](Level level) { return std::find(rising.begin(), rising.end(), level); };
    return rank(a) < rank(b) ? b : a;
}

}  // namespace orvane::status
