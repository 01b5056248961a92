// How long an exchange may take and how much it may bring.
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/machine/clock.h"
#include "platform/machine/paths.h"
#include "support/http_session_internals.h"
#include "support/sanitizers.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::Optional;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr const char* timedOut = "The request timed out.";
constexpr const char* wholeAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody";

class HttpLimitsTest : public HttpTest {
  protected:
    HttpLimitsTest() { virtual_clock::stop(); }

    /// Starts a request that `manualStep` will answer.
    Exchange start(HttpRequest request) {
        server.on("/p", {manualStep.step()});
        Exchange exchange(session, std::move(request));
        manualStep.waitForRequest();
        letWorkerIterate(session);
        return exchange;
    }
    Exchange start() { return start(requestFor(server.url() + "/p")); }

    /// Moves the clock and lets the session see it.
    void advance(std::chrono::milliseconds by) {
        virtual_clock::advance(by);
        letWorkerIterate(session);
    }

    /// Has the server send `bytes` and lets the session see them.
    void send(std::string_view bytes) {
        manualStep.send(bytes);
        letWorkerIterate(session);
    }

    ScriptedServer server;
    ManualServerStep manualStep;
    HttpSession session{limits};
};

TEST_F(HttpLimitsTest, SilenceUpToTheLimitIsTaken) {
    Exchange exchange = start();
    advance(300s);
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send(wholeAnswer);
    EXPECT_THAT(exchange.result().response().value().body, Optional("body"s));
}

TEST_F(HttpLimitsTest, WhereNothingFloodsNothingIsCutOff) {
    Exchange exchange = start();
    advance(300s);
    HttpSessionInternals::endFlood(session);
    manualStep.send(wholeAnswer);
    EXPECT_THAT(exchange.result().response().value().body, Optional("body"s));
}

TEST_F(HttpLimitsTest, ACompletionIsLateByNoMoreThanOneRead) {
    EXPECT_EQ(HttpSessionInternals::completionLimit(session), 365s);
}

TEST_F(HttpLimitsTest, ALongerSilenceTimesOut) {
    Exchange exchange = start();
    advance(330s);
    ASSERT_TRUE(exchange.isComplete());
    const auto result = exchange.result();
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(std::string(timedOut)));
    EXPECT_EQ(exchange.completions(), 1);
}

TEST_F(HttpLimitsTest, AStallWithinTheHeaderTimesOutWithoutResponse) {
    Exchange exchange = start();
    send("HTTP/1.1 200 OK\r\nContent-Le");
    advance(330s);
    ASSERT_TRUE(exchange.isComplete());
    const auto result = exchange.result();
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(std::string(timedOut)));
}

TEST_F(HttpLimitsTest, AStallWithinTheBodyTimesOutAndKeepsTheStatus) {
    Exchange exchange = start();
    send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    advance(330s);
    ASSERT_TRUE(exchange.isComplete());
    const auto result = exchange.result();
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response()->status, 200);
    EXPECT_EQ(result.response()->body, std::nullopt);
    EXPECT_THAT(result.error(), Optional(std::string(timedOut)));
}

class HttpTrickleTest : public HttpLimitsTest {
  protected:
    /// Sends each of `parts` after a silence that is too long for two of them to be one.
    void trickle(const std::vector<std::string>& parts) {
        for (const std::string& part : parts) {
            advance(40s);
            send(part);
        }
    }

    Exchange start() {
        HttpRequest request = requestFor(server.url() + "/p");
        request.inactivityLimit = 70s;
        return HttpLimitsTest::start(std::move(request));
    }
};

TEST_F(HttpTrickleTest, EveryHeaderLineRestartsTheInactivityLimit) {
    Exchange exchange = start();
    // Each with the first byte of the next one: from 8.18 on, the library waits for it, since a
    // line may be continued.
    trickle({"HTTP/1.1 200 OK\r\nA", ": b\r\nC", "ontent-Length: 4\r\nX"});
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send(": y\r\n\r\nbody");
    EXPECT_THAT(exchange.result().response().value().body, Optional("body"s));
}

TEST_F(HttpTrickleTest, EveryByteOfTheBodyRestartsTheInactivityLimit) {
    Exchange exchange = start();
    send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
    trickle({"b", "o", "d"});
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send("y");
    EXPECT_THAT(exchange.result().response().value().body, Optional("body"s));
}

TEST_F(HttpTrickleTest, BytesThatDecodeToNothingYetRestartItToo) {
    Exchange exchange = start();
    // The gzip header's file name, which is skipped.
    send(
        "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n\x1F\x8B\x08\x08\x00\x00\x00\x00\x02\xFF"s);
    trickle({"n", "a", "m"});
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send("e\x00\x4B\x49\x4D\xCE\x4F\x49\x4D\x01\x00\xF6\x9A\xF0\x1A\x07\x00\x00\x00"s);
    manualStep.close();
    EXPECT_THAT(exchange.result().response().value().body, Optional("decoded"s));
}

TEST_F(HttpTrickleTest, InterimResponsesRestartItToo) {
    Exchange exchange = start();
    trickle({"HTTP/1.1 103 Early Hints\r\n\r\n", "HTTP/1.1 103 Early Hints\r\n\r\n"});
    advance(40s);
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send(wholeAnswer);
    EXPECT_THAT(exchange.result().response().value().body, Optional("body"s));
}

TEST_F(HttpTrickleTest, ASilenceAfterTheLastByteTimesOut) {
    Exchange exchange = start();
    send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
    trickle({"b", "o"});
    advance(70s);
    EXPECT_TRUE(exchange.isComplete());
}

TEST_F(HttpTrickleTest, TheTotalLimitEndsATrickle) {
    Exchange exchange = start();
    send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n");
    trickle({"1", "2", "3", "4", "5", "6", "7", "8"});  // 320 s
    EXPECT_FALSE(exchange.isComplete());
    advance(40s);
    ASSERT_TRUE(exchange.isComplete());
    const auto result = exchange.result();
    EXPECT_EQ(result.response().value().body, std::nullopt);
    EXPECT_THAT(result.error(), Optional(std::string(timedOut)));
}

TEST_F(HttpLimitsTest, ARequestsOwnLimitIsShorterThanTheSessions) {
    HttpRequest request = requestFor(server.url() + "/p");
    request.inactivityLimit = 12s;
    Exchange exchange = start(std::move(request));
    advance(12s);
    EXPECT_TRUE(exchange.isComplete());
}

TEST_F(HttpLimitsTest, ARequestsOwnLimitIsLongerThanTheSessions) {
    HttpSession strict({5s, 360s});
    server.on("/p", {manualStep.step()});
    HttpRequest request = requestFor(server.url() + "/p");
    request.inactivityLimit = 200s;
    Exchange exchange(strict, std::move(request));
    manualStep.waitForRequest();
    virtual_clock::advance(100s);
    letWorkerIterate(strict);
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send(wholeAnswer);
    EXPECT_FALSE(exchange.result().error());
}

TEST_F(HttpLimitsTest, TheTotalLimitHoldsForEveryRequest) {
    HttpRequest request = requestFor(server.url() + "/p");
    request.inactivityLimit = 1000s;
    Exchange exchange = start(std::move(request));
    advance(330s);
    EXPECT_FALSE(exchange.isComplete());
    advance(30s);
    EXPECT_TRUE(exchange.isComplete());
}

TEST_F(HttpLimitsTest, EachRequestHasItsOwnClock) {
    Exchange first = start();
    advance(200s);
    const ManualServerStep other;
    server.on("/other", {other.step()});
    Exchange second(session, requestFor(server.url() + "/other"));
    other.waitForRequest();
    advance(160s);
    EXPECT_TRUE(first.isComplete());
    EXPECT_FALSE(second.isComplete());
    advance(170s);
    EXPECT_TRUE(second.isComplete());
}

TEST_F(HttpLimitsTest, SeveralOverdueRequestsEndTogether) {
    Exchange first = start();
    const ManualServerStep other;
    server.on("/other", {other.step()});
    Exchange second(session, requestFor(server.url() + "/other"));
    other.waitForRequest();
    virtual_clock::advance(360s);
    letWorkerIterate(session);
    EXPECT_THAT(first.result().error(), Optional(std::string(timedOut)));
    EXPECT_THAT(second.result().error(), Optional(std::string(timedOut)));
}

TEST_F(HttpLimitsTest, TheNextRequestAfterATimeoutUsesANewConnection) {
    Exchange exchange = start();
    advance(330s);
    EXPECT_TRUE(exchange.isComplete());
    EXPECT_FALSE(fetch(session, server.url() + "/other").error());
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(HttpLimitsTest, ATimeoutDropsEveryConnection) {
    ScriptedServer other;
    EXPECT_FALSE(fetch(session, other.url() + "/p").error());
    Exchange exchange = start();
    advance(330s);
    EXPECT_TRUE(exchange.isComplete());
    EXPECT_FALSE(fetch(session, other.url() + "/p").error());
    EXPECT_EQ(other.connectionCount(), 2U);
}

TEST_F(HttpLimitsTest, TheWorkerWakesUpForADeadlineByItself) {
    Exchange exchange = start();
    virtual_clock::advance(330s);
    EXPECT_THAT(exchange.result().error(), Optional(std::string(timedOut)));
}

TEST_F(HttpLimitsTest, TheSharedSessionAllowsAMinuteOfSilenceAndSixMinutesInAll) {
    HttpSession& shared = HttpSession::shared();
    server.on("/p", {manualStep.step()});
    Exchange silent(shared, requestFor(server.url() + "/p"));
    manualStep.waitForRequest();
    virtual_clock::advance(30s);
    letWorkerIterate(shared);
    EXPECT_FALSE(silent.isComplete());
    virtual_clock::advance(30s);
    letWorkerIterate(shared);
    EXPECT_TRUE(silent.isComplete());

    const ManualServerStep other;
    server.on("/other", {other.step()});
    HttpRequest request = requestFor(server.url() + "/other");
    request.inactivityLimit = 1000s;
    Exchange patient(shared, std::move(request));
    other.waitForRequest();
    virtual_clock::advance(330s);
    letWorkerIterate(shared);
    EXPECT_FALSE(patient.isComplete());
    virtual_clock::advance(30s);
    letWorkerIterate(shared);
    EXPECT_TRUE(patient.isComplete());
}

// --- Connecting

TEST_F(HttpLimitsTest, AnUnfinishedTlsHandshakeTimesOutAfterHalfAMinute) {
    const TestCa ca;
    ScriptedServer tls(ca.issueForLoopback());
    ManualServerStep stall;
    tls.onConnect(stall.step());
    HttpRequest request = requestFor(tls.url() + "/p");
    request.inactivityLimit = 100s;
    Exchange exchange(session, std::move(request));
    stall.waitForRequest();
    advance(20s);
    EXPECT_FALSE(exchange.isComplete());
    advance(10s);
    ASSERT_TRUE(exchange.isComplete());
    const auto result = exchange.result();
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(std::string(timedOut)));
    EXPECT_TRUE(tls.requests().empty());
}

TEST_F(HttpLimitsTest, TheInactivityLimitCountsTheTlsHandshake) {
    const TestCa ca;
    ca.trustIn(paths::certificateDirectory());
    ScriptedServer tls(ca.issueForLoopback());
    tls.onConnect([](Connection&, const ReceivedRequest&) {
        virtual_clock::advance(9s);  // not so long that the address is left
        return true;
    });
    tls.on("/p", {manualStep.step()});
    HttpRequest request = requestFor(tls.url() + "/p");
    request.inactivityLimit = 100s;
    Exchange exchange(session, std::move(request));
    manualStep.waitForRequest();
    advance(90s);
    EXPECT_FALSE(exchange.isComplete());
    advance(1s);
    ASSERT_TRUE(exchange.isComplete());
    EXPECT_THAT(exchange.result().error(), Optional(std::string(timedOut)));
}

// --- Size

constexpr const char* tooSlow = "a body of 100 MiB takes minutes";

TEST_F(HttpLimitsTest, ABodyOfTheLimitIsTaken) {
    ORVANE_SKIP_UNDER_SANITIZERS(tooSlow);
    EXPECT_EQ(HttpSession::bodyLimit, 104'857'600U);
    server.on("/p", {zeros(HttpSession::bodyLimit)});
    const auto result = fetch(session, server.url() + "/p");
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_EQ(result.response().value().body.value().size(), HttpSession::bodyLimit);
}

TEST_F(HttpLimitsTest, ALargerBodyEndsTheExchangeAndKeepsTheStatus) {
    ORVANE_SKIP_UNDER_SANITIZERS(tooSlow);
    server.on("/p", {zeros(HttpSession::bodyLimit + 1)});
    const auto result = fetch(session, server.url() + "/p");
    EXPECT_THAT(result.error(), Optional("the response is larger than 104857600 bytes"s));
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response()->status, 200);
    EXPECT_EQ(result.response()->body, std::nullopt);
}

/// An answer whose header and trailers are `size` bytes, without the blank line after them.
std::string answerWithHeaderOf(std::size_t size) {
    const std::string header = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string line = "X: " + std::string(995, 'x') + "\r\n";
    std::string trailers;
    while (header.size() + trailers.size() + 2 * line.size() <= size) {
        trailers += line;
    }
    const std::size_t rest = size - header.size() - trailers.size();
    trailers += "X: " + std::string(rest - 5, 'x') + "\r\n";
    return header + "4\r\nbody\r\n0\r\n" + trailers;
}

TEST_F(HttpLimitsTest, TrailersUpToTheHeadersLimitAreTakenMoreEndTheExchange) {
    const auto answerTo = [&](const std::string& bytes) {
        server.on("/p", {sendAndClose(bytes)});
        return fetch(session, server.url() + "/p");
    };
    const auto taken = answerTo(answerWithHeaderOf(HttpSession::headerLimit) + "\r\n");
    EXPECT_EQ(taken.error(), std::nullopt);
    EXPECT_THAT(taken.response().value().body, Optional("body"s));
    const auto refused = answerTo(answerWithHeaderOf(HttpSession::headerLimit + 1) + "\r\n");
    EXPECT_THAT(refused.error(),
                Optional("the header of the response is larger than 262144 bytes"s));
    EXPECT_EQ(refused.response().value().status, 200);
    EXPECT_EQ(refused.response().value().body, std::nullopt);
    const auto lost = answerTo(answerWithHeaderOf(HttpSession::headerLimit));
    EXPECT_THAT(lost.error(), Optional("The network connection was lost."s));
}

TEST_F(HttpLimitsTest, AnAnnouncedLengthIsNotTrusted) {
    server.on("/p",
              {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 9000000000000000000\r\n\r\nx")});
    const auto result = fetch(session, server.url() + "/p");
    EXPECT_THAT(result.error(), Optional("The network connection was lost."s));
}

}  // namespace

}  // namespace orvane::test
