// A server that takes its time, on every endpoint: what the daemon bears, and that it bears no
// more.
#include "hostile/hostile_cycle.h"
#include "platform/http_exchange.h"
#include "support/test_files.h"
#include "support/virtual_clock.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::test {
namespace {

using namespace std::chrono_literals;

// --- Silence

class HostileSilenceTest : public HostileCycleTest {};

TEST_P(HostileSilenceTest, IsToleratedUpToTheLimit) {
    expectEndured(GetParam());
    EXPECT_GE(cycleTime, contextAt(std::get<Endpoint>(GetParam())).silence);
    EXPECT_LT(cycleTime, totalLimit);
}

/// Never reads: what the daemon sends stays in the system's buffers.
Step neverRead() {
    return [](Connection& connection, const ReceivedRequest&) {
        while (connection.pause(1h)) {
        }
        return false;
    };
}

/// Whether one of this process's sockets is being connected.
bool isConnecting() {
    const std::vector<int> descriptors = openDescriptors();
    return std::any_of(descriptors.begin(), descriptors.end(), [](int descriptor) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const bool hasPort =
            ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.sin_family == AF_INET && address.sin_port != 0;
        int listens = 0;
        size = sizeof listens;
        const bool isClient =
            hasPort && ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 &&
            listens == 0;
        size = sizeof address;
        return isClient &&
               ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 &&
               errno == ENOTCONN;
    });
}

/// How long connecting may take at most.
constexpr std::chrono::seconds connectLimit = 30s;

/// Lets a little more time pass than the daemon bears, from when it has begun to connect.
class WhileConnecting {
  public:
    explicit WhileConnecting(const FaultContext& context)
        : passing_(
              [this, &session = context.session, limit = std::min(context.silence, connectLimit)] {
                  while (!over_ && !isConnecting()) {
                      std::this_thread::sleep_for(1ms);
                  }
                  virtual_clock::advance(limit - 5s);
                  letWorkerIterate(session);
                  virtual_clock::advance(6s);
              }) {}
    WhileConnecting(const WhileConnecting&) = delete;
    WhileConnecting& operator=(const WhileConnecting&) = delete;
    ~WhileConnecting() {
        over_ = true;
        passing_.join();
    }

  private:
    std::atomic<bool> over_ = false;
    std::thread passing_;
};

/// A server whose system answers no packet any more, as behind a firewall that drops them.
ServerFault dropsPackets() {
    const auto time = std::make_shared<std::unique_ptr<WhileConnecting>>();
    return {"DropsPackets", timedOut(),
            [time](const FaultContext& context) {
                context.server.startDroppingPackets();
                *time = std::make_unique<WhileConnecting>(context);
            },
            [time](const FaultContext& context) {
                time->reset();
                context.server.stopDroppingPackets();
            }};
}

/// Sends `head`, then `part` every second until the daemon's time is over.
StepFor drip(std::string head, std::string part) {
    return [=](const FaultContext& context) {
        return [=, &session = context.session](Connection& connection,
                                               const ReceivedRequest& request) {
            bool going = connection.send(head);
            for (auto passed = 0s; going && passed < totalLimit - 5s; passed += 1s) {
                virtual_clock::advance(1s);
                going = connection.send(part);
                letWorkerIterate(session);
            }
            virtual_clock::advance(6s);
            return staySilent()(connection, request);
        };
    };
}

const std::vector<ServerFault> longSilences{
    onRequest("NeverAnswers", timedOut(), stall()),
    onConnect("NeverReads", timedOut(), stall("", neverRead())),
    onRequest("StallsWithinTheStatusLine", timedOut(), stall("HTTP/1.1 2")),
    onRequest("StallsWithinTheHeader", timedOut(), stall("HTTP/1.1 200 OK\r\nContent-Le")),
    onRequest("StallsAfterAnInterimAnswer", timedOut(), stall("HTTP/1.1 100 Continue\r\n\r\n")),
    onRequest("StallsAfterTheHeader", timedOut(200),
              stall("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n")),
    onRequest("StallsWithinTheBody", timedOut(200),
              stall("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{\"etag\":")),
    onRequest("StallsWithinAChunk", timedOut(200),
              stall("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{")),
    // A header line counts when it is complete.
    onRequest("DripsAHeaderLine", timedOut(), drip("HTTP/1.1 200 OK\r\nX: ", "x")),
    onRequest("KeepsABodyWithoutLengthOpen", timedOut(200),
              stall("HTTP/1.1 200 OK\r\n\r\n{\"etag\":\"x\"}")),
};
INSTANTIATE_TEST_SUITE_P(, HostileSilenceTest, onEveryEndpoint(longSilences), nameOf);

class HostileConnectTest : public HostileCycleTest {};

TEST_P(HostileConnectTest, IsToleratedForHalfAMinuteAtMost) {
    expectEndured(GetParam());
    EXPECT_GE(cycleTime, std::min(contextAt(std::get<Endpoint>(GetParam())).silence, connectLimit));
    EXPECT_LT(cycleTime, 60s);
}

const std::vector<ServerFault> droppers{dropsPackets()};
INSTANTIATE_TEST_SUITE_P(, HostileConnectTest, onEveryEndpoint(droppers), nameOf);

// --- One byte after another, endlessly

class HostileTrickleTest : public HostileCycleTest {};

TEST_P(HostileTrickleTest, IsToleratedUpToTheTotalLimit) {
    expectEndured(GetParam());
    EXPECT_GE(cycleTime, totalLimit);
    EXPECT_LT(cycleTime, totalLimit + 60s);
}

const std::vector<ServerFault> trickles{
    onRequest("HeaderLines", timedOut(), drip("HTTP/1.1 200 OK\r\n", "X: y\r\n")),
    onRequest("InterimAnswers", timedOut(), drip("", "HTTP/1.1 100 Continue\r\n\r\n")),
    onRequest("Body", timedOut(200),
              drip("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n", " ")),
    onRequest("BodyWithoutLength", timedOut(200), drip("HTTP/1.1 200 OK\r\n\r\n", " ")),
    onRequest("Chunks", timedOut(200),
              drip("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "1\r\n \r\n")),
};
INSTANTIATE_TEST_SUITE_P(, HostileTrickleTest, onEveryEndpoint(trickles), nameOf);

/// In real time, for the lookup's caller waits on the real clock.
class NightlyHostileTrickleTest : public HostileCycleTest {};

TEST_F(NightlyHostileTrickleTest, AnIdentityLookupTimesOutAfterFifteenSeconds) {
    const Step oneBytePerSecond =
        trickle("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", ' ', 1s);
    const ServerFault fault = onRequest("Trickle", timedOut(200), oneBytePerSecond);
    expectEndured({&fault, Endpoint::identity});
    EXPECT_GE(cycleTime, 14900ms);
    EXPECT_LT(cycleTime, 25s);
}

// --- More than fits

/// A gzip stream of `size` zero bytes or a few more, in less than a hundredth of that.
std::string gzipBomb(std::size_t size) {
    std::string bytes("\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\x03", 10);
    unsigned pending = 0;
    int count = 0;
    const auto put = [&](std::string_view bits) {
        for (const char bit : bits) {
            pending |= static_cast<unsigned>(bit - '0') << static_cast<unsigned>(count);
            if (++count == 8) {
                bytes += static_cast<char>(pending);
                pending = 0;
                count = 0;
            }
        }
    };
    put("110");       // one block with the fixed codes (RFC 1951, 3.2.6):
    put("00110000");  // a zero byte,
    constexpr std::size_t longest = 258;
    for (std::size_t made = 1; made < size; made += longest) {
        put("1100010100000");  // and 258 times the byte before
    }
    put("00000000000000");  // the end of the block
    return bytes;
}

const ExpectedResult tooLarge{200, 0, "the response is larger than 104857600 bytes"};

class HostileSizeTest : public HostileCycleTest {};

TEST_P(HostileSizeTest, IsEndured) {
    expectEndured(GetParam());
}

/// A response that unpacks to `size` zero bytes or a few more.
StepFor answerGzipBomb(std::size_t size) {
    return [size](const FaultContext&) {
        return answer(200, gzipBomb(size), {{"Content-Encoding", "gzip"}});
    };
}

const std::vector<ServerFault> sizes{
    onRequest("AGzipBombThatFits", answered(200, 1 + 258 * 4000), answerGzipBomb(258 * 4000))};
INSTANTIATE_TEST_SUITE_P(, HostileSizeTest, onEveryEndpoint(sizes), nameOf);

class HostileOversizeTest : public HostileCycleTest {};

TEST_P(HostileOversizeTest, IsEndured) {
    ORVANE_SKIP_UNDER_SANITIZERS("a body of 100 MiB takes minutes");
    expectEndured(GetParam());
}

const std::vector<ServerFault> oversizes{
    onRequest("ABody", tooLarge, zeros(HttpSession::bodyLimit + 1)),
    onRequest("AGzipBomb", tooLarge, answerGzipBomb(HttpSession::bodyLimit + 1))};
INSTANTIATE_TEST_SUITE_P(, HostileOversizeTest, onEveryEndpoint(oversizes), nameOf);

}  // namespace
}  // namespace orvane::test
