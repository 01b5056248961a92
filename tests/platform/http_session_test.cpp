// The session itself: connections, threads, several requests, its end.
#include "platform/http/http_session.h"

#include "platform/http_exchange.h"
#include "support/http_session_internals.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::Optional;

using namespace std::string_literals;

class HttpSessionTest : public HttpTest {
  protected:
    ScriptedServer server;
};

TEST_F(HttpSessionTest, RequestsReuseTheConnection) {
    HttpSession session(limits);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(fetch(session, server.url() + "/p").response().value().status, 404);
    }
    EXPECT_EQ(server.requests().size(), 3U);
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(HttpSessionTest, AConnectionThatTheServerClosedMeanwhileIsReplacedWithoutAnError) {
    HttpSession session(limits);
    server.on("/p", {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"),
                     answer(200, "second")});
    (void)fetch(session, server.url() + "/p");
    const auto result = fetch(session, server.url() + "/p");
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(HttpSessionTest, AnErrorDropsEveryConnection) {
    ScriptedServer other;
    HttpSession session(limits);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 1U);
    other.on("/broken", {closeAtOnce()});
    EXPECT_TRUE(fetch(session, other.url() + "/broken").error());
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 2U);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(HttpSessionTest, ARefusedRequestDropsNone) {
    HttpSession session(limits);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_TRUE(fetch(session, "ftp://h/p").error());
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(HttpSessionTest, AnErrorDoesNotDisturbARequestUnderWay) {
    HttpSession session(limits);
    const ManualServerStep manualStep;
    server.on("/slow", {manualStep.step()});
    server.on("/broken", {closeAtOnce()});
    Exchange slow(session, requestFor(server.url() + "/slow"));
    manualStep.waitForRequest();
    EXPECT_TRUE(fetch(session, server.url() + "/broken").error());
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_FALSE(slow.isComplete());
    manualStep.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody");
    EXPECT_THAT(slow.result().response().value().body, Optional("body"s));
}

TEST_F(HttpSessionTest, AnErrorDropsConnectionsOnceNothingIsUnderWay) {
    HttpSession session(limits);
    const ManualServerStep manualStep;
    server.on("/slow", {manualStep.step()});
    server.on("/broken", {closeAtOnce()});
    Exchange slow(session, requestFor(server.url() + "/slow"));
    manualStep.waitForRequest();
    EXPECT_TRUE(fetch(session, server.url() + "/broken").error());
    manualStep.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(slow.result().error());
    const auto before = server.connectionCount();
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), before + 1);
}

TEST_F(HttpSessionTest, SeveralRequestsAreUnderWayAtOnce) {
    HttpSession session(limits);
    std::vector<ManualServerStep> manualSteps(4);
    std::vector<Exchange> exchanges;
    for (std::size_t i = 0; i < manualSteps.size(); ++i) {
        const std::string path = "/" + std::to_string(i);
        server.on(path, {manualSteps[i].step()});
        exchanges.emplace_back(session, requestFor(server.url() + path, {{"X-Number", path}}));
    }
    for (std::size_t i = 0; i < manualSteps.size(); ++i) {
        manualSteps[i].waitForRequest();
        EXPECT_THAT(server.requestsTo("/" + std::to_string(i)).at(0).header("X-Number"),
                    Optional("/" + std::to_string(i)));
    }
    for (std::size_t i = manualSteps.size(); i-- > 0;) {
        manualSteps[i].send("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n" + std::to_string(i));
        EXPECT_THAT(exchanges[i].result().response().value().body, Optional(std::to_string(i)));
        EXPECT_TRUE(i == 0 || !exchanges[i - 1].isComplete());
    }
}

TEST_F(HttpSessionTest, RequestsMayBeSentFromManyThreads) {
    HttpSession session(limits);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_FALSE(fetch(session, server.url() + "/p").error());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(server.requests().size(), 80U);
}

TEST_F(HttpSessionTest, CompletionsComeOnceEachOnAThreadOfTheSessionsOwn) {
    HttpSession session(limits);
    Exchange first(session, requestFor(server.url() + "/p"));
    (void)first.result();
    Exchange second(session, requestFor("ftp://h/p"));
    (void)second.result();
    letWorkerIterate(session);
    EXPECT_EQ(first.completions(), 1);
    EXPECT_EQ(second.completions(), 1);
    EXPECT_NE(first.thread(), std::this_thread::get_id());
    EXPECT_EQ(first.thread(), second.thread());
}

TEST_F(HttpSessionTest, SendReturnsAtOnce) {
    HttpSession session(limits);
    const ManualServerStep manualStep;
    server.on("/p", {manualStep.step()});
    Exchange exchange(session, requestFor(server.url() + "/p"));
    manualStep.waitForRequest();
    EXPECT_FALSE(exchange.isComplete());
    manualStep.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(exchange.result().error());
}

TEST_F(HttpSessionTest, ItsEndCompletesWhatIsUnderWayWithAnError) {
    server.on("/silent", {staySilent()});
    server.on("/half", {sendAndStall("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf")});
    auto session = std::make_unique<HttpSession>(limits);
    Exchange silent(*session, requestFor(server.url() + "/silent"));
    Exchange half(*session, requestFor(server.url() + "/half"));
    ASSERT_TRUE(server.waitForRequests(2));
    session.reset();
    EXPECT_EQ(silent.completions(), 1);
    EXPECT_EQ(half.completions(), 1);
    const auto result = silent.result();
    EXPECT_THAT(result.error(), Optional("cancelled"s));
    EXPECT_FALSE(result.response());
    EXPECT_THAT(half.result().error(), Optional("cancelled"s));
}

TEST_F(HttpSessionTest, ItsEndCompletesWhatHasNotEvenStarted) {
    for (int round = 0; round < 20; ++round) {
        auto session = std::make_unique<HttpSession>(limits);
        std::vector<Exchange> exchanges;
        for (int i = 0; i < 3; ++i) {
            exchanges.emplace_back(*session, requestFor(server.url() + "/p"));
        }
        session.reset();
        for (Exchange& exchange : exchanges) {
            EXPECT_EQ(exchange.completions(), 1);
        }
    }
}

TEST_F(HttpSessionTest, SessionsDoNotShareConnections) {
    HttpSession one(limits);
    HttpSession other(limits);
    EXPECT_FALSE(fetch(one, server.url() + "/p").error());
    EXPECT_FALSE(fetch(other, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(HttpSessionTest, EndingAFloodLeavesAnIdleSessionItsConnection) {
    HttpSession session(limits);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    virtual_clock::advance(2 * HttpSessionInternals::grace);
    HttpSessionInternals::endFlood(session);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(HttpSessionTest, TheSharedSessionIsAlwaysTheSame) {
    HttpSession& shared = HttpSession::shared();
    EXPECT_EQ(&shared, &HttpSession::shared());
    EXPECT_FALSE(fetch(shared, server.url() + "/p").error());
    EXPECT_FALSE(fetch(HttpSession::shared(), server.url() + "/p").error());
    EXPECT_EQ(server.connectionCount(), 1U);
}

/// This process's sockets that are connected to `port`.
std::vector<int> socketsTo(std::uint16_t port) {
    std::vector<int> found;
    for (const int descriptor : openDescriptors()) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
            found.push_back(descriptor);
        }
    }
    return found;
}

TEST_F(HttpSessionTest, ADeadPeerIsNoticedWithinAMinute) {
    HttpSession session(limits);
    server.on("/p", {staySilent()});
    const Exchange exchange(session, requestFor(server.url() + "/p"));
    ASSERT_TRUE(server.waitForRequests(1));
    const auto sockets = socketsTo(server.port());
    ASSERT_EQ(sockets.size(), 1U);
    const auto numberOf = [&](int level, int option) {
        int number = 0;
        socklen_t size = sizeof number;
        EXPECT_EQ(::getsockopt(sockets[0], level, option, &number, &size), 0);
        return number;
    };
    EXPECT_NE(numberOf(SOL_SOCKET, SO_KEEPALIVE), 0);
    EXPECT_EQ(numberOf(IPPROTO_TCP, TCP_KEEPINTVL), 10);
    EXPECT_EQ(numberOf(IPPROTO_TCP, TCP_KEEPCNT), 3);
#ifdef __linux__
    EXPECT_EQ(numberOf(IPPROTO_TCP, TCP_KEEPIDLE), 30);
    EXPECT_EQ(numberOf(IPPROTO_TCP, TCP_USER_TIMEOUT), 60'000);
#else
    EXPECT_EQ(numberOf(IPPROTO_TCP, TCP_KEEPALIVE), 30);
#endif
}

TEST_F(HttpSessionTest, AFinishedSessionLeavesNoSocket) {
    {
        HttpSession session(limits);
        EXPECT_FALSE(fetch(session, server.url() + "/p").error());
        EXPECT_EQ(socketsTo(server.port()).size(), 1U);
    }
    EXPECT_EQ(socketsTo(server.port()).size(), 0U);
}

}  // namespace

}  // namespace orvane::test
