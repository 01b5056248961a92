#include "emulator/page_requests.h"

#include "emulator/agent_requests.h"
#include "sample_account.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace orvane::emulator {
namespace {

class APerson : public testing::Test {
  protected:
    Request request(const std::string& method, const std::string& path,
                    const std::string& body = "") const {
        Request made;
        made.method = method;
        made.path = path;
        made.host = "127.0.0.1:80";
        made.body = body;
        return made;
    }
    Decision decided(const Request& wanted) const {
        return decideForPeople(wanted, {policy_, faults_, devices_});
    }
    Reply reply(const Request& wanted) const { return std::get<Reply>(decided(wanted)); }

    std::optional<Policy> policy_ = readPolicy(firstText);
    std::vector<Fault> faults_;
    Devices devices_;
};

TEST_F(APerson, ReadsThePolicy) {
    EXPECT_EQ(reply(request("GET", "/policy")).body, firstText);
    policy_.reset();
    EXPECT_EQ(reply(request("GET", "/policy")).status, 404U);
}

TEST_F(APerson, PutsAPolicy) {
    EXPECT_EQ(std::get<Accept>(decided(request("PUT", "/policy", secondText))).policy.etag, "a/2");
    EXPECT_EQ(reply(request("PUT", "/policy", "[]")).status, 400U);
    EXPECT_EQ(reply(request("PUT", "/policy", "[]")).body,
              R"({"error":"the policy is not a JSON object"})");
    Request tooLong = request("PUT", "/policy", secondText);
    tooLong.bodyTooLong = true;
    EXPECT_EQ(reply(tooLong).status, 413U);
}

TEST_F(APerson, ReadsAndSwitchesFaults) {
    EXPECT_EQ(reply(request("GET", "/faults")).body, "[]");
    const auto faults =
        std::get<Misbehave>(decided(request("PUT", "/faults", R"([{"name":"slow"}])"))).faults;
    EXPECT_EQ(faults.at(0).kind, FaultKind::slow);
    const Reply refused = reply(request("PUT", "/faults", R"([{"name":"slw"}])"));
    EXPECT_EQ(refused.status, 400U);
    EXPECT_NE(refused.body.find("there is no fault"), std::string::npos);
    EXPECT_EQ(reply(request("GET", "/fault-kinds")).body, faultKindsText());
}

TEST_F(APerson, SeesWhatTheInterceptionComponentWouldSee) {
    const auto shown = nlohmann::json::parse(
        reply(request("POST", "/preview",
                      R"({"guard_config":{"capture":{"enabled":true,"hosts":["a","a",7]}}})"))
            .body);
    EXPECT_EQ(shown["capture"]["enabled"], true);
    EXPECT_EQ(shown["tag"].get<std::string>().size(), 16U);
    EXPECT_EQ(nlohmann::json::parse(reply(request("POST", "/preview", secondText)).body)["capture"],
              nullptr);
    EXPECT_EQ(reply(request("POST", "/preview", "{")).status, 400U);
}

TEST_F(APerson, SeesTheTimelineOfADevice) {
    Exchange exchange;
    exchange.device = "a&b";
    devices_.ended(exchange, false, {});
    Request wanted = request("GET", "/timeline");
    wanted.query["device"] = "a&b";
    EXPECT_EQ(nlohmann::json::parse(reply(wanted).body).size(), 1U);
    wanted.query["device"] = "other";
    EXPECT_EQ(reply(wanted).body, "[]");
}

TEST_F(APerson, GetsThePageWhichMayLoadNothingFromElsewhere) {
    for (const std::string path : {"/", "/page.css", "/page.js"}) {
        const Reply page = reply(request("GET", path));
        EXPECT_EQ(page.status, 200U) << path;
        EXPECT_NE(page.body, "") << path;
        EXPECT_EQ(page.headers.at(0).first, "Content-Security-Policy");
        EXPECT_TRUE(page.headers.at(0).second.starts_with("default-src 'none'; script-src 'self'"));
    }
    EXPECT_EQ(reply(request("GET", "/")).contentType, "text/html;charset=utf-8");
    EXPECT_TRUE(std::holds_alternative<Stream>(decided(request("GET", "/events"))));
}

TEST_F(APerson, IsToldTheRightMethods) {
    EXPECT_EQ(reply(request("DELETE", "/policy")).status, 405U);
    EXPECT_EQ(reply(request("DELETE", "/policy")).headers.at(0).second, "GET, PUT");
    EXPECT_EQ(reply(request("PUT", "/")).headers.at(0).second, "GET");
    for (const std::string path : {"/nothing", "", "/policy/"}) {
        EXPECT_EQ(reply(request("GET", path)).status, 404U) << path;
    }
}

TEST_F(APerson, IsRefusedWhatAnotherSiteAsksFor) {
    for (const std::string method : {"PUT", "GET"}) {
        Request wanted = request(method, "/policy", secondText);
        for (const std::string origin :
             {"http://evil.example", "null", "http://127.0.0.1:81", "http://127.0.0.1"}) {
            wanted.origin = origin;
            EXPECT_EQ(reply(wanted).status, 403U) << origin;
        }
    }
    for (const std::string origin : {"http://127.0.0.1:80", "https://127.0.0.1:80"}) {
        Request wanted = request("PUT", "/policy", secondText);
        wanted.origin = origin;
        EXPECT_TRUE(std::holds_alternative<Accept>(decided(wanted))) << origin;
    }
}

TEST_F(APerson, IsRefusedUnderANameThatMayLeadElsewhere) {
    for (const std::string host : {"evil.example", "evil.example:80", "", "localhost.evil.example",
                                   "127.0.0.1.evil.example", "[::1", "[evil]:80"}) {
        Request wanted = request("GET", "/policy");
        wanted.host = host;
        wanted.origin = "http://" + host;
        const bool isRefused = reply(wanted).status == 403U;
        EXPECT_EQ(isRefused, host != "[::1") << host;
    }
    for (const std::string host :
         {"localhost", "localhost:80", "127.0.0.1", "10.1.2.3:80", "[::1]", "[::1]:80"}) {
        Request wanted = request("GET", "/policy");
        wanted.host = host;
        EXPECT_EQ(reply(wanted).status, 200U) << host;
    }
}

TEST(ARequest, ThatChangesSomethingIsAPut) {
    Request request;
    request.method = "PUT";
    EXPECT_TRUE(changesSomething(request));
    request.method = "POST";
    EXPECT_FALSE(changesSomething(request));
}

}  // namespace
}  // namespace orvane::emulator
