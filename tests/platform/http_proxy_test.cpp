// Proxies from the environment: honored, but never on the way to this very machine.
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/machine/paths.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace orvane::test {

namespace {

using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Optional;
using namespace std::string_literals;

class HttpProxyTest : public HttpTest {
  protected:
    HttpProxyTest() {
        for (const char* name : {"http_proxy", "https_proxy"}) {
            ::setenv(name, proxy.url().c_str(), 1);
        }
    }

    ScriptedServer proxy;
    HttpSession session{limits};
};

TEST_F(HttpProxyTest, ARequestToAnotherHostGoesThroughTheProxy) {
    proxy.on("http://example.invalid/p", {answer(200, "from the proxy")});
    const auto result = fetch(session, "http://example.invalid/p?q=1");
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_THAT(result.response().value().body, Optional("from the proxy"s));
    const auto request = proxy.requests().at(0);
    EXPECT_EQ(request.target, "http://example.invalid/p?q=1");
    EXPECT_THAT(request.header("Host"), Optional("example.invalid"s));
}

TEST_F(HttpProxyTest, ARequestToThisMachineDoesNot) {
    ScriptedServer server;
    const std::string port = std::to_string(server.port());
    for (const std::string& host :
         {"127.0.0.1"s, "localhost"s, "LOCALHOST"s, "127.1"s, "2130706433"s, "0x7f.0.0.1"s,
          "0.0.0.0"s, "[::ffff:127.0.0.1]"s, "[0:0:0:0:0:ffff:7f00:1]"s}) {
        SCOPED_TRACE(host);
        const auto result = fetch(session, "http://" + host + ":" + port + "/p");
        EXPECT_EQ(result.response().value().status, 404);
    }
    EXPECT_EQ(server.requests().size(), 9U);
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(HttpProxyTest, ARequestToAnAddressOfThisMachineWithoutAServerDoesNotEither) {
    for (const std::string& host : {"[::1]"s, "[0:0:0:0:0:0:0:1]"s, "localhost."s, "127.0.0.2"s,
                                    "tool.localhost"s, "A.B.LOCALHOST"s}) {
        SCOPED_TRACE(host);
        EXPECT_TRUE(fetch(session, "http://" + host + ":1/p").error());
    }
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(HttpProxyTest, ARequestToThisMachineDoesNotSpoilTheProxyForTheNext) {
    ScriptedServer server;
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    EXPECT_FALSE(fetch(session, "http://example.invalid/p").error());
    EXPECT_EQ(proxy.requests().size(), 1U);
}

TEST_F(HttpProxyTest, HostsThatTheEnvironmentExceptsAreAskedDirectly) {
    ::setenv("no_proxy", "example.invalid", 1);
    EXPECT_TRUE(fetch(session, "http://example.invalid/p").error());
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(HttpProxyTest, ForHttpsTheProxyIsAskedForATunnelWithoutTheRequestsHeaders) {
    proxy.on("example.invalid:443", {closeAtOnce()});
    const auto result =
        fetch(session, requestFor("https://example.invalid/p", {{"X-Orv-Key", "key-1"}}));
    EXPECT_TRUE(result.error());
    const auto request = proxy.requests().at(0);
    EXPECT_EQ(request.method, "CONNECT");
    EXPECT_EQ(request.header("X-Orv-Key"), std::nullopt);
}

TEST_F(HttpProxyTest, WhatTheProxySaysToTheTunnelIsNotTheResponse) {
    proxy.on("example.invalid:443", {sendAndClose("HTTP/1.1 200 Connected\r\n\r\n"),
                                     answer(403, "no"), answer(407, "who?")});
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const auto result = fetch(session, "https://example.invalid/p");
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
    }
    EXPECT_EQ(proxy.requests().size(), 3U);
}

TEST_F(HttpProxyTest, ARefusedTunnelIsReportedWithItsStatus) {
    proxy.on("example.invalid:443", {answer(403, "no"), answer(407, "who?"), answer(503)});
    for (const char* error : {"The proxy refused to connect to the server (HTTP 403).",
                              "The proxy requires a user name and password (HTTP 407).",
                              "The proxy refused to connect to the server (HTTP 503)."}) {
        const auto result = fetch(session, "https://example.invalid/p");
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional(std::string(error)));
    }
}

TEST_F(HttpProxyTest, AnHttpsProxyIsTrustedLikeAServer) {
    const TestCa ca;
    ca.trustIn(paths::certificateDirectory());
    ScriptedServer secure(ca.issueForLoopback());
    ::setenv("https_proxy", secure.url().c_str(), 1);
    secure.on("example.invalid:443", {answer(403)});
    EXPECT_THAT(fetch(session, "https://example.invalid/p").error(),
                Optional("The proxy refused to connect to the server (HTTP 403)."s));
    EXPECT_EQ(secure.requests().size(), 1U);
}

TEST_F(HttpProxyTest, AProxyThatIsGoneIsAnError) {
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);
    const auto result = fetch(session, "http://example.invalid/p");
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional("Could not connect to the server."s));
}

}  // namespace

}  // namespace orvane::test
