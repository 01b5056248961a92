// Connections that end while a request is on them, lead nowhere, or have been idle.
#include "emulator/front/front.h"
#include "platform/h2_front.h"
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/http_library_calls.h"
#include "platform/machine/paths.h"
#include "platform/system_calls.h"
#include "support/h2_frames.h"
#include "support/http_library.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::AnyOf;
using ::testing::Optional;
using ::testing::SizeIs;
using ::testing::StartsWith;
using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string lostText = "The network connection was lost.";
const std::string timeoutText = "The request timed out.";
constexpr const char* shortAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody";

class LostConnectionTest : public HttpTest {
  public:
    using HttpTest::limits;

  protected:
    HttpResult ask() { return fetch(session, server.url() + "/p"); }

    ScriptedServer server;
    HttpSession session{limits};
};

TEST_F(LostConnectionTest, ARequestLostOnAKeptConnectionIsSentAgain) {
    for (const Step& losing : {closeAtOnce(), resetAtOnce()}) {
        server.on("/p", {answer(200, "first"), losing, answer(200, "second")});
        EXPECT_THAT(ask().response().value().body, Optional("first"s));
        const auto result = ask();
        EXPECT_EQ(result.error(), std::nullopt);
        EXPECT_THAT(result.response().value().body, Optional("second"s));
    }
    EXPECT_THAT(server.requests(), SizeIs(6));
}

TEST_F(LostConnectionTest, ButNotAThirdTime) {
    server.on("/p", {answer(200), closeAtOnce(), closeAtOnce(), answer(200)});
    EXPECT_EQ(ask().error(), std::nullopt);
    EXPECT_THAT(ask().error(), Optional(lostText));
    EXPECT_THAT(server.requests(), SizeIs(3));
}

TEST_F(LostConnectionTest, NorOnOneKeptConnectionAfterTheOther) {
    std::vector<ManualServerStep> manualSteps(4);
    std::vector<Exchange> exchanges;
    for (std::size_t i = 0; i < manualSteps.size(); ++i) {
        const std::string path = "/" + std::to_string(i);
        server.on(path, {[step = manualSteps[i].step()](Connection& connection,
                                                        const ReceivedRequest& request) {
                      (void)step(connection, request);
                      return true;
                  }});
        exchanges.emplace_back(session, requestFor(server.url() + path));
        manualSteps[i].waitForRequest();
    }
    for (std::size_t i = 0; i < manualSteps.size(); ++i) {
        manualSteps[i].send(shortAnswer);
        manualSteps[i].close();
        EXPECT_EQ(exchanges[i].result().error(), std::nullopt);
    }
    server.always("/p", closeAtOnce());
    EXPECT_THAT(ask().error(), Optional(lostText));
    EXPECT_THAT(server.requestsTo("/p"), SizeIs(2));
}

TEST_F(LostConnectionTest, OnANewConnectionItIsAnError) {
    server.always("/p", closeAtOnce());
    EXPECT_THAT(ask().error(), Optional(lostText));
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(LostConnectionTest, AfterTheFirstLineOfTheAnswerItIsAnError) {
    server.on("/p", {answer(200), sendAndClose("HTTP/1.1 200 OK\r\n"), answer(200)});
    EXPECT_EQ(ask().error(), std::nullopt);
    EXPECT_THAT(ask().error(), Optional(lostText));
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(LostConnectionTest, AnAnswerOfTheNewConnectionHasTheWholeTimeAgain) {
    const ManualServerStep first;
    const ManualServerStep second;
    server.on("/p", {answer(200), first.step(), second.step()});
    EXPECT_EQ(ask().error(), std::nullopt);
    Exchange exchange(session, requestFor(server.url() + "/p"));
    first.waitForRequest();
    letWorkerIterate(session);
    virtual_clock::advance(300s);
    letWorkerIterate(session);
    first.close();
    second.waitForRequest();
    letWorkerIterate(session);
    virtual_clock::advance(300s);
    letWorkerIterate(session);
    EXPECT_FALSE(exchange.isComplete());
    virtual_clock::advance(30s);
    EXPECT_THAT(exchange.result().error(), Optional(timeoutText));
}

TEST_F(LostConnectionTest, AConnectionIsNotUsedAgainWhenItHasBeenIdleForSomeSeconds) {
    EXPECT_EQ(ask().response().value().status, 404);
    EXPECT_EQ(ask().response().value().status, 404);
    EXPECT_EQ(server.connectionCount(), 1U);
    std::this_thread::sleep_for(4100ms);  // the library has a clock of its own
    EXPECT_EQ(ask().response().value().status, 404);
    EXPECT_EQ(server.connectionCount(), 2U);
}

#ifdef __linux__
/// A peer that the system gives up while it has a request, the first on its connection.
void expectSentAgain(ScriptedServer& server, bool isSecure) {
    HttpSession session(LostConnectionTest::limits);
    Exchange refused(session, requestFor("refused:"));
    (void)refused.result();
    std::atomic<bool> isDead = false;
    std::atomic<bool> isLeft = false;
    SystemCallHooks systemCalls;
    systemCalls.refuse = [&, worker = refused.thread()](std::string_view name) {
        const bool isRead = name == "recv" && std::this_thread::get_id() == worker;
        if (!isRead || !isDead.exchange(false)) {
            return 0;
        }
        isLeft = isSecure;
        return ETIMEDOUT;
    };
    // What TLS says last is not taken either.
    systemCalls.send = [&, worker = refused.thread()](int) -> std::optional<ssize_t> {
        const bool isFarewell = std::this_thread::get_id() == worker && isLeft.exchange(false);
        return isFarewell ? std::optional<ssize_t>(failWith(EPIPE)) : std::nullopt;
    };
    // Not every version of the library says any.
    systemCalls.network = [&](std::string_view name, int, int) -> std::optional<int> {
        isLeft = isLeft && name != "connect";
        return std::nullopt;
    };
    const WithSystemCallHooks installed(systemCalls);
    const ManualServerStep manualStep;
    server.on("/p", {manualStep.step(), answer(200, "body")});
    Exchange exchange(session, requestFor(server.url() + "/p"));
    manualStep.waitForRequest();
    letWorkerIterate(session);
    isDead = true;
    manualStep.close();
    const auto result = exchange.result();
    EXPECT_EQ(result.error(), std::nullopt);
    ASSERT_TRUE(result.response());
    EXPECT_THAT(result.response()->body, Optional("body"s));
}

TEST_F(LostConnectionTest, ADeadPeerIsNoReasonForAnErrorOnANewConnectionEither) {
    expectSentAgain(server, false);
}

TEST_F(LostConnectionTest, ADeadPeerOfTlsIsNoneEither) {
    TestCa ca;
    ca.trustIn(paths::certificateDirectory());
    ScriptedServer secure(ca.issueForLoopback());
    expectSentAgain(secure, true);
}
#endif

// --- HTTP/2

/// Answers the first request of a connection, then does `next` when another has come.
Step answerThen(Step next) {
    return [next = std::move(next)](Connection& connection, const ReceivedRequest& request) {
        H2Requests requests(connection, request.raw);
        return connection.send(frame(FrameType::settings, 0, 0, "")) && requests.await() &&
               connection.send(frame(FrameType::headers, endHeaders | endStream, 1, "\x88")) &&
               requests.await() && next(connection, request);
    };
}

/// Does `next` when the first request of a connection has come.
Step onFirst(Step next) {
    return [next = std::move(next)](Connection& connection, const ReceivedRequest& request) {
        return connection.send(frame(FrameType::settings, 0, 0, "")) &&
               H2Requests(connection, request.raw).await() && next(connection, request);
    };
}

class LostHttp2ConnectionTest : public HttpTest {
  protected:
    LostHttp2ConnectionTest() { ca.trustIn(paths::certificateDirectory()); }

    static TlsIdentity http2(TlsIdentity identity) {
        identity.choosesHttp2 = true;
        return identity;
    }
    HttpResult ask() { return fetch(session, server.url() + "/p"); }

    TestCa ca;
    ScriptedServer server{http2(ca.issueForLoopback())};
    HttpSession session{limits};
};

TEST_F(LostHttp2ConnectionTest, ARequestLostOnAKeptConnectionIsSentAgain) {
    for (const Step& losing : {closeAtOnce(), resetAtOnce()}) {
        server.on("*", {answerThen(losing), answerThen(closeAtOnce())});
        EXPECT_EQ(ask().error(), std::nullopt);
        const auto result = ask();
        EXPECT_EQ(result.error(), std::nullopt);
        EXPECT_EQ(result.response().value().status, 200);
        EXPECT_TRUE(fetch(session, "http://127.0.0.1:1/").error());  // drops the connections
    }
    EXPECT_EQ(server.connectionCount(), 4U);
}

TEST_F(LostHttp2ConnectionTest, HoweverLongItHasBeenHeldAndWithTheWholeTimeAgain) {
    const ManualServerStep first;
    const ManualServerStep second;
    server.on("*", {answerThen(first.step()), onFirst(second.step())});
    EXPECT_EQ(ask().error(), std::nullopt);
    Exchange exchange(session, requestFor(server.url() + "/p"));
    for (const ManualServerStep* lost : {&first, &second}) {
        lost->waitForRequest();
        letWorkerIterate(session);
        virtual_clock::advance(300s);
        letWorkerIterate(session);
        EXPECT_FALSE(exchange.isComplete());
        if (lost == &first) {
            lost->close();
        }
    }
    virtual_clock::advance(30s);
    EXPECT_THAT(exchange.result().error(), Optional(timeoutText));
}

TEST_F(LostHttp2ConnectionTest, AGoAwayNeedNotCloseTheConnection) {
    server.on("*", {onFirst(sendAndStall(goAwayFrame(0, 0))), answerThen(closeAtOnce())});
    EXPECT_EQ(ask().error(), std::nullopt);
    EXPECT_EQ(server.connectionCount(), 2U);
}

/// Leaves out every request, and counts them.
Step leaveOut(std::atomic<int>& requests) {
    return onFirst([&requests](Connection& connection, const ReceivedRequest& request) {
        ++requests;
        return sendAndStall(goAwayFrame(0, 0))(connection, request);
    });
}

TEST_F(LostHttp2ConnectionTest, NewerVersionsOfTheLibraryRetryByThemselves) {
    const int retries = http_library::retriesAfterGoAway() ? 1 : 0;
    HttpLibraryHooks hooks;
    hooks.version = http_library::versionThatRetriesAfterGoAway;
    const WithHttpLibraryHooks installed(std::move(hooks));
    HttpSession fresh{limits};
    std::atomic<int> requests = 0;
    server.always("*", leaveOut(requests));
    EXPECT_TRUE(fetch(fresh, server.url() + "/p").error());
    EXPECT_EQ(requests, 1 + retries);
}

TEST_F(LostHttp2ConnectionTest, OnANewConnectionTheEndOfTheConnectionIsAnError) {
    for (const Step& losing : {closeAtOnce(), resetAtOnce()}) {
        const std::size_t before = server.connectionCount();
        server.always("*", onFirst(losing));
        EXPECT_TRUE(ask().error());
        EXPECT_EQ(server.connectionCount(), before + 1);
    }
}

#ifdef __linux__
TEST_F(LostHttp2ConnectionTest, OneThatTakesNoMoreBytesIsLostWhicheverTheyAre) {
    server.always("*", answerThen(closeAtOnce()));
    bool isAnswered = false;
    for (int taken = 0; !isAnswered; ++taken) {
        HttpSession fresh{limits};
        Exchange refused(fresh, requestFor("refused:"));
        (void)refused.result();
        SystemCallHooks systemCalls;
        systemCalls.send = [&, worker = refused.thread(),
                            left = taken](int) mutable -> std::optional<ssize_t> {
            if (std::this_thread::get_id() != worker || left-- > 0) {
                return std::nullopt;
            }
            return failWith(EPIPE);
        };
        const WithSystemCallHooks installed(systemCalls);
        const auto error = fetch(fresh, server.url() + "/p").error();
        isAnswered = !error;
        EXPECT_THAT(error.value_or(lostText), AnyOf(lostText, StartsWith("An SSL error"))) << taken;
        ASSERT_LT(taken, 20);
    }
}
#endif

/// A gateway that shuts down, or is restarted: it ends connections with GOAWAY and closes them.
class GatewayShutdownTest : public HttpTest {
  protected:
    GatewayShutdownTest() { ca.trustIn(paths::certificateDirectory()); }

    HttpResult ask() { return fetch(session, gateway.url() + "/p"); }

    const Step shutDown = sendAndClose(std::string(front::goAway));
    TestCa ca;
    ScriptedServer server;
    H2Front gateway{ca.issueForLoopback(), server};
    HttpSession session{limits};
};

TEST_F(GatewayShutdownTest, ARequestThatAGoAwayLeavesOutIsSentAgain) {
    server.on("/p", {answer(200, "first"), shutDown, answer(200, "second")});
    EXPECT_THAT(ask().response().value().body, Optional("first"s));
    const auto result = ask();
    EXPECT_EQ(result.error(), std::nullopt);
    EXPECT_THAT(result.response().value().body, Optional("second"s));
    EXPECT_THAT(server.requests(), SizeIs(3));
}

TEST_F(GatewayShutdownTest, OnANewConnectionToo) {
    server.on("/p", {shutDown, answer(200, "body")});
    EXPECT_THAT(ask().response().value().body, Optional("body"s));
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(GatewayShutdownTest, TheSecondTimeItIsTheSameRequest) {
    server.on("/p", {shutDown, answer(200)});
    HttpRequest request = requestFor(gateway.url() + "/p");
    request.headers = {{"Key", "k"}, {"If-None-Match", "\"v1\""}};
    EXPECT_EQ(session.perform(std::move(request)).error(), std::nullopt);
    const auto requests = server.requests();
    ASSERT_THAT(requests, SizeIs(2));
    EXPECT_EQ(requests[0].header("Key"), "k");
    EXPECT_EQ(requests[0].headers, requests[1].headers);
}

TEST_F(GatewayShutdownTest, ButNotAThirdTime) {
    server.always("/p", shutDown);
    const auto result = ask();
    EXPECT_TRUE(result.error());
    EXPECT_FALSE(result.response());
    EXPECT_THAT(server.requests(), SizeIs(2));  // some libraries connect a third time in vain
}

// --- Addresses

class SilentAddressTest : public HttpTest {
  protected:
    SilentAddressTest() {
        ca.trustIn(paths::certificateDirectory());
        virtual_clock::stop();
    }

    TestCa ca;
    ScriptedServer server{ca.issueForLoopback()};
    HttpSession session{limits};
};

TEST_F(SilentAddressTest, TheOnlyAddressIsTriedOnceMoreAndThenHasTheRestOfTheTime) {
    const ManualServerStep stall;
    server.onConnect(stall.step());
    Exchange exchange(session, requestFor(server.url() + "/p"));
    stall.waitForRequest();
    letWorkerIterate(session);
    virtual_clock::advance(11s);
    stall.waitForRequest();
    letWorkerIterate(session);
    virtual_clock::advance(18s);
    letWorkerTakeIn(session);
    EXPECT_FALSE(exchange.isComplete());
    virtual_clock::advance(2s);
    EXPECT_THAT(exchange.result().error(), Optional(timeoutText));
    EXPECT_EQ(server.connectionCount(), 2U);
    server.onConnect([](Connection&, const ReceivedRequest&) { return true; });
    EXPECT_EQ(fetch(session, server.url() + "/p").error(), std::nullopt);
}

}  // namespace

}  // namespace orvane::test
