// What comes back, and what is made of an exchange that breaks off.
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::test {

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Optional;
using namespace std::string_literals;

constexpr const char* connectionLost = "The network connection was lost.";
constexpr const char* noStatusLine = "the response does not start with a valid HTTP status line";

// "decoded" and a thousand times "x", compressed.
const std::string gzipOfDecoded =
    "\x1F\x8B\x08\x00\x00\x00\x00\x00\x02\xFF\x4B\x49\x4D\xCE\x4F\x49\x4D\x01\x00\xF6\x9A\xF0\x1A"
    "\x07"
    "\x00\x00\x00"s;
const std::string gzipOfManyX =
    "\x1F\x8B\x08\x00\x00\x00\x00\x00\x02\x03\xAB\xA8\x18\x05\xA3\x60\x14\x0C\x77\x00\x00\xE6\xC9"
    "\x41"
    "\x3B\xE8\x03\x00\x00"s;

class HttpResponseTest : public HttpTest {
  protected:
    HttpResult after(Step step) {
        server.on("/p", {std::move(step)});
        return fetch(session, server.url() + "/p");
    }
    HttpResult afterBytes(std::string bytes) { return after(sendAndClose(std::move(bytes))); }

    ScriptedServer server;
    HttpSession session{limits};
};

void expectResponse(const HttpResult& result, std::int64_t status, const std::string& body) {
    EXPECT_FALSE(result.error()) << *result.error();
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response()->status, status);
    EXPECT_THAT(result.response()->body, Optional(body));
}

void expectNoResponse(const HttpResult& result, const std::string& error) {
    EXPECT_FALSE(result.response()) << result.response()->status;
    EXPECT_THAT(result.error(), Optional(error));
}

/// A response that broke off after its header.
void expectBrokenOff(const HttpResult& result, std::int64_t status, const std::string& error) {
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response()->status, status);
    EXPECT_EQ(result.response()->body, std::nullopt);
    EXPECT_THAT(result.error(), Optional(error));
}

// --- Whole responses

TEST_F(HttpResponseTest, HeaderLinesAreHandedOnAsTheyArrive) {
    server.on("/p", {sendAndClose("HTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\n"
                                  "HTTP/1.1 200 OK\r\nCache-Control: no-store\r\n\r\nbody")});
    HttpRequest request = requestFor(server.url() + "/p");
    std::string lines;
    request.onHeaderLine = [&lines](std::string_view line) noexcept { lines += line; };
    expectResponse(fetch(session, std::move(request)), 200, "body");
    EXPECT_EQ(lines,
              "HTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\n"
              "HTTP/1.1 200 OK\r\nCache-Control: no-store\r\n\r\n");
}

TEST_F(HttpResponseTest, EveryFinalStatusIsAResponse) {
    for (const int status :
         {200, 201, 204, 206, 299, 300, 304, 400, 401, 403, 404, 407, 429, 500, 503, 599, 999}) {
        SCOPED_TRACE(status);
        const bool hasBody = status != 204 && status != 304;
        expectResponse(after(answer(status, hasBody ? "body" : "")), status, hasBody ? "body" : "");
    }
}

TEST_F(HttpResponseTest, ARedirectIsFinal) {
    ScriptedServer other;
    for (const int status : {301, 302, 303, 307, 308}) {
        expectResponse(after(answer(status, "moved", {{"Location", other.url() + "/p"}})), status,
                       "moved");
        expectResponse(after(answer(status, "moved", {{"Location", "/p"}})), status, "moved");
    }
    EXPECT_EQ(other.connectionCount(), 0U);
    EXPECT_EQ(server.requests().size(), 10U);
}

TEST_F(HttpResponseTest, TheBodyArrivesByteForByte) {
    std::string body;
    for (int i = 0; i < 4096; ++i) {
        body += static_cast<char>(i);
    }
    expectResponse(after(answer(200, body)), 200, body);
}

TEST_F(HttpResponseTest, AnEmptyBodyIsPresentAndEmpty) {
    expectResponse(after(answer(200)), 200, "");
}

TEST_F(HttpResponseTest, AChunkedBodyIsPutTogether) {
    expectResponse(afterBytes("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                              "3\r\nabc\r\n1;x=y\r\nd\r\n0\r\nTrailer: t\r\n\r\n"),
                   200, "abcd");
}

TEST_F(HttpResponseTest, ABodyWithoutALengthEndsWithTheConnection) {
    expectResponse(afterBytes("HTTP/1.0 200 OK\r\n\r\nuntil the end"), 200, "until the end");
}

TEST_F(HttpResponseTest, BareLineFeedsEndHeaderLinesToo) {
    expectResponse(afterBytes("HTTP/1.1 200 OK\nContent-Length: 4\n\nbody"), 200, "body");
}

TEST_F(HttpResponseTest, AStatusLineWithoutAReasonIsFine) {
    expectResponse(afterBytes("HTTP/1.1 200\r\nContent-Length: 4\r\n\r\nbody"), 200, "body");
}

TEST_F(HttpResponseTest, ACompressedBodyArrivesDecoded) {
    expectResponse(after(answer(200, gzipOfDecoded, {{"Content-Encoding", "gzip"}})), 200,
                   "decoded");
    expectResponse(after(answer(200, gzipOfManyX, {{"Content-Encoding", "gzip"}})), 200,
                   std::string(1000, 'x'));
}

TEST_F(HttpResponseTest, InterimResponsesAreNotTheResponse) {
    expectResponse(afterBytes("HTTP/1.1 100 Continue\r\n\r\n"
                              "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n"
                              "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody"),
                   200, "body");
}

TEST_F(HttpResponseTest, ALargeBodyIsComplete) {
    std::string body;
    for (int i = 0; i < 500'000; ++i) {
        body += std::to_string(i);
    }
    const auto result = after(answer(200, body));
    ASSERT_TRUE(result.response());
    EXPECT_TRUE(result.response()->body == body);
}

TEST_F(HttpResponseTest, WhatFollowsTheBodyIsNotPartOfIt) {
    expectResponse(afterBytes("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody and more"), 200,
                   "body");
}

TEST_F(HttpResponseTest, ARepeatedHeaderDoesNotMatter) {
    expectResponse(after(answer(200, "body", {{"X", "1"}, {"X", "2"}, {"Etag", "\"e\""}})), 200,
                   "body");
}

// --- Broken ones

TEST_F(HttpResponseTest, AConnectionClosedWithoutAResponseIsLost) {
    expectNoResponse(after(closeAtOnce()), connectionLost);
}

TEST_F(HttpResponseTest, AResetConnectionIsLost) {
    expectNoResponse(after(resetAtOnce()), connectionLost);
}

TEST_F(HttpResponseTest, AConnectionClosedWithinTheHeaderIsLost) {
    for (const char* bytes :
         {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 304 Not Modified\r\n", "HTTP/1.1 200 OK\r\nContent-Le",
          "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", "HTTP/1.1 200 OK\r\nX: y\r\n\r"}) {
        SCOPED_TRACE(bytes);
        expectNoResponse(afterBytes(bytes), connectionLost);
    }
}

TEST_F(HttpResponseTest, AConnectionClosedWithinTheStatusLineIsAnError) {
    for (const char* bytes : {"H", "HTTP/1.1", "HTTP/1.1 200"}) {
        SCOPED_TRACE(bytes);
        const auto result = afterBytes(bytes);
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
    }
}

TEST_F(HttpResponseTest, AnInterimResponseAloneIsNone) {
    for (const char* bytes :
         {"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 103 Early Hints\r\nX: y\r\n\r\n"}) {
        SCOPED_TRACE(bytes);
        const auto result = afterBytes(bytes);
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
    }
}

TEST_F(HttpResponseTest, AConnectionClosedWithinTheBodyKeepsTheStatusOnly) {
    for (const char* bytes :
         {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n",
          "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nab",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"}) {
        SCOPED_TRACE(bytes);
        expectBrokenOff(afterBytes(bytes), 200, connectionLost);
    }
}

TEST_F(HttpResponseTest, AConnectionResetWithinTheBodyKeepsTheStatusOnly) {
    const auto result = after([this](Connection& connection, const ReceivedRequest&) {
        (void)connection.send("HTTP/1.1 503 X\r\nContent-Length: 10\r\n\r\nhalf");
        letWorkerTakeIn(session);  // a reset may overtake what was sent
        connection.reset();
        return false;
    });
    expectBrokenOff(result, 503, connectionLost);
}

TEST_F(HttpResponseTest, AMalformedChunkKeepsTheStatusOnly) {
    const auto result =
        afterBytes("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n0\r\n\r\n");
    ASSERT_TRUE(result.response());
    EXPECT_EQ(result.response()->status, 200);
    EXPECT_EQ(result.response()->body, std::nullopt);
    EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
}

TEST_F(HttpResponseTest, ABodyThatCannotBeDecodedKeepsTheStatusOnly) {
    for (const char* encoding : {"gzip", "deflate", "nonsense"}) {
        SCOPED_TRACE(encoding);
        const auto result =
            after(answer(200, "this is not compressed", {{"Content-Encoding", encoding}}));
        ASSERT_TRUE(result.response());
        EXPECT_EQ(result.response()->status, 200);
        EXPECT_EQ(result.response()->body, std::nullopt);
        EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
    }
}

TEST_F(HttpResponseTest, WhatIsNotHttpIsAnErrorWithoutResponse) {
    for (const std::string& bytes :
         {"hello\r\n\r\n"s, "\0\x01\x02"s, "HTTP/9.9 200 OK\r\n\r\n"s, "SSH-2.0-x\r\n"s,
          "\r\n\r\n"s, "HTTP/1.1 abc OK\r\n\r\n"s, "{\"etag\":\"x\"}"s}) {
        SCOPED_TRACE(bytes);
        expectNoResponse(afterBytes(bytes), noStatusLine);
    }
}

TEST_F(HttpResponseTest, AStatusOfOtherThanThreeDigitsIsAnErrorWithoutResponse) {
    for (const char* version : {"HTTP/1.0 ", "HTTP/1.1 ", "HTTP/2 "}) {
        for (const char* status :
             {"2000", "2000 OK", "200401 OK", "1000 OK", "0200 OK", "20 OK", "2 OK", "200x OK",
              "20x OK", "200,OK", "-200 OK", "+200 OK", "-20 OK", "0x200 OK", "OK", "", "  "}) {
            const std::string line = std::string(version) + status;
            SCOPED_TRACE(line);
            expectNoResponse(afterBytes(line + "\r\nContent-Length: 4\r\n\r\nbody"), noStatusLine);
            expectNoResponse(afterBytes("HTTP/1.1 103 Early Hints\r\n\r\n" + line + "\r\n\r\n"),
                             noStatusLine);
        }
    }
}

TEST_F(HttpResponseTest, AHugeHeaderLineIsAnErrorWithoutResponse) {
    const auto result =
        afterBytes("HTTP/1.1 200 OK\r\nX: " + std::string(std::size_t{1} * 1024 * 1024, 'x') +
                   "\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(Not(IsEmpty())));
}

TEST_F(HttpResponseTest, OtherErrorsHaveTheLibrarysText) {
    const auto result = afterBytes("HTTP/1.1 200 OK\r\nno header\r\n\r\n");
    EXPECT_THAT(result.error(), Optional(HasSubstr("without colon")));
}

// --- No connection

TEST_F(HttpResponseTest, AClosedPortRefuses) {
    std::uint16_t port = 0;
    {
        const ScriptedServer gone;
        port = gone.port();
    }
    expectNoResponse(fetch(session, "http://127.0.0.1:" + std::to_string(port) + "/p"),
                     "Could not connect to the server.");
}

TEST_F(HttpResponseTest, AnUnknownHostIsNotFound) {
    expectNoResponse(fetch(session, "http://nonexistent.invalid/p"),
                     "A server with the specified hostname could not be found.");
}

}  // namespace

}  // namespace orvane::test
