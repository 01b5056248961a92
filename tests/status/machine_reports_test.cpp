// The reports for programs: JSON and Prometheus' text format.
#include "status/healthy_facts.h"
#include "status/json_report.h"
#include "status/prometheus_report.h"
#include "status/status_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <set>
#include <sstream>

namespace orvane::status {
namespace {

using std::chrono::minutes;
using ::testing::HasSubstr;
using ::testing::Not;

class JsonReportTest : public ::testing::Test {
  protected:
    [[nodiscard]] nlohmann::json report() const {
        const std::string text = jsonReport(facts, judge(facts));
        EXPECT_EQ(text.find('\n'), text.size() - 1);
        auto members = nlohmann::json::parse(text);
        members.erase("version");
        return members;
    }

    Facts facts = test::healthyFacts();
};

TEST_F(JsonReportTest, AHealthyDaemonHasTheseMembers) {
    EXPECT_EQ(report(), nlohmann::json::parse(R"({
        "account": "alice", "checked_at": "2027-01-15T08:00:00.000Z", "status": 0,
        "verdict": "healthy", "service": "running", "pid": 4711, "restarts": 0,
        "running_seconds": 273600, "profile": "managed", "profile_inferred": false,
        "api_url": "https://control.example", "policy_etag": "demo-9", "policy_bytes": 342,
        "policy_stored_at": "2027-01-15T05:00:00.000Z",
        "last_poll_at": "2027-01-15T07:59:19.000Z", "last_poll_status": 304,
        "last_poll_ms": 300123, "last_good_poll_at": "2027-01-15T07:59:19.000Z",
        "polls_24h": 288, "polls_failed_24h": 0, "capture": "in step", "capture_enabled": true,
        "capture_hosts": 4, "capture_readable": true})"));
}

TEST_F(JsonReportTest, WhatIsNotKnownIsLeftOut) {
    facts = {};
    facts.account = "bob";
    EXPECT_EQ(report(), nlohmann::json::parse(R"({
        "account": "bob", "checked_at": "1970-01-01T00:00:00.000Z", "status": 2,
        "verdict": "not working", "problem": "no-profile",
        "reason": "no source of credentials is complete",
        "advice": "enroll, or find the mistake in the source that is meant",
        "service": "unknown", "polls_24h": 0, "polls_failed_24h": 0,
        "capture": "not in the policy"})"));
}

TEST_F(JsonReportTest, AFailureHasItsError) {
    facts.history.lastPoll->error = "lost";
    facts.history.countedSince = facts.now - minutes(3);
    EXPECT_EQ(report()["last_poll_error"], "lost");
    EXPECT_EQ(report()["polls_counted_since"], "2027-01-15T07:57:00.000Z");
}

TEST_F(JsonReportTest, StatesHaveFixedNames) {
    const std::vector<std::pair<ServiceState, std::string>> services{
        {ServiceState::running, "running"},
        {ServiceState::restarting, "restarting"},
        {ServiceState::stopped, "stopped"},
        {ServiceState::masked, "masked"},
        {ServiceState::notInstalled, "not installed"},
        {ServiceState::notLoggedIn, "not logged in"},
        {ServiceState::systemAccount, "system account"},
        {ServiceState::unknown, "unknown"}};
    for (const auto& [state, name] : services) {
        facts.service.state = state;
        EXPECT_EQ(report()["service"], name);
    }
    facts.capture.state = CaptureState::different;
    EXPECT_EQ(report()["capture"], "different");
    facts.capture.state = CaptureState::missing;
    EXPECT_EQ(report()["capture"], "missing");
}

TEST_F(JsonReportTest, TheManualHasEveryMemberAndItsType) {
    using Types = std::map<std::string, std::string>;
    Types documented;
    for (const auto& row : test::tableRows("For programs")) {
        for (const std::string& member : test::codeIn(row.at(0))) {
            documented[member] = row.at(1);
        }
    }
    facts.history.lastPoll->error = "lost";
    facts.history.lastPoll->status = 0;
    facts.history.countedSince = facts.now;
    Types known;
    const auto object = nlohmann::json::parse(jsonReport(facts, judge(facts)));
    for (const auto& [member, value] : object.items()) {
        known[member] = value.is_number_integer() ? "integer" : value.type_name();
    }
    EXPECT_EQ(documented, known);
}

class PrometheusReportTest : public ::testing::Test {
  protected:
    [[nodiscard]] std::string samples() const { return prometheusSamples(facts, judge(facts)); }

    Facts facts = test::healthyFacts();
};

TEST_F(PrometheusReportTest, AHealthyDaemonHasTheseSamples) {
    const std::string text = samples();
    for (const char* sample :
         {"orvane_policy_status{account=\"alice\"} 0\n",
          "orvane_policy_info{account=\"alice\",profile=\"managed\","
          "api_url=\"https://control.example\",etag=\"demo-9\",version=\"",
          "orvane_policy_service_running{account=\"alice\"} 1\n",
          "orvane_policy_service_restarts{account=\"alice\"} 0\n",
          "orvane_policy_service_running_seconds{account=\"alice\"} 273600\n",
          "orvane_policy_last_poll_timestamp_seconds{account=\"alice\"} 1799999959\n",
          "orvane_policy_last_poll_http_status{account=\"alice\"} 304\n",
          "orvane_policy_last_good_poll_timestamp_seconds{account=\"alice\"} 1799999959\n",
          "orvane_policy_polls_24h{account=\"alice\"} 288\n",
          "orvane_policy_polls_failed_24h{account=\"alice\"} 0\n",
          "orvane_policy_stored_bytes{account=\"alice\"} 342\n",
          "orvane_policy_stored_timestamp_seconds{account=\"alice\"} 1799989200\n",
          "orvane_policy_capture_in_step{account=\"alice\"} 1\n",
          "orvane_policy_capture_enabled{account=\"alice\"} 1\n",
          "orvane_policy_capture_hosts{account=\"alice\"} 4\n"}) {
        EXPECT_THAT(text, HasSubstr(sample));
    }
}

TEST_F(PrometheusReportTest, WhatIsNotKnownIsLeftOut) {
    facts = {};
    facts.account = "bob";
    EXPECT_EQ(samples(),
              "orvane_policy_status{account=\"bob\"} 2\n"
              "orvane_policy_polls_24h{account=\"bob\"} 0\n"
              "orvane_policy_polls_failed_24h{account=\"bob\"} 0\n");
}

TEST_F(PrometheusReportTest, WhatIsNotSoIsZero) {
    facts.service = {.state = ServiceState::stopped};
    facts.capture = {.state = CaptureState::different,
                     .enabled = false,
                     .hosts = 0,
                     .isReadableByOthers = true,
                     .owner = {}};
    const std::string text = samples();
    EXPECT_THAT(text, HasSubstr("service_running{account=\"alice\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("capture_in_step{account=\"alice\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("capture_enabled{account=\"alice\"} 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("restarts")));
}

TEST_F(PrometheusReportTest, TheManualHasEveryMetric) {
    std::set<std::string> documented;
    for (const auto& row : test::tableRows("Metrics")) {
        for (const std::string& metric : test::codeIn(row.at(0))) {
            documented.insert(metric);
        }
    }
    std::set<std::string> known;
    std::istringstream exposition(prometheusExposition(samples()));
    for (std::string line; std::getline(exposition, line);) {
        if (!line.starts_with("#")) {
            known.insert(line.substr(0, line.find('{')));
        }
    }
    EXPECT_EQ(documented, known);
}

TEST_F(PrometheusReportTest, LabelsAreEscaped) {
    facts.account = "a\"b\\c\nd\xFF";
    EXPECT_THAT(samples(), HasSubstr("{account=\"a\\\"b\\\\c\\nd\xEF\xBF\xBD\"} 0\n"));
}

TEST_F(PrometheusReportTest, AnExpositionIsGroupedByMetrics) {
    EXPECT_EQ(prometheusExposition("orvane_policy_polls_24h{account=\"a\"} 1\n"
                                   "orvane_policy_status{account=\"a\"} 0\n"
                                   "orvane_policy_polls_24h{account=\"b\"} 2\n"
                                   "orvane_policy_status{account=\"b\"} 3"),
              "# HELP orvane_policy_status 0 healthy, 1 degraded, 2 not working, 3 unknown.\n"
              "# TYPE orvane_policy_status gauge\n"
              "orvane_policy_status{account=\"a\"} 0\n"
              "orvane_policy_status{account=\"b\"} 3\n"
              "# HELP orvane_policy_polls_24h Polls in the last 24 hours.\n"
              "# TYPE orvane_policy_polls_24h gauge\n"
              "orvane_policy_polls_24h{account=\"a\"} 1\n"
              "orvane_policy_polls_24h{account=\"b\"} 2\n");
    EXPECT_EQ(prometheusExposition(""), "");
}

TEST_F(PrometheusReportTest, EverySampleHasAMetric) {
    const std::string all = samples();
    const std::string text = prometheusExposition(all);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
              3 * std::count(all.begin(), all.end(), '\n'));
}

}  // namespace
}  // namespace orvane::status
