#include "emulator/devices.h"

#include "emulator/record.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace orvane::emulator {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

constexpr std::size_t all = 1000;
const Devices::WallClock::time_point noon{12h};

Exchange aPollOf(const std::string& device, unsigned status = 200) {
    Exchange exchange;
    exchange.method = "GET";
    exchange.target = "/api?wait=300";
    exchange.device = device;
    exchange.ifNoneMatch = "\"tag\"";
    exchange.isPoll = true;
    exchange.wait = 300s;
    exchange.status = status;
    return exchange;
}

json rowsOf(const Devices& devices) {
    return json::parse(devices.changedSince(0, all).first);
}

TEST(Devices, CountTheirPolls) {
    Devices devices;
    EXPECT_EQ(devices.nextPoll("a"), 1U);
    EXPECT_EQ(devices.nextPoll("a"), 2U);
    EXPECT_EQ(devices.nextPoll("b"), 1U);
}

TEST(Devices, ShowAHoldUntilItEnds) {
    Devices devices;
    devices.held(aPollOf("a"), true, noon);
    json row = rowsOf(devices).at(0);
    EXPECT_EQ(row["name"], "a");
    EXPECT_EQ(row["held"], 1);
    EXPECT_EQ(row["wait"], 300);
    EXPECT_EQ(row["held_since"], 43'200'000);
    EXPECT_EQ(row["tag"], "\"tag\"");
    devices.ended(aPollOf("a", 304), true, noon + 5s);
    row = rowsOf(devices).at(0);
    EXPECT_EQ(row["held"], 0);
    EXPECT_FALSE(row.contains("held_since"));
    EXPECT_EQ(row["last"]["status"], 304);
    EXPECT_EQ(row["last_seen"], 43'205'000);
}

TEST(Devices, ShowTheFaultOfWhatIsHeldOn) {
    Devices devices;
    devices.held(aPollOf("a"), true, noon);
    Exchange exchange = aPollOf("a");
    exchange.fault = "never-answer";
    devices.held(exchange, false, noon + 9s);
    const json row = rowsOf(devices).at(0);
    EXPECT_EQ(row["held"], 1);
    EXPECT_EQ(row["held_since"], 43'200'000);
    EXPECT_EQ(row["fault"], "never-answer");
}

TEST(Devices, WithOneNameAreOneAndCountTheirHolds) {
    Devices devices;
    devices.held(aPollOf("a"), true, noon);
    devices.held(aPollOf("a"), true, noon + 1s);
    EXPECT_EQ(rowsOf(devices).at(0)["held"], 2);
    EXPECT_EQ(rowsOf(devices).at(0)["held_since"], 43'200'000);
    devices.ended(aPollOf("a"), true, noon);
    EXPECT_EQ(rowsOf(devices).at(0)["held"], 1);
}

TEST(Devices, HaveAnIdentityWhenTheyLookedItUp) {
    Devices devices;
    devices.ended(aPollOf("a"), false, noon);
    EXPECT_EQ(rowsOf(devices).at(0)["identity"], false);
    Exchange lookup = aPollOf("a");
    lookup.target = "/api/orvane/v1/endpoint/agent-config/?process=claude";
    lookup.isPoll = false;
    lookup.ifNoneMatch = "";
    devices.ended(lookup, false, noon);
    EXPECT_EQ(rowsOf(devices).at(0)["identity"], true);
    EXPECT_EQ(rowsOf(devices).at(0)["tag"], "\"tag\"");
}

TEST(Devices, ThatChangedAreListedInTheirOrderAndOnce) {
    Devices devices;
    for (const char* name : {"a", "b", "c"}) {
        devices.ended(aPollOf(name), false, noon);
    }
    const auto [firstRows, version] = devices.changedSince(0, 2);
    EXPECT_EQ(json::parse(firstRows).size(), 2U);
    EXPECT_EQ(version, 2U);
    devices.ended(aPollOf("a"), false, noon);
    const auto [rows, last] = devices.changedSince(version, all);
    ASSERT_EQ(json::parse(rows).size(), 2U);
    EXPECT_EQ(json::parse(rows).at(0)["name"], "c");
    EXPECT_EQ(json::parse(rows).at(1)["name"], "a");
    EXPECT_EQ(last, devices.version());
    EXPECT_EQ(devices.changedSince(last, all).first, "[]");
}

TEST(Devices, HaveATimelineOfTheirLastExchanges) {
    Devices devices;
    for (unsigned status = 200; status < 230; ++status) {
        devices.ended(aPollOf("a", status), false, noon);
    }
    const json timeline = json::parse(devices.timeline("a"));
    ASSERT_EQ(timeline.size(), Devices::timelineLength);
    EXPECT_EQ(timeline.back()["status"], 229);
    EXPECT_EQ(timeline.back()["at"], 43'200'000);
    EXPECT_EQ(devices.timeline("b"), "[]");
}

TEST(Devices, OfWhichThereAreTooManyAreForgottenTheOldestFirst) {
    ORVANE_SKIP_UNDER_SANITIZERS(
        "so many devices take them minutes; others show them the same code");
    Devices devices;
    for (std::size_t i = 0; i <= Devices::maxDevices; ++i) {
        devices.ended(aPollOf(std::to_string(i)), false, noon);
    }
    EXPECT_EQ(devices.timeline("0"), "[]");
    EXPECT_NE(devices.timeline("1"), "[]");
    EXPECT_EQ(json::parse(devices.changedSince(0, 2 * Devices::maxDevices).first).size(),
              Devices::maxDevices);
}

TEST(Devices, MayHaveAnyBytesInTheirNames) {
    Devices devices;
    devices.ended(aPollOf("\xff<script>"), false, noon);
    EXPECT_EQ(rowsOf(devices).at(0)["name"], "\xef\xbf\xbd<script>");
}

TEST(Record, HasALineOfJsonForAnExchange) {
    Exchange exchange = aPollOf("a", 304);
    exchange.userAgent = "Agent/1";
    exchange.held = 1500ms;
    exchange.fault = "slow";
    const json line = json::parse(recordLine(exchange, noon + 1ms));
    EXPECT_EQ(line, json::parse(R"({"ts":"1970-01-01T12:00:00.001Z","device":"a","method":"GET",
        "target":"/api?wait=300","user_agent":"Agent/1","if_none_match":"\"tag\"","status":304,
        "bytes":0,"held_ms":1500,"fault":"slow","hung_up":false,"http2":false})"));
}

}  // namespace
}  // namespace orvane::emulator
