// A server that breaks the rules of HTTP, on every endpoint.
#include "hostile/hostile_cycle.h"
#include "platform/http_exchange.h"
#include "support/http_library.h"
#include "support/virtual_clock.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

using namespace std::string_literals;

class HostileServerTest : public HostileCycleTest {};

TEST_P(HostileServerTest, IsEndured) {
    expectEndured(GetParam());
}

TEST_F(HostileServerTest, AConnectionThatDiesInReuseCostsOneMoreRequestAndNotMore) {
    server->on(pollPath, {answer(200, "{}"), answer(500)});
    server->on(effectivePath, {closeAtOnce(), closeAtOnce(), closeAtOnce()});
    const Profile profile{"p", server->url(), "key-1", {}, {}};
    runner.pollOnce(profile);
    EXPECT_EQ(server->requestsTo(effectivePath).size(), 2U);
    EXPECT_EQ(activity().size(), 2U);
    EXPECT_EQ(activity().back()["status"], 0);
    runner.pollOnce(profile);
    EXPECT_EQ(activity().back()["status"], 500);
}

constexpr const char* okWithLength10 = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n";
constexpr const char* okChunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

ServerFault sends(std::string name, ExpectedResult expected, std::string bytes) {
    return onRequest(std::move(name), std::move(expected), sendAndClose(std::move(bytes)));
}

/// Sends `bytes`, then resets the connection.
ServerFault resets(std::string name, ExpectedResult expected, const std::string& bytes) {
    return onRequest(std::move(name), std::move(expected), [=](const FaultContext& context) {
        return [=, &session = context.session](Connection& connection, const ReceivedRequest&) {
            (void)connection.send(bytes);
            letWorkerTakeIn(session);  // a reset may overtake what was sent
            connection.reset();
            return false;
        };
    });
}

StepFor always(Step step) {
    return [step = std::move(step)](const FaultContext&) { return step; };
}

// --- The connection ends too soon

const std::vector<ServerFault> endings{
    onConnect("ClosesAtConnect", lost(), always(closeAtOnce())),
    onConnect("ResetsAtConnect", failed(), always(resetAtOnce())),
    onConnect("ClosesWithinTheRequest", lost(), always([](Connection& connection, const auto&) {
                  (void)connection.receive(10);
                  return false;
              })),
    onRequest("ClosesAfterTheRequest", lost(), closeAtOnce()),
    sends("ClosesWithinTheStatusLine", failed(), "HTTP/1.1 2"),
    sends("ClosesAfterTheStatusLine", lost(), "HTTP/1.1 200 OK\r\n"),
    sends("ClosesWithinTheHeader", lost(), "HTTP/1.1 200 OK\r\nContent-Le"),
    sends("ClosesBeforeTheEndOfTheHeader", lost(), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"),
    sends("ClosesAfterAnInterimAnswer", failed(), "HTTP/1.1 100 Continue\r\n\r\n"),
    sends("ClosesAfterTheHeader", lost(200), okWithLength10),
    sends("ClosesWithinTheBody", lost(200), okWithLength10 + "{\"etag\":"s),
    sends("ClosesWithinAChunksSize", lost(200), okChunked + "1"s),
    sends("ClosesWithinAChunk", lost(200), okChunked + "5\r\n{}"s),
    sends("ClosesAfterAChunk", lost(200), okChunked + "2\r\n{}\r\n"s),
    sends("ClosesWithinTheLastChunk", lost(200), okChunked + "2\r\n{}\r\n0"s),
    sends("ClosesWithinTheTrailer", lost(200), okChunked + "2\r\n{}\r\n0\r\nX: y\r\n"s),
    resets("ResetsAfterTheRequest", lost(), ""),
    resets("ResetsWithinTheHeader", lost(), "HTTP/1.1 200 OK\r\nX: "),
    resets("ResetsAfterTheHeader", lost(200), okWithLength10),
    resets("ResetsWithinTheBody", lost(200), okWithLength10 + "{\"etag\":"s),
    resets("ResetsABodyWithoutLength", lost(200), "HTTP/1.1 200 OK\r\n\r\n{\"etag\":\"half\"}"),
};
INSTANTIATE_TEST_SUITE_P(Endings, HostileServerTest, onEveryEndpoint(endings), nameOf);

// --- What is said makes no sense

/// The same noise in every run.
std::string noise(std::size_t size) {
    std::string bytes;
    for (std::uint32_t state = 1; bytes.size() < size;) {
        state = state * 1664525U + 1013904223U;
        bytes += static_cast<char>(state >> 24U);
    }
    return bytes;
}

ExpectedResult notHttp() {
    return {0, 0, "the response does not start with a valid HTTP status line"};
}

const std::vector<ServerFault> garbage{
    sends("Noise", notHttp(), noise(100'000)),
    sends("NothingButNuls", notHttp(), std::string(100'000, '\0')),
    sends("NothingButLineEnds", notHttp(), std::string(1000, '\n')),
    sends("AnotherProtocol", notHttp(), "SSH-2.0-OpenSSH_9.2p1\r\n"),
    sends("TlsInstead", notHttp(), "\x16\x03\x03\x00\x7a\x02\x00\x00\x76\x03\x03"s + noise(100)),
    sends("Http2Instead", notHttp(), "\x00\x00\x00\x04\x00\x00\x00\x00\x00"s),
    sends("Http09", notHttp(), R"({"etag":"evil"})"),
    sends("HttpOfTheFuture", notHttp(), "HTTP/9.9 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
    sends("AStatusThatIsNoNumber", notHttp(), "HTTP/1.1 abc OK\r\nContent-Length: 2\r\n\r\n{}"),
    sends("AStatusOfFourDigits", notHttp(), "HTTP/1.1 2000 OK\r\nContent-Length: 2\r\n\r\n{}"),
    sends("AStatusOfSixDigits", notHttp(), "HTTP/2 200401 OK\r\nContent-Length: 2\r\n\r\n{}"),
    sends("ANegativeStatus", notHttp(), "HTTP/1.1 -20 OK\r\nContent-Length: 2\r\n\r\n{}"),
    sends("AHeaderLineWithoutColon", failed(), "HTTP/1.1 200 OK\r\nnonsense\r\n\r\n{"),
    sends("ANulInTheHeader", failed(), "HTTP/1.1 200 OK\r\nX: a\0b\r\n\r\n{"s),
    sends("TheRequestSentBack", notHttp(), "GET / HTTP/1.1\r\nHost: x\r\n\r\n"),
};
INSTANTIATE_TEST_SUITE_P(Garbage, HostileServerTest, onEveryEndpoint(garbage), nameOf);

// --- Too much of everything

const std::string megabyteLine = "X: " + std::string(1'000'000, 'x') + "\r\n";
// Newer versions of libcurl take no more than 5,000 lines, and report it with a message of their
// own.
const std::string manyLines = repeated("X-Flood: " + std::string(100, 'x') + "\r\n", 1000);
const std::string manyHints =
    repeated("HTTP/1.1 103 Early Hints\r\nLink: </x>; rel=preload\r\n\r\n", 1000);
const std::string noLineEnd(65536, 'x');

ExpectedResult tooLargeAHeader(int status = 0) {
    return {status, 0, "the header of the response is larger than 262144 bytes"};
}

const std::vector<ServerFault> floods{
    onRequest("HeaderFlood", tooLargeAHeader(), flood("HTTP/1.1 200 OK\r\n", manyLines)),
    onRequest("InterimFlood", failed(), flood("", repeated("HTTP/1.1 100 Continue\r\n\r\n", 1000))),
    onRequest("InterimFloodWithHeaders", failed(), flood("", manyHints)),
    sends("AHeaderLineOfAMegabyte", failed(), "HTTP/1.1 200 OK\r\n" + megabyteLine + "\r\n"),
    sends("AStatusLineOfAMegabyte", failed(), "HTTP/1.1 200 " + megabyteLine + "\r\n"),
    onRequest("AHeaderLineWithoutEnd", failed(), flood("HTTP/1.1 200 OK\r\nX: ", noLineEnd)),
    onRequest("AChunkExtensionWithoutEnd", timedOut(200), flood(okChunked + "1;x="s, noLineEnd)),
    onRequest("TrailersWithoutEnd", tooLargeAHeader(200), flood(okChunked + "0\r\n"s, manyLines)),
};
INSTANTIATE_TEST_SUITE_P(Floods, HostileServerTest, onEveryEndpoint(floods), nameOf);

// --- Lengths that are not true

const std::vector<ServerFault> lengths{
    sends("ANegativeLength", failed(), "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n{}"),
    sends("ALengthThatIsNoNumber", failed(), "HTTP/1.1 200 OK\r\nContent-Length: two\r\n\r\n{}"),
    sends("ALengthBeyond64Bits", answered(200, 1),
          "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n["),
    sends("AHugeLength", lost(200),
          "HTTP/1.1 200 OK\r\nContent-Length: 9000000000000000000\r\n\r\n{}"),
    sends("TooLongALength", lost(200), "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n{}"),
    sends("TooShortALength", answered(200, 1), "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n{}"),
    sends("TwoLengths", http_library::refusesTwoLengths() ? failed() : lost(200),
          "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 20\r\n\r\n{}"),
    sends("NoLengthAndHalfABody", answered(200, 8), "HTTP/1.1 200 OK\r\n\r\n{\"etag\":"),
    sends("LengthAndChunks", answered(200, 3),
          "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n"
          "3\r\n{},\r\n0\r\n\r\n"),
    sends("AnUnknownTransferEncoding", failed(200),
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: nonsense\r\n\r\n{}"),
};
INSTANTIATE_TEST_SUITE_P(Lengths, HostileServerTest, onEveryEndpoint(lengths), nameOf);

const std::vector<ServerFault> chunks{
    sends("AChunkSizeThatIsNoNumber", failed(200), okChunked + "zz\r\n{}\r\n0\r\n\r\n"s),
    sends("ANegativeChunkSize", failed(200), okChunked + "-2\r\n{}\r\n0\r\n\r\n"s),
    sends("AnEmptyChunkSize", failed(200), okChunked + "\r\n{}\r\n0\r\n\r\n"s),
    sends("AChunkSizeBeyond64Bits", failed(200), okChunked + "fffffffffffffffff\r\n{}"s),
    sends("AHugeChunkSize", lost(200), okChunked + "7fffffffffffffff\r\n{}"s),
    sends("AChunkWithoutLineEnd", failed(200), okChunked + "2\r\n{}0\r\n\r\n"s),
    sends("AChunkThatIsLongerThanItSays", failed(200), okChunked + "1\r\n{}\r\n0\r\n\r\n"s),
};
INSTANTIATE_TEST_SUITE_P(Chunks, HostileServerTest, onEveryEndpoint(chunks), nameOf);

// --- Bodies that are not what was requested

const std::string portal =
    "<!DOCTYPE html><html><body>Please sign in to use this network</body></html>";

const std::vector<ServerFault> bodies{
    onRequest("ACaptivePortal", answered(200, portal.size()),
              answer(200, portal, {{"Content-Type", "text/html"}})),
    onRequest("AnEmptyBody", answered(200, 0), answer(200)),
    onRequest("JsonThatIsNoObject", answered(200, 2), answer(200, "[]")),
    onRequest("NestedBeyondAllMeasure", answered(200, 2'000'000),
              answer(200, std::string(1'000'000, '[') + std::string(1'000'000, ']'))),
    onRequest("GzipThatIsNone", failed(200), answer(200, "{}", {{"Content-Encoding", "gzip"}})),
    onRequest("AnUnknownEncoding", failed(200), answer(200, "{}", {{"Content-Encoding", "evil"}})),
    onRequest(
        "EncodedTooOften", failed(),
        answer(200, "{}", {{"Content-Encoding", "gzip, gzip, gzip, gzip, gzip, gzip, gzip"}})),
};
INSTANTIATE_TEST_SUITE_P(Bodies, HostileServerTest, onEveryEndpoint(bodies), nameOf);

}  // namespace
}  // namespace orvane::test
