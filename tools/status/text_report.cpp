#include "status/text_report.h"

#include "status/words.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace orvane::status {

namespace {

constexpr std::size_t labelWidth = 23;
constexpr std::size_t longestUrl = 120;
constexpr std::size_t longestTag = 40;
constexpr std::size_t longestError = 200;

Units unitsOf(const Style& style) {
    return style.isPlain ? Units::spelledOut : Units::abbreviated;
}

std::string ago(Time time, const Facts& facts, const Style& style) {
    return inWords(facts.now - time, unitsOf(style)) + " ago";
}

std::string_view stateInWords(ServiceState state) {
    if (state == ServiceState::restarting) {
        return "about to be started again";
    }
    if (state == ServiceState::systemAccount) {
        return "none for this account";
    }
    return state == ServiceState::unknown ? "unknown (no service manager to ask)" : nameOf(state);
}

std::string serviceText(const Service& service, const Style& style) {
    std::string text(stateInWords(service.state));
    if (service.runningFor) {
        text += " " + inWords(*service.runningFor, unitsOf(style));
    }
    std::string details = service.pid ? "pid " + std::to_string(*service.pid) : "";
    if (service.restarts) {
        details += (details.empty() ? "" : ", ") + counted(*service.restarts, "restart");
    }
    return details.empty() ? text : text + " (" + details + ")";
}

std::string sourceText(const std::optional<Source>& source) {
    if (!source) {
        return "none";
    }
    return "[" + source->name + "] " + printable(source->apiUrl, longestUrl) +
           (source->isInferred ? " (inferred)" : "");
}

std::string policyText(const Facts& facts, const Style& style) {
    const Policy& policy = facts.policy;
    if (!policy.isThere) {
        return "none";
    }
    return (policy.tag ? printable(*policy.tag, longestTag) : "no ETag") + ", " +
           counted(policy.bytes, "byte") + ", since " + localTime(policy.storedAt) + " (" +
           ago(policy.storedAt, facts, style) + ")";
}

std::string lastPollText(const Facts& facts, const Style& style) {
    const auto& poll = facts.history.lastPoll;
    if (!poll) {
        return "none on record";
    }
    std::string text = poll->status == 0 ? "failed" : std::to_string(poll->status);
    text += ", " + ago(poll->endedAt, facts, style);
    constexpr std::int64_t millisecondsPerSecond = 1000;
    if (const auto held = poll->milliseconds / millisecondsPerSecond; held > 0) {
        text += " (held " + std::to_string(held) + (style.isPlain ? " seconds)" : " s)");
    }
    if (!poll->error.empty()) {
        text += ": " + printable(poll->error, longestError);
    }
    return text;
}

/// The hours of a day, the current one last: the higher a bar, the more of its polls failed.
std::string pictureOf(const History& history, const Style& style) {
    constexpr std::array bars{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    std::string picture;
    for (std::size_t i = history.hours.size(); i-- > 0;) {
        const Hour& hour = history.hours.at(i);
        if (hour.polls == 0) {
            picture += "·";
        } else if (hour.failed == 0) {
            picture += bars.front();
        } else {
            const auto height = static_cast<std::size_t>(hour.failed * 7 / hour.polls);
            picture += (style.isColored ? "\033[31m" : "") +
                       std::string(bars.at(std::max<std::size_t>(height, 1))) +
                       (style.isColored ? "\033[0m" : "");
        }
    }
    return picture;
}

std::string dayText(const Facts& facts, const Style& style) {
    const History& history = facts.history;
    std::string text =
        counted(history.day.polls, "poll") + ", " + std::to_string(history.day.failed) + " failed";
    if (history.countedSince) {
        text += " (counted for " + inWords(facts.now - *history.countedSince, unitsOf(style)) + ")";
    } else if (style.hasPicture) {
        text += "  " + pictureOf(history, style);
    }
    return text;
}

std::string captureText(const Capture& capture) {
    if (capture.state == CaptureState::notAsked) {
        return "the policy says nothing about it";
    }
    std::string text = (capture.enabled ? "on, " : "off, ") + counted(capture.hosts, "host") + ", ";
    text += capture.state == CaptureState::inStep    ? "in step with the policy"
            : capture.state == CaptureState::missing ? "missing"
                                                     : "not in step with the policy";
    return text + (capture.isReadableByOthers ? "" : ", not readable by others");
}

/// A row with its label in a column of its own.
std::string row(std::string_view label, const std::string& text, const Style& style) {
    if (style.isPlain) {
        return std::string(label) + ": " + text + "\n";
    }
    std::string padded(label);
    padded.resize(std::max(labelWidth, padded.size() + 1), ' ');
    if (style.width == 0) {
        return padded + text + "\n";
    }
    const std::size_t indent = std::min(labelWidth, style.width / 2);
    return padded + wrapped(text, padded.size(), indent, style.width) + "\n";
}

std::string colored(std::string_view text, Level level, const Style& style) {
    constexpr std::array colors{"\033[32m", "\033[33m", "\033[31m", "\033[35m"};
    return style.isColored
               ? colors.at(static_cast<std::size_t>(level)) + std::string(text) + "\033[0m"
               : std::string(text);
}

/// A reason that is a sentence of the daemon's or a library's loses its full stop.
std::string reasonAndAdvice(const Verdict& verdict) {
    std::string_view reason = verdict.reason;
    if (reason.ends_with('.')) {
        reason.remove_suffix(1);
    }
    return std::string(reason) + "; " + verdict.advice;
}

}  // namespace

std::string verdictLine(const Verdict& verdict, const Style& style) {
    const std::string rest = verdict.reason.empty() ? "" : ": " + reasonAndAdvice(verdict);
    const std::string_view name = nameOf(verdict.level);
    // The name's color has no width.
    return colored(name, verdict.level, style) +
           (style.width == 0 ? rest : wrapped(rest, name.size(), 2, style.width)) + "\n";
}

std::string textReport(const Facts& facts, const Verdict& verdict, const Style& style) {
    return row("orvane-policy-daemon", serviceText(facts.service, style), style) +
           row("profile", sourceText(facts.source), style) +
           row("policy", policyText(facts, style), style) +
           row("last poll", lastPollText(facts, style), style) +
           row("last 24 h", dayText(facts, style), style) +
           row("capture policy", captureText(facts.capture), style) + verdictLine(verdict, style);
}

std::string listEntry(const Facts& facts, const Verdict& verdict, const Style& style) {
    constexpr std::size_t levelWidth = 13;
    const std::string account = printable(facts.account, longestTag);
    const std::string text =
        verdict.reason.empty() ? lastPollText(facts, style) + "; policy " + policyText(facts, style)
                               : reasonAndAdvice(verdict);
    if (style.isPlain) {
        return account + ": " + std::string(nameOf(verdict.level)) + ": " + text + "\n";
    }
    std::string padded(nameOf(verdict.level));
    padded.resize(levelWidth, ' ');
    return row(account, colored(padded, verdict.level, {}) + text, style);
}

}  // namespace orvane::status
