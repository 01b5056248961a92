// Host names: when they are looked up, and a name server that hangs.
#include "platform/http/http_session.h"
#include "platform/http/semaphore.h"
#include "platform/http_exchange.h"
#include "platform/system_calls.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace orvane::test {

namespace {

using ::testing::Optional;
using namespace std::string_literals;

using Resolve = std::function<std::optional<std::string>(const std::string& host)>;

SystemCallHooks resolvingBy(Resolve resolve) {
    SystemCallHooks hooks;
    hooks.resolve = std::move(resolve);
    return hooks;
}

class NameLookupTest : public HttpTest {};

TEST_F(NameLookupTest, ANewConnectionGoesWhereTheNameLeadsNow) {
    std::atomic<bool> hasMoved = false;
    std::atomic<int> lookups = 0;
    const WithSystemCallHooks installed(resolvingBy([&](const std::string& host) {
        EXPECT_EQ(host, "server.test");
        ++lookups;
        return hasMoved ? "127.0.0.2" : "127.0.0.1";
    }));
    ScriptedServer server;
    server.on("/p", {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), answer(200)});
    HttpSession session(limits);
    const std::string url = "http://server.test:" + std::to_string(server.port()) + "/p";
    EXPECT_FALSE(fetch(session, url).error());
    const int once = lookups;  // newer libraries ask for each family of addresses by itself
    hasMoved = true;
    EXPECT_THAT(fetch(session, url).error(), Optional("Could not connect to the server."s));
    EXPECT_EQ(lookups, 2 * once);
}

TEST_F(NameLookupTest, ANameServerThatHangsDoesNotHoldUpTheEndOfTheExchange) {
    constexpr unsigned withQuickExit = 0x075700;
    if (curl_version_info(CURLVERSION_NOW)->version_num < withQuickExit) {
        GTEST_SKIP() << "this libcurl waits for its name server";
    }
    Semaphore asked(0);
    Semaphore release(0);
    Semaphore answered(0);
    bool inTime = false;
    const WithSystemCallHooks installed(resolvingBy([&](const std::string&) {
        asked.signal();
        inTime = release.waitFor(std::chrono::seconds(20));
        answered.signal();
        return "127.0.0.1";
    }));
    {
        HttpSession session(limits);
        Exchange exchange(session, requestFor("http://server.test:1/p"));
        asked.wait();
        virtual_clock::advance(limits.inactivity);
        EXPECT_THAT(exchange.result().error(), Optional("The request timed out."s));
    }
    release.signal();
    answered.wait();
    EXPECT_TRUE(inTime);
}

}  // namespace

}  // namespace orvane::test
