// The same session over HTTP/2.
#include "emulator/front/front.h"
#include "platform/h2_front.h"
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/machine/paths.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

namespace orvane::test {

namespace {

using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Optional;
using namespace std::chrono_literals;
using namespace std::string_literals;

class Http2Test : public HttpTest {
  protected:
    Http2Test() { ca.trustIn(paths::certificateDirectory()); }

    HttpResult ask() {
        return fetch(session, requestFor(front.url() + "/p", {{"X-Orv-Key", "key-1"}}));
    }

    TestCa ca;
    ScriptedServer server;
    H2Front front{ca.issueForLoopback(), server};
    HttpSession session{limits};
};

TEST_F(Http2Test, AServerThatOffersItIsSpokenToInHttp2) {
    server.on("/p", {answer(200, "body")});
    const auto result = ask();
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_EQ(result.response().value().status, 200);
    EXPECT_THAT(result.response().value().body, Optional("body"s));
    const auto request = server.requests().at(0);
    EXPECT_THAT(request.header("Via"), Optional(std::string(front::via)));
    EXPECT_THAT(request.header("X-Orv-Key"), Optional("key-1"s));
    EXPECT_EQ(request.header("Accept"), std::nullopt);
}

TEST_F(Http2Test, AStatusWithoutBody) {
    server.on("/p", {answer(304)});
    const auto result = ask();
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_EQ(result.response().value().status, 304);
    EXPECT_THAT(result.response().value().body, Optional(""s));
}

TEST_F(Http2Test, ALargeBodyIsComplete) {
    const std::string body(std::size_t{3} * 1024 * 1024, 'x');
    server.on("/p", {answer(200, body)});
    const auto result = ask();
    EXPECT_TRUE(result.response().value().body == body);
}

TEST_F(Http2Test, ABodyThatBreaksOffKeepsTheStatusOnly) {
    // The library drops a status that it has not handed on when the stream is reset.
    std::atomic<std::chrono::milliseconds> timeForTheStatus = 25ms;
    server.always("/p", [&](Connection& connection, const ReceivedRequest&) {
        (void)connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        (void)connection.pause(timeForTheStatus);
        return false;
    });
    HttpResult result = ask();
    while (!result.response() && timeForTheStatus.load() < 10s) {
        timeForTheStatus = 2 * timeForTheStatus.load();
        result = ask();
    }
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response().value().status, 200);
    EXPECT_EQ(result.response().value().body, std::nullopt);
    EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
}

TEST_F(Http2Test, TheInactivityLimitHolds) {
    const ManualServerStep manualStep;
    server.on("/p", {manualStep.step()});
    HttpRequest request = requestFor(front.url() + "/p");
    request.inactivityLimit = 100s;
    Exchange exchange(session, std::move(request));
    manualStep.waitForRequest();
    virtual_clock::advance(60s);
    letWorkerIterate(session);
    EXPECT_FALSE(exchange.isComplete());
    virtual_clock::advance(40s);
    EXPECT_THAT(exchange.result().error(), Optional("The request timed out."s));
}

}  // namespace

}  // namespace orvane::test
