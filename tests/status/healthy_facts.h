// The facts about a daemon that is well, for tests to change.
#pragma once

#include "status/facts.h"

namespace orvane::test {

inline status::Facts healthyFacts() {
    using std::chrono::hours;
    using std::chrono::seconds;
    status::Facts facts;
    facts.account = "alice";
    facts.now = hours(500'000);
    facts.service = {status::ServiceState::running, 4711, 0, hours(76)};
    facts.source = status::Source{"managed", "https://control.example", true, false};
    facts.policy = {true, true, 342, facts.now - hours(3), "demo-9", "demo-9"};
    status::History& history = facts.history;
    history.lastPoll = status::Exchange{facts.now - seconds(41), true, 304, 300'123, 0, "", ""};
    history.lastGoodPoll = history.lastPoll->endedAt;
    history.lastUpdate = status::Exchange{facts.now - hours(3), true, 200, 5000, 342, "", ""};
    history.lastEffective = status::Exchange{facts.now - hours(3), false, 200, 50, 20, "", ""};
    history.day = {288, 0};
    history.hours.fill({12, 0});
    facts.capture = {status::CaptureState::inStep, true, 4, true, {}};
    facts.effectiveStoredAt = facts.now - hours(3);
    facts.freeBytes = 1'000'000'000;
    return facts;
}

}  // namespace orvane::test
