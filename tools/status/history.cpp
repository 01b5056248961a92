#include "status/history.h"

#include "control_plane/poll_request.h"
#include "platform/files/files.h"
#include "status/lines_backward.h"

#include <algorithm>

namespace orvane::status {

namespace {

/// Enough for more than a day of polls that fail once a minute.
constexpr std::uint64_t mostBytes = std::uint64_t{1024} * 1024;

/// The first one that exists is the newest rotated log: newsyslog counts from 0, logrotate from 1.
constexpr std::array<const char*, 2> rotatedNames{"policy-daemon.activity.jsonl.0",
                                                  "policy-daemon.activity.jsonl.1"};

}  // namespace

bool wasStored(Time endedAt, const std::optional<Time>& storedAt, Time now) {
    constexpr std::chrono::seconds storing(10);
    constexpr std::chrono::seconds clockTick(2);  // a file's time has whole seconds here
    return now - endedAt < storing || (storedAt && *storedAt >= endedAt - clockTick);
}

bool isGood(const Exchange& poll, const std::optional<Time>& policyStoredAt, Time now) {
    const PollOutcome outcome = outcomeOf(poll.status);
    return outcome == PollOutcome::unchanged ||
           (outcome == PollOutcome::updated && wasStored(poll.endedAt, policyStoredAt, now));
}

HistoryReader::HistoryReader(std::optional<Time> policyStoredAt, Time now)
    : policyStoredAt_(policyStoredAt), now_(now) {}

bool HistoryReader::add(const Exchange& exchange) {
    // An exchange of the future counts as one of now: the clock was set back.
    const Time age = std::max(now_ - exchange.endedAt, Time::zero());
    const auto hour = static_cast<std::size_t>(age / std::chrono::hours(1));
    oldest_ = exchange.endedAt;
    if (!exchange.isPoll) {
        if (!history_.lastEffective) {
            history_.lastEffective = exchange;
        }
        return true;
    }
    const bool good = isGood(exchange, policyStoredAt_, now_);
    if (!history_.lastPoll) {
        history_.lastPoll = exchange;
    }
    if (good && !history_.lastGoodPoll) {
        history_.lastGoodPoll = exchange.endedAt;
    }
    if (!history_.lastUpdate && outcomeOf(exchange.status) == PollOutcome::updated) {
        history_.lastUpdate = exchange;
    }
    if (hour >= hoursInHistory) {
        return !history_.lastGoodPoll;
    }
    for (Hour* counts : {&history_.day, &history_.hours.at(hour)}) {
        ++counts->polls;
        counts->failed += good ? 0 : 1;
    }
    return true;
}

History HistoryReader::result(bool isWhole) const {
    History history = history_;
    if (!isWhole && oldest_ && now_ - *oldest_ < std::chrono::hours(hoursInHistory)) {
        history.countedSince = oldest_;
    }
    return history;
}

LoggedHistory readHistory(const std::filesystem::path& directory,
                          const std::optional<Time>& policyStoredAt, Time now) {
    HistoryReader reader(policyStoredAt, now);
    std::vector<std::filesystem::path> logs{directory / "policy-daemon.activity.jsonl"};
    for (const char* name : rotatedNames) {
        if (logs.size() == 1 && files::exists(directory / name)) {
            logs.push_back(directory / name);
        }
    }
    LinesBackward lines(mostBytes);
    bool wantsMore = true;
    bool isReadable = true;
    for (const auto& log : logs) {
        if (!wantsMore || !files::exists(log)) {
            continue;
        }
        const bool isRead = lines.read(log, [&](std::string_view line) {
            const auto exchange = parseActivityLine(line);
            wantsMore = !exchange || reader.add(*exchange);
            return wantsMore;
        });
        isReadable = isReadable && isRead;
    }
    return {.history = reader.result(!lines.isExhausted()), .isReadable = isReadable};
}

}  // namespace orvane::status
