#include "status/prometheus_report.h"

#include "platform/text/text.h"

#include <algorithm>
#include <array>

namespace orvane::status {

namespace {

constexpr std::string_view prefix = "orvane_policy_";

struct Metric {
    std::string_view name;
    std::string_view help;
};

/// All are gauges.
constexpr std::array<Metric, 15> metrics{{
    {"status", "0 healthy, 1 degraded, 2 not working, 3 unknown."},
    {"info", "The source of credentials and the ETag of the stored policy; always 1."},
    {"service_running", "Whether the service manager says that the daemon runs."},
    {"service_restarts", "How often the service manager has started the daemon again."},
    {"service_running_seconds", "For how long the daemon has been running."},
    {"last_poll_timestamp_seconds", "When the last poll ended."},
    {"last_poll_http_status", "The HTTP status of the last poll; 0 without a response."},
    {"last_good_poll_timestamp_seconds", "When the last good poll ended."},
    {"polls_24h", "Polls in the last 24 hours."},
    {"polls_failed_24h", "Polls in the last 24 hours that failed."},
    {"stored_bytes", "The size of the stored policy."},
    {"stored_timestamp_seconds", "When the policy was stored."},
    {"capture_in_step", "Whether the capture policy is what the stored policy says."},
    {"capture_enabled", "Whether the policy wants traffic to be captured."},
    {"capture_hosts", "For how many hosts the policy wants it."},
}};

/// A label's value, escaped.
std::string labelValue(std::string_view text) {
    std::string result = "\"";
    for (const char c : text::repairedUtf8(text)) {
        if (c == '\n') {
            result += "\\n";
        } else {
            result += (c == '"' || c == '\\') ? std::string{'\\', c} : std::string{c};
        }
    }
    return result + "\"";
}

class Samples {
  public:
    explicit Samples(std::string labels) : labels_(std::move(labels)) {}

    void add(std::string_view name, std::int64_t value, const std::string& moreLabels = "") {
        text_.append(prefix).append(name).append("{").append(labels_).append(moreLabels);
        text_.append("} ").append(std::to_string(value)).append("\n");
    }
    void addTime(std::string_view name, const std::optional<Time>& time) {
        if (time) {
            add(name, std::chrono::floor<std::chrono::seconds>(*time).count());
        }
    }
    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    std::string labels_;
    std::string text_;
};

void addService(Samples& samples, const Service& service) {
    if (service.state != ServiceState::unknown) {
        samples.add("service_running", service.state == ServiceState::running ? 1 : 0);
    }
    if (service.restarts) {
        samples.add("service_restarts", *service.restarts);
    }
    samples.addTime("service_running_seconds", service.runningFor);
}

void addHistory(Samples& samples, const History& history) {
    if (history.lastPoll) {
        samples.addTime("last_poll_timestamp_seconds", history.lastPoll->endedAt);
        samples.add("last_poll_http_status", history.lastPoll->status);
    }
    samples.addTime("last_good_poll_timestamp_seconds", history.lastGoodPoll);
    samples.add("polls_24h", history.day.polls);
    samples.add("polls_failed_24h", history.day.failed);
}

}  // namespace

std::string prometheusSamples(const Facts& facts, const Verdict& verdict) {
    Samples samples("account=" + labelValue(facts.account));
    samples.add("status", static_cast<std::int64_t>(verdict.level));
    if (facts.source) {
        samples.add("info", 1,
                    ",profile=" + labelValue(facts.source->name) +
                        ",api_url=" + labelValue(facts.source->apiUrl) +
                        ",etag=" + labelValue(facts.policy.tag.value_or("")) + ",version=\"" +
                        ORVANE_VERSION "\"");
    }
    addService(samples, facts.service);
    addHistory(samples, facts.history);
    if (facts.policy.isThere) {
        samples.add("stored_bytes", facts.policy.bytes);
        samples.addTime("stored_timestamp_seconds", facts.policy.storedAt);
    }
    if (facts.capture.state != CaptureState::notAsked) {
        samples.add("capture_in_step", facts.capture.state == CaptureState::inStep ? 1 : 0);
        samples.add("capture_enabled", facts.capture.enabled ? 1 : 0);
        samples.add("capture_hosts", facts.capture.hosts);
    }
    return samples.text();
}

std::string prometheusExposition(std::string_view samples) {
    std::string text;
    for (const Metric& metric : metrics) {
        const std::string name = std::string(prefix) + std::string(metric.name);
        std::string found;
        for (std::string_view rest = samples; !rest.empty();) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(std::min(rest.size(), line.size() + 1));
            if (line.starts_with(name + "{")) {
                found.append(line).append("\n");
            }
        }
        if (!found.empty()) {
            text.append("# HELP ").append(name).append(" ").append(metric.help).append("\n");
            text.append("# TYPE ").append(name).append(" gauge\n").append(found);
        }
    }
    return text;
}

}  // namespace orvane::status
