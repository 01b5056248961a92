#include "status/text_report.h"

#include "status/healthy_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace orvane::status {
namespace {

using std::chrono::minutes;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class TextReportTest : public ::testing::Test {
  protected:
    TextReportTest() { (void)setenv("TZ", "UTC0", 1); }

    [[nodiscard]] std::string report() const { return textReport(facts, judge(facts), style); }
    /// What is next to `label` in the report.
    [[nodiscard]] std::string rowOf(const std::string& label) const {
        const std::string text = "\n" + report();
        const auto start = text.find("\n" + label + " ");
        if (start == std::string::npos) {
            return "no such row in:" + text;
        }
        const std::string line = text.substr(start + 1, text.find('\n', start + 1) - start - 1);
        return line.substr(line.find_first_not_of(' ', label.size()));
    }

    Facts facts = test::healthyFacts();
    Style style;
};

TEST_F(TextReportTest, AHealthyDaemonLooksLikeThis) {
    EXPECT_EQ(report(),
              "orvane-policy-daemon   running 3 d 4 h (pid 4711, 0 restarts)\n"
              "profile                [managed] https://control.example\n"
              "policy                 demo-9, 342 bytes, since 2027-01-15 05:00:00 (3 h ago)\n"
              "last poll              304, 41 s ago (held 300 s)\n"
              "last 24 h              288 polls, 0 failed\n"
              "capture policy         on, 4 hosts, in step with the policy\n"
              "healthy\n");
}

TEST_F(TextReportTest, AReasonThatIsASentenceIsJoinedToTheAdvice) {
    const Verdict verdict{.level = Level::notWorking,
                          .problem = {},
                          .reason = "the last poll failed: Could not connect to the server.",
                          .advice = "look at the network"};
    EXPECT_EQ(verdictLine(verdict, style),
              "not working: the last poll failed: Could not connect to the server; look at the "
              "network\n");
    EXPECT_THAT(listEntry(facts, verdict, style), HasSubstr("the server; look at the network"));
}

TEST_F(TextReportTest, PlainMeansWordsAndNoColumns) {
    style.isPlain = true;
    EXPECT_EQ(report(),
              "orvane-policy-daemon: running 3 days 4 hours (pid 4711, 0 restarts)\n"
              "profile: [managed] https://control.example\n"
              "policy: demo-9, 342 bytes, since 2027-01-15 05:00:00 (3 hours ago)\n"
              "last poll: 304, 41 seconds ago (held 300 seconds)\n"
              "last 24 h: 288 polls, 0 failed\n"
              "capture policy: on, 4 hosts, in step with the policy\n"
              "healthy\n");
}

TEST_F(TextReportTest, WithoutAnythingItSaysSo) {
    facts = {};
    EXPECT_EQ(report(),
              "orvane-policy-daemon   unknown (no service manager to ask)\n"
              "profile                none\n"
              "policy                 none\n"
              "last poll              none on record\n"
              "last 24 h              0 polls, 0 failed\n"
              "capture policy         the policy says nothing about it\n"
              "not working: no source of credentials is complete; enroll, or find the mistake in "
              "the source that is meant\n");
}

TEST_F(TextReportTest, TheLastLineHasTheReasonAndWhatToDo) {
    facts.history.lastPoll->status = 401;
    EXPECT_THAT(report(), EndsWith("\ndegraded: the last poll failed: HTTP 401; "
                                   "sign in again, or enroll with a new key\n"));
}

TEST_F(TextReportTest, EachStateOfTheServiceHasItsWords) {
    const std::vector<std::pair<ServiceState, std::string>> cases{
        {ServiceState::running, "running"},
        {ServiceState::restarting, "about to be started again"},
        {ServiceState::stopped, "stopped"},
        {ServiceState::masked, "masked"},
        {ServiceState::notInstalled, "not installed"},
        {ServiceState::notLoggedIn, "not logged in"},
        {ServiceState::systemAccount, "none for this account"},
        {ServiceState::unknown, "unknown (no service manager to ask)"}};
    for (const auto& [state, words] : cases) {
        facts.service = {.state = state};
        EXPECT_EQ(rowOf("orvane-policy-daemon"), words);
    }
    facts.service = {.state = ServiceState::restarting, .restarts = 1};
    EXPECT_EQ(rowOf("orvane-policy-daemon"), "about to be started again (1 restart)");
}

TEST_F(TextReportTest, ASourceThatIsInferredSaysSo) {
    facts.source = Source{
        .name = "device", .apiUrl = "https://control.example", .isUrl = true, .isInferred = true};
    EXPECT_EQ(rowOf("profile"), "[device] https://control.example (inferred)");
}

TEST_F(TextReportTest, APolicyWithoutAnEtagSaysSo) {
    facts.policy.tag.reset();
    EXPECT_THAT(rowOf("policy"), StartsWith("no ETag, 342 bytes"));
}

TEST_F(TextReportTest, APollSaysWhatItEndedWith) {
    facts.history.lastPoll->status = 0;
    facts.history.lastPoll->milliseconds = 999;
    facts.history.lastPoll->error = "Could not\nconnect";
    EXPECT_EQ(rowOf("last poll"), "failed, 41 s ago: Could not?connect");
}

TEST_F(TextReportTest, ACountThatIsNotWholeSaysSo) {
    facts.history.countedSince = facts.now - minutes(3);
    style.hasPicture = true;
    EXPECT_EQ(rowOf("last 24 h"), "288 polls, 0 failed (counted for 3 min)");
}

TEST_F(TextReportTest, ThePictureHasABarForEachHourAndTheCurrentOneIsTheLast) {
    style.hasPicture = true;
    facts.history.hours = {};
    facts.history.hours[0] = {12, 12};
    facts.history.hours[1] = {12, 6};
    facts.history.hours[2] = {100, 1};
    facts.history.hours[3] = {12, 0};
    facts.history.hours[23] = {12, 0};
    EXPECT_EQ(rowOf("last 24 h"), "288 polls, 0 failed  ▁···················▁▂▄█");
    style.isColored = true;
    EXPECT_THAT(rowOf("last 24 h"), EndsWith("▁\033[31m▂\033[0m\033[31m▄\033[0m\033[31m█\033[0m"));
}

TEST_F(TextReportTest, ThePictureFitsOnATerminalWithItsColorsToo) {
    style = {true, true, false, 80};
    facts.history.hours.fill({12, 6});
    EXPECT_THAT(rowOf("last 24 h"), StartsWith("288 polls, 0 failed  \033[31m▄\033[0m"));
}

TEST_F(TextReportTest, EachStateOfTheCapturePolicyHasItsWords) {
    facts.capture = {.state = CaptureState::different,
                     .enabled = false,
                     .hosts = 1,
                     .isReadableByOthers = true,
                     .owner = {}};
    EXPECT_EQ(rowOf("capture policy"), "off, 1 host, not in step with the policy");
    facts.capture.state = CaptureState::missing;
    EXPECT_EQ(rowOf("capture policy"), "off, 1 host, missing");
    facts.capture.state = CaptureState::inStep;
    facts.capture.isReadableByOthers = false;
    EXPECT_EQ(rowOf("capture policy"),
              "off, 1 host, in step with the policy, not readable by others");
}

TEST_F(TextReportTest, OnATerminalTheVerdictIsColoredAndLinesFit) {
    style.isColored = true;
    style.width = 80;
    EXPECT_THAT(report(), EndsWith("\n\033[32mhealthy\033[0m\n"));
    facts.source->apiUrl = "https://" + std::string(110, 'h');
    facts.history.lastPoll->status = 0;
    facts.history.lastPoll->error =
        "The certificate for this server is invalid. You might be connecting to a server that is "
        "pretending to be another one (unable to get local issuer certificate)";
    facts.history.lastGoodPoll.reset();
    const std::string text = report();
    EXPECT_THAT(text, HasSubstr("\n\033[31mnot working\033[0m: polls fail"));
    EXPECT_THAT(text, HasSubstr("\n                       "));
    std::size_t start = 0;
    while (start < text.size()) {
        const std::string line = text.substr(start, text.find('\n', start) - start);
        start += line.size() + 1;
        // An address has no spaces to break it at; colors have no width.
        EXPECT_TRUE(line.size() <= 80 || line.find("https://") != std::string::npos ||
                    line.find('\033') != std::string::npos)
            << line;
    }
}

TEST_F(TextReportTest, AListHasALineForEachAccount) {
    EXPECT_EQ(listEntry(facts, judge(facts), style),
              "alice                  healthy      304, 41 s ago (held 300 s); policy demo-9, "
              "342 bytes, since 2027-01-15 05:00:00 (3 h ago)\n");
    facts.service.state = ServiceState::masked;
    EXPECT_THAT(listEntry(facts, judge(facts), style),
                StartsWith("alice                  not working  the service is masked"));
    style.isPlain = true;
    EXPECT_THAT(listEntry(facts, judge(facts), style),
                StartsWith("alice: not working: the service is masked"));
}

}  // namespace
}  // namespace orvane::status
