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
    facts.service = {.state = status::ServiceState::running,
                     .pid = 4711,
                     .restarts = 0,
                     .runningFor = hours(76)};
    facts.source = status::Source{.name = "managed", .apiUrl = "https://control.example"};
    facts.policy = {.isThere = true,
                    .isUsable = true,
                    .bytes = 342,
                    .storedAt = facts.now - hours(3),
                    .ownTag = "demo-9",
                    .tag = "demo-9"};
    status::History& history = facts.history;
    history.lastPoll = status::Exchange{.endedAt = facts.now - seconds(41),
                                        .isPoll = true,
                                        .status = 304,
                                        .milliseconds = 300'123,
                                        .bytes = 0,
                                        .url = "",
                                        .error = ""};
    history.lastGoodPoll = history.lastPoll->endedAt;
    history.lastUpdate = status::Exchange{.endedAt = facts.now - hours(3),
                                          .isPoll = true,
                                          .status = 200,
                                          .milliseconds = 5000,
                                          .bytes = 342,
                                          .url = "",
                                          .error = ""};
    history.lastEffective = status::Exchange{.endedAt = facts.now - hours(3),
                                             .isPoll = false,
                                             .status = 200,
                                             .milliseconds = 50,
                                             .bytes = 20,
                                             .url = "",
                                             .error = ""};
    history.day = {.polls = 288, .failed = 0};
    history.hours.fill({.polls = 12, .failed = 0});
    facts.capture = {.state = status::CaptureState::inStep,
                     .enabled = true,
                     .hosts = 4,
                     .isReadableByOthers = true,
                     .owner = {}};
    facts.effectiveStoredAt = facts.now - hours(3);
    facts.freeBytes = 1'000'000'000;
    return facts;
}

}  // namespace orvane::test
