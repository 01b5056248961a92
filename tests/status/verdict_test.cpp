#include "status/verdict.h"

#include "status/all_accounts.h"
#include "status/healthy_facts.h"
#include "status/status_page.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

namespace orvane::status {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

/// What is wrong with a daemon, and what is to be said about it.
struct Case {
    std::string name;
    std::function<void(Facts&)> spoil;
    Level level;
    std::string problem;
    std::string reason;  ///< a part of it
    std::string advice;  ///< a part of it
};

std::ostream& operator<<(std::ostream& out, const Case& each) {
    return out << each.name;
}

/// Leaves the last good poll `lastGood` ago and the last poll, with this status, 60 s ago.
void failPolls(Facts& facts, seconds lastGood, int status, const std::string& error = "") {
    facts.history.lastGoodPoll = facts.now - lastGood;
    facts.history.lastPoll->endedAt = facts.now - seconds(60);
    facts.history.lastPoll->status = status;
    facts.history.lastPoll->error = error;
}

void stopPolls(Facts& facts, seconds last) {
    facts.history.lastGoodPoll = facts.now - last;
    facts.history.lastPoll->endedAt = facts.now - last;
}

class VerdictTest : public ::testing::TestWithParam<Case> {};

TEST_P(VerdictTest, EachProblemHasItsWords) {
    Facts facts = test::healthyFacts();
    GetParam().spoil(facts);
    const Verdict verdict = judge(facts);
    EXPECT_EQ(verdict.level, GetParam().level);
    EXPECT_EQ(verdict.problem, GetParam().problem);
    EXPECT_NE(verdict.reason.find(GetParam().reason), std::string::npos) << verdict.reason;
    EXPECT_NE(verdict.advice.find(GetParam().advice), std::string::npos) << verdict.advice;
    EXPECT_EQ(verdict.reason.empty(), verdict.level == Level::healthy);
    EXPECT_EQ(verdict.advice.empty(), verdict.level == Level::healthy);
}

void setState(Facts& facts, ServiceState state) {
    facts.service = {.state = state};
}

const std::vector<Case> services{
    {"Stopped", [](Facts& f) { setState(f, ServiceState::stopped); }, Level::notWorking,
     "not-running", "is not running", "start"},
    {"Restarting", [](Facts& f) { setState(f, ServiceState::restarting); }, Level::notWorking,
     "restarting", "has ended", "look for the reason"},
    {"Masked", [](Facts& f) { setState(f, ServiceState::masked); }, Level::notWorking, "masked",
     "masked", "unmask"},
    {"NotInstalled", [](Facts& f) { setState(f, ServiceState::notInstalled); }, Level::notWorking,
     "not-installed", "not installed", "install"},
    {"NotLoggedIn", [](Facts& f) { setState(f, ServiceState::notLoggedIn); }, Level::unknown,
     "not-logged-in", "not logged in", "nothing"},
    {"SystemAccount", [](Facts& f) { setState(f, ServiceState::systemAccount); }, Level::unknown,
     "system-account", "accounts of the system", "--all"},
    {"NoServiceManager", [](Facts& f) { setState(f, ServiceState::unknown); }, Level::healthy, "",
     "", ""},
    {"StoppedAfterAGoodPoll",
     [](Facts& f) {
         setState(f, ServiceState::stopped);
         failPolls(f, seconds(10), 503);
     },
     Level::notWorking, "not-running", "", ""},
};

const std::vector<Case> polls{
    {"Healthy", [](Facts& /*f*/) {}, Level::healthy, "", "", ""},
    {"NoProfile", [](Facts& f) { f.source.reset(); }, Level::notWorking, "no-profile",
     "no source of credentials", "enroll"},
    {"BadUrl", [](Facts& f) { f.source->isUrl = false; }, Level::notWorking, "bad-url", "not a URL",
     "https://"},
    {"LogUnreadable", [](Facts& f) { f.isLogReadable = false; }, Level::unknown, "log-unreadable",
     "cannot be read", "rights"},
    {"Future", [](Facts& f) { f.history.lastPoll->endedAt = f.now + seconds(61); }, Level::unknown,
     "clock", "in the future", "clock"},
    {"NearFuture", [](Facts& f) { f.history.lastPoll->endedAt = f.now + seconds(60); },
     Level::healthy, "", "", ""},
    {"NeverPolled", [](Facts& f) { f.history = {}; }, Level::notWorking, "never-polled",
     "no poll is on record", "look for the reason"},
    {"NeverPolledAndJustStarted",
     [](Facts& f) {
         f.history = {};
         f.service.runningFor = seconds(689);
     },
     Level::unknown, "first-poll", "started 11 min ago", "few minutes"},
    {"NeverPolledWithoutServiceManager",
     [](Facts& f) {
         f.history = {};
         setState(f, ServiceState::unknown);
     },
     Level::notWorking, "never-polled", "", ""},
    {"LastPollIsJustRecentEnough", [](Facts& f) { stopPolls(f, seconds(690)); }, Level::healthy, "",
     "", ""},
    {"NoPollAnyMore", [](Facts& f) { stopPolls(f, seconds(691)); }, Level::notWorking, "no-poll",
     "the last poll ended 11 min ago", "wait eight minutes"},
    {"NoPollAnyMoreButJustStarted",
     [](Facts& f) {
         stopPolls(f, hours(60));
         f.service.runningFor = seconds(20);
     },
     Level::unknown, "first-poll", "started 20 s ago", ""},
    {"PollsFailed",
     [](Facts& f) { failPolls(f, seconds(700), 0, "Could not connect to the server."); },
     Level::notWorking, "no-good-poll", "polls fail: Could not connect to the server.",
     "No connection"},
    {"PollsFailedUntilARestart",
     [](Facts& f) {
         failPolls(f, seconds(700), 401);
         f.service.runningFor = seconds(20);
     },
     Level::unknown, "first-poll", "", ""},
    {"NoPollHasEverBeenGood",
     [](Facts& f) {
         failPolls(f, seconds(0), 500);
         f.history.lastGoodPoll.reset();
     },
     Level::notWorking, "no-good-poll", "polls fail: HTTP 500", "control plane"},
    {"OnePollFailed", [](Facts& f) { failPolls(f, seconds(400), 503); }, Level::degraded,
     "poll-failed", "the last poll failed: HTTP 503", "control plane"},
    {"OnePollFailedBeforeARestart",
     [](Facts& f) {
         failPolls(f, seconds(400), 503);
         f.service.runningFor = seconds(20);
     },
     Level::healthy, "", "", ""},
    {"KeyRejected", [](Facts& f) { failPolls(f, seconds(400), 401); }, Level::degraded,
     "poll-failed", "HTTP 401", "new key"},
    {"Forbidden", [](Facts& f) { failPolls(f, seconds(400), 403); }, Level::degraded, "poll-failed",
     "HTTP 403", "new key"},
    {"Redirected", [](Facts& f) { failPolls(f, seconds(400), 302); }, Level::degraded,
     "poll-failed", "HTTP 302", "api_url"},
    {"WrongAddress", [](Facts& f) { failPolls(f, seconds(400), 404); }, Level::degraded,
     "poll-failed", "HTTP 404", "api_url"},
    {"ErrorForATerminal", [](Facts& f) { failPolls(f, seconds(400), 0, "\033[2J"); },
     Level::degraded, "poll-failed", "?[2J", ""},
};

/// A 200 at `ended` before now that was not stored.
void loseUpdate(Facts& facts, seconds ended, seconds lastGood) {
    failPolls(facts, lastGood, 200);
    facts.history.lastPoll->endedAt = facts.now - ended;
    facts.history.lastUpdate = facts.history.lastPoll;
}

const std::vector<Case> storedFiles{
    {"Rubbish", [](Facts& f) { loseUpdate(f, seconds(11), seconds(300)); }, Level::degraded,
     "policy-not-stored", "was not stored", "no policy in it"},
    {"RubbishForLong", [](Facts& f) { loseUpdate(f, seconds(11), seconds(700)); },
     Level::notWorking, "policy-not-stored", "was not stored", "no policy in it"},
    {"BeingStored", [](Facts& f) { loseUpdate(f, seconds(9), seconds(300)); }, Level::healthy, "",
     "", ""},
    {"DiskFull", [](Facts& f) { f.freeBytes = 65535; }, Level::degraded, "disk-full",
     "disk with ~/.orvane is full", "make room"},
    {"DiskAlmostFull", [](Facts& f) { f.freeBytes = 65536; }, Level::healthy, "", "", ""},
    {"DiskUnknown", [](Facts& f) { f.freeBytes.reset(); }, Level::healthy, "", "", ""},
    {"DiskFullForLong",
     [](Facts& f) {
         f.freeBytes = 0;
         stopPolls(f, hours(1));
     },
     Level::notWorking, "disk-full", "", ""},
    {"DiskFullAndUpdateLost",
     [](Facts& f) {
         f.freeBytes = 0;
         loseUpdate(f, seconds(11), seconds(300));
     },
     Level::degraded, "disk-full", "", ""},
    {"NoPolicy",
     [](Facts& f) {
         f.policy = {};
         f.history.lastUpdate.reset();
     },
     Level::degraded, "no-policy", "no policy is stored", "rm -f ~/.orvane/policy-etag.json"},
    {"NoPolicyAfterAnAnswer", [](Facts& f) { f.policy = {}; }, Level::degraded, "policy-not-stored",
     "", ""},
    {"PolicyUnusable", [](Facts& f) { f.policy.isUsable = false; }, Level::degraded,
     "policy-unusable", "not a JSON object", "rm -f"},
    {"TagDiffers", [](Facts& f) { f.policy.tag = "demo-10"; }, Level::degraded, "tag-differs",
     "not of the same version", "rm -f"},
    {"TagMissing", [](Facts& f) { f.policy.tag.reset(); }, Level::degraded, "tag-differs", "", ""},
    {"PolicyWithoutTag", [](Facts& f) { f.policy.ownTag.reset(); }, Level::healthy, "", "", ""},
    {"EffectiveFailed", [](Facts& f) { f.history.lastEffective->status = 503; }, Level::degraded,
     "effective-stale", "(HTTP 503)", "rm -f"},
    {"EffectiveNotStored", [](Facts& f) { f.effectiveStoredAt = f.now - hours(4); },
     Level::degraded, "effective-stale", "(HTTP 200)", "rm -f"},
    {"EffectiveNotKnownToTheControlPlane", [](Facts& f) { f.history.lastEffective->status = 404; },
     Level::healthy, "", "", ""},
    {"EffectiveNotFetched", [](Facts& f) { f.history.lastEffective.reset(); }, Level::healthy, "",
     "", ""},
    {"CaptureStale", [](Facts& f) { f.capture.state = CaptureState::different; }, Level::degraded,
     "capture-stale", "not in step with the policy", "rm -f"},
    {"CaptureMissing", [](Facts& f) { f.capture.state = CaptureState::missing; }, Level::degraded,
     "capture-stale", "is missing", "rm -f"},
    {"CaptureOfAnotherAccount",
     [](Facts& f) {
         f.capture.state = CaptureState::different;
         f.capture.owner = "bob";
     },
     Level::degraded, "capture-not-ours", "belongs to bob", "share"},
    {"CaptureOfAnotherAccountInStep", [](Facts& f) { f.capture.owner = "bob"; }, Level::healthy, "",
     "", ""},
    {"CaptureBeingDerived",
     [](Facts& f) {
         f.capture.state = CaptureState::different;
         f.policy.storedAt = f.now - seconds(59);
     },
     Level::healthy, "", "", ""},
    {"CaptureNotInThePolicy", [](Facts& f) { f.capture.state = CaptureState::notAsked; },
     Level::healthy, "", "", ""},
    {"CaptureUnreadable", [](Facts& f) { f.capture.isReadableByOthers = false; }, Level::degraded,
     "capture-unreadable", "cannot read", "chmod 644"},
};

std::string nameOfCase(const ::testing::TestParamInfo<Case>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Services, VerdictTest, ::testing::ValuesIn(services), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Polls, VerdictTest, ::testing::ValuesIn(polls), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Files, VerdictTest, ::testing::ValuesIn(storedFiles), nameOfCase);

TEST(VerdictPageTest, TheManualHasEveryProblemAndItsExitStatuses) {
    using Table = std::map<std::string, std::set<int>>;
    Table documented;
    for (const auto& row : test::tableRows("Verdicts")) {
        for (const std::string& problem : test::codeIn(row.at(0))) {
            for (const char c : row.at(1)) {
                if (c >= '0' && c <= '9') {
                    documented[problem].insert(c - '0');
                }
            }
        }
    }
    const Verdict noAnswer = unpacked("bob", "").verdict;
    Table known{{noAnswer.problem, {static_cast<int>(noAnswer.level)}}};
    for (const auto& cases : {services, polls, storedFiles}) {
        for (const Case& each : cases) {
            if (each.level != Level::healthy) {
                known[each.problem].insert(static_cast<int>(each.level));
            }
        }
    }
    EXPECT_EQ(documented, known);
}

TEST(LevelTest, TheValuesAreThoseOfMonitoring) {
    EXPECT_EQ(static_cast<int>(Level::healthy), 0);
    EXPECT_EQ(static_cast<int>(Level::degraded), 1);
    EXPECT_EQ(static_cast<int>(Level::notWorking), 2);
    EXPECT_EQ(static_cast<int>(Level::unknown), 3);
    EXPECT_EQ(nameOf(Level::notWorking), "not working");
}

TEST(LevelTest, NotWorkingIsWorseThanDegradedAndThatIsWorseThanUnknown) {
    const std::vector<Level> rising{Level::healthy, Level::unknown, Level::degraded,
                                    Level::notWorking};
    for (std::size_t i = 0; i < rising.size(); ++i) {
        for (std::size_t j = 0; j < rising.size(); ++j) {
            EXPECT_EQ(worse(rising[i], rising[j]), rising[std::max(i, j)]);
        }
    }
}

}  // namespace
}  // namespace orvane::status
