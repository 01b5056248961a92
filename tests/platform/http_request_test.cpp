// What a request looks like on the wire, and which ones never get there.
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "support/http_library.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Optional;
using namespace std::string_literals;

class HttpRequestTest : public HttpTest {
  protected:
    /// The request that arrives when one for `path` is sent with `headers`.
    ReceivedRequest received(const std::string& path, std::vector<HttpHeader> headers = {}) {
        const auto result = fetch(session, requestFor(server.url() + path, std::move(headers)));
        EXPECT_FALSE(result.error()) << *result.error();
        const auto requests = server.requests();
        return requests.empty() ? ReceivedRequest{} : requests.back();
    }

    /// How sending `headers` ends.
    HttpResult resultWith(std::vector<HttpHeader> headers) {
        return fetch(session, requestFor(server.url() + "/p", std::move(headers)));
    }

    ScriptedServer server;
    HttpSession session{limits};
};

TEST_F(HttpRequestTest, NothingButTheRequestedHeadersIsSent) {
    const auto request = received("/p?q=1", {{"X-Orv-Key", "key-1"}, {"If-None-Match", "\"e\""}});
    const std::string encodings = request.header("Accept-Encoding").value_or("none");
    const std::string userAgent = request.header("User-Agent").value_or("none");
    EXPECT_EQ(request.raw,
              "GET /p?q=1 HTTP/1.1\r\n"
              "Host: 127.0.0.1:" +
                  std::to_string(server.port()) +
                  "\r\n"
                  "User-Agent: " +
                  userAgent +
                  "\r\n"
                  "Accept-Encoding: " +
                  encodings +
                  "\r\n"
                  "X-Orv-Key: key-1\r\n"
                  "If-None-Match: \"e\"\r\n\r\n");
    EXPECT_THAT(userAgent, MatchesRegex("OrvanePolicyDaemon/[0-9]+\\.[0-9]+\\.[0-9]+"));
    EXPECT_THAT(encodings, HasSubstr("gzip"));
}

TEST_F(HttpRequestTest, NoAcceptUnlessRequested) {
    EXPECT_EQ(received("/p").header("Accept"), std::nullopt);
}

TEST_F(HttpRequestTest, ARequestedAcceptIsSentOnce) {
    const auto request = received("/p", {{"Accept", "application/json"}});
    EXPECT_THAT(request.header("Accept"), Optional("application/json"s));
    EXPECT_EQ(request.raw.find("Accept:"), request.raw.rfind("Accept:"));
}

TEST_F(HttpRequestTest, AnEmptyHeaderValueIsSentAsSuch) {
    const auto request = received("/p", {{"X-Orv-Key", ""}, {"X-Other", "x"}});
    EXPECT_THAT(request.raw, HasSubstr("\r\nX-Orv-Key:\r\n"));
    EXPECT_THAT(request.header("X-Other"), Optional("x"s));
}

TEST_F(HttpRequestTest, AHeaderValueOfSpacesIsSentEmpty) {
    EXPECT_THAT(received("/p", {{"X-Orv-Key", "   "}}).header("X-Orv-Key"), Optional(""s));
}

TEST_F(HttpRequestTest, HeaderValuesArriveAsTheyAre) {
    for (const std::string value :
         {"a b", "a;b,c", "a: b", ";", "\"quoted\"", "caf\u00E9", "\xFF\x80", "x"}) {
        EXPECT_THAT(received("/p", {{"X-Orv-Key", value}}).header("X-Orv-Key"), Optional(value));
    }
}

TEST_F(HttpRequestTest, ALongHeaderValueArrivesWhole) {
    const std::string value(20'000, 'k');
    EXPECT_THAT(received("/p", {{"X-Orv-Key", value}}).header("X-Orv-Key"), Optional(value));
}

TEST_F(HttpRequestTest, ThePathIsSentAsItIs) {
    for (const std::string path : {"/", "/a/../b/./c", "/a//b/", "/../x", "/%7E%2F", "/a;b=c"}) {
        EXPECT_EQ(received(path).target, path);
    }
    EXPECT_EQ(received("/%7e%2F").target,
              http_library::sendsEscapesInUpperCase() ? "/%7E%2F" : "/%7e%2F");
}

TEST_F(HttpRequestTest, AnEmptyPathIsSentAsASlash) {
    EXPECT_EQ(received("").target, "/");
    EXPECT_EQ(received("?x=1").target, "/?x=1");
}

TEST_F(HttpRequestTest, TheFragmentIsNotSent) {
    EXPECT_EQ(received("/p?x=1#fragment").target, "/p?x=1");
}

TEST_F(HttpRequestTest, TheSchemeMayBeInAnyCase) {
    EXPECT_EQ(fetch(session, "HTTP://127.0.0.1:" + std::to_string(server.port()) + "/p")
                  .response()
                  .value()
                  .status,
              404);
}

TEST_F(HttpRequestTest, HeadersOfOneRequestAreNotSentWithTheNext) {
    (void)received("/p", {{"X-Orv-Key", "key-1"}, {"Accept", "x/y"}});
    const auto second = received("/p");
    EXPECT_EQ(second.header("X-Orv-Key"), std::nullopt);
    EXPECT_EQ(second.header("Accept"), std::nullopt);
    EXPECT_THAT(second.header("User-Agent"), Optional(HasSubstr("OrvanePolicyDaemon/")));
}

TEST_F(HttpRequestTest, CookiesAreNotKept) {
    server.on("/p", {answer(200, "", {{"Set-Cookie", "a=b; Path=/"}}), answer(200)});
    (void)received("/p");
    EXPECT_EQ(received("/p").header("Cookie"), std::nullopt);
}

// --- What must not go on the wire

TEST_F(HttpRequestTest, AControlCharacterInAHeaderValueEndsTheExchangeBeforeAnyConnection) {
    for (const std::string& value : {"a\rb"s, "a\nb"s, "a\r\nX-Other: b"s, "a\0b"s, "a\tb"s,
                                     "a\x7F"s, "\x01"s, "\n"s, "a\x1F"s}) {
        SCOPED_TRACE(::testing::PrintToString(value));
        const auto result = resultWith({{"X-Orv-Slug", "x"}, {"X-Orv-Key", value}});
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional("a header value contains a control character"s));
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(HttpRequestTest, AHeaderValueUpToTheLimitIsSentALongerOneIsNot) {
    server.always("/p", answer(200));
    std::string value(HttpSession::headerValueLimit, 'x');
    EXPECT_EQ(resultWith({{"If-None-Match", value}}).error(), std::nullopt);
    EXPECT_THAT(server.requests().at(0).header("If-None-Match"), Optional(value));
    value += 'x';
    const auto result = resultWith({{"If-None-Match", value}});
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional("a header value is longer than 65536 bytes"s));
    EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(HttpRequestTest, ARefusedRequestLeavesTheSessionUsable) {
    (void)resultWith({{"X-Orv-Key", "\n"}});
    EXPECT_EQ(fetch(session, server.url() + "/p").response().value().status, 404);
}

TEST_F(HttpRequestTest, WhatIsNotHttpWithAHostIsAnUnsupportedUrl) {
    const std::string port = std::to_string(server.port());
    for (const std::string& url :
         {"ftp://127.0.0.1:" + port + "/p", "file:///etc/hostname"s, "127.0.0.1"s,
          "localhost:" + port + "/p", "//127.0.0.1:" + port + "/p", "/p"s, ""s, "http:"s,
          "http:///p"s, "https:/api/p"s, "http:127.0.0.1:" + port, "httpx://127.0.0.1:" + port,
          "http://:" + port + "/p", "gopher://127.0.0.1:" + port, "?x"s}) {
        SCOPED_TRACE(url);
        const auto result = fetch(session, url);
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional("unsupported URL"s));
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

}  // namespace

}  // namespace orvane::test
