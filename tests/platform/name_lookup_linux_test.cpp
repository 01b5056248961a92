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
#include <future>
#include <memory>
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

/// From 8.20 on, libcurl looks up each family of addresses on a thread of its own, and one of them
/// may be late: what the hooks use is theirs, too.
class NameLookupTest : public HttpTest {};

TEST_F(NameLookupTest, ANewConnectionGoesWhereTheNameLeadsNow) {
    const auto hasMoved = std::make_shared<std::atomic<bool>>(false);
    const WithSystemCallHooks installed(resolvingBy([hasMoved](const std::string& host) {
        EXPECT_EQ(host, "server.test");
        return *hasMoved ? "127.0.0.2" : "127.0.0.1";
    }));
    ScriptedServer server;
    server.on("/p", {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), answer(200)});
    HttpSession session(limits);
    const std::string url = "http://server.test:" + std::to_string(server.port()) + "/p";
    EXPECT_FALSE(fetch(session, url).error());
    *hasMoved = true;
    EXPECT_THAT(fetch(session, url).error(), Optional("Could not connect to the server."s));
}

TEST_F(NameLookupTest, ANameServerThatHangsDoesNotHoldUpTheEndOfTheExchange) {
    constexpr unsigned withQuickExit = 0x075700;
    if (curl_version_info(CURLVERSION_NOW)->version_num < withQuickExit) {
        GTEST_SKIP() << "this libcurl waits for its name server";
    }
    struct NameServer {
        Semaphore asked{0};
        std::promise<void> end;
        std::shared_future<void> ended{end.get_future()};
        std::atomic<bool> wasWaitedFor = false;
    };
    const auto nameServer = std::make_shared<NameServer>();
    const WithSystemCallHooks installed(resolvingBy([nameServer](const std::string&) {
        nameServer->asked.signal();
        const std::shared_future<void> ended = nameServer->ended;
        if (ended.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            nameServer->wasWaitedFor = true;
        }
        return "127.0.0.1";
    }));
    {
        HttpSession session(limits);
        Exchange exchange(session, requestFor("http://server.test:1/p"));
        nameServer->asked.wait();
        virtual_clock::advance(limits.inactivity);
        EXPECT_THAT(exchange.result().error(), Optional("The request timed out."s));
    }
    EXPECT_FALSE(nameServer->wasWaitedFor);
    nameServer->end.set_value();
}

}  // namespace

}  // namespace orvane::test
