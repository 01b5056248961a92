// The common ground of tests of long waits in the daemon as it ships. Its clock runs ten times
// as fast as ours (libfaketime, preloaded), the HTTP library's with it, so that minutes take
// seconds and nothing in the binary knows.
#pragma once

#include "process/private_root_test.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace orvane::test {

class FastTimeTest : public PrivateRootTest {
  protected:
    static constexpr int speed = 10;

    [[nodiscard]] DaemonSetup daemon() const {
        DaemonSetup setup = PrivateRootTest::daemon();
        setup.environment["LD_PRELOAD"] = ORVANE_FAKETIME_LIBRARY;
        setup.environment["FAKETIME"] = "+0 x" + std::to_string(speed);
        return setup;
    }

    /// Waits for `seconds` of the daemon's time.
    static bool pause(Connection& connection, int seconds) {
        return connection.pause(std::chrono::milliseconds(seconds * 1000 / speed));
    }

    /// The milliseconds of the daemon's time that lie between two moments of ours.
    static long passed(std::chrono::steady_clock::time_point from,
                       std::chrono::steady_clock::time_point to) {
        return static_cast<long>(
            std::chrono::floor<std::chrono::milliseconds>(speed * (to - from)).count());
    }

    /// Blocks until `count` requests have come; false when they do not.
    [[nodiscard]] bool waitForRequests(std::size_t count) const {
        return server.waitForRequests(count, std::chrono::seconds(60));
    }

    [[nodiscard]] std::vector<nlohmann::json> activity() const {
        std::vector<nlohmann::json> lines;
        std::istringstream content(readFile(orvane() / "logs/policy-daemon.activity.jsonl"));
        for (std::string line; std::getline(content, line);) {
            lines.push_back(nlohmann::json::parse(line));
        }
        return lines;
    }

    /// The milliseconds of an ISO 8601 time within its day.
    static long milliseconds(const std::string& time) {
        const auto part = [&](std::size_t at, std::size_t size) {
            return std::stol(time.substr(at, size));
        };
        return ((part(11, 2) * 60 + part(14, 2)) * 60 + part(17, 2)) * 1000 + part(20, 3);
    }

    /// From one time of day to another, over midnight if need be.
    static long between(const std::string& earlier, const std::string& later) {
        constexpr long day = 86'400'000;
        return (milliseconds(later) - milliseconds(earlier) + day) % day;
    }

    /// `milliseconds` and what a busy machine may add to it.
    static auto about(long milliseconds) {
        constexpr long slack = 20'000;  // two seconds of ours
        return ::testing::AllOf(::testing::Ge(milliseconds), ::testing::Le(milliseconds + slack));
    }

    ScriptedServer server;
};

}  // namespace orvane::test
