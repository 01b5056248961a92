// A server that breaks the rules of HTTP/2 (RFC 9113), on every endpoint.
#include "hostile/hostile_cycle.h"
#include "platform/http/semaphore.h"
#include "platform/http_exchange.h"
#include "platform/machine/paths.h"
#include "support/h2_frames.h"
#include "support/http_library.h"
#include "support/http_session_internals.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

using namespace std::string_literals;

TlsIdentity identity(bool choosesHttp2) {
    static const TestCa authority;
    static const TlsIdentity one = [] {
        authority.trustIn(paths::certificateDirectory());
        return authority.issueForLoopback();
    }();
    return {one.certificate, one.privateKey, 0, choosesHttp2};
}

class HostileHttp2Test : public HostileCycleTest {
  protected:
    HostileHttp2Test() { server = std::make_unique<ScriptedServer>(identity(false)); }
};

TEST_P(HostileHttp2Test, IsEndured) {
    expectEndured(GetParam());
}

// --- Frames

using Type = FrameType;

// The daemon's request is always on stream 1. The header fields are from the static table of HPACK
// (RFC 7541, appendix A).
constexpr std::uint32_t ours = 1;
const std::string status200 = "\x88";
const std::string settings = frame(Type::settings, 0, 0, "");
const std::string okHeader = frame(Type::headers, endHeaders, ours, status200);
const std::string halfABody = frame(Type::data, 0, ours, "{\"etag\":");

std::string headerField(const std::string& name, const std::string& value) {
    return '\0' + bigEndian(static_cast<std::uint32_t>(name.size()), 1) + name +
           bigEndian(static_cast<std::uint32_t>(value.size()), 1) + value;
}

std::string reset(std::uint32_t code) {
    return frame(Type::resetStream, 0, ours, bigEndian(code, 4));
}

/// Has the server choose HTTP/2 and do `step` when the request has come; `step` may be needed again
/// when the daemon's library repeats the request.
ServerFault onStream(std::string name, ExpectedResult expected, StepFor step) {
    return {std::move(name), std::move(expected),
            [step = std::move(step)](const FaultContext& context) {
                const Step whenAsked = [act = step(context)](Connection& connection,
                                                             const ReceivedRequest& request) {
                    return connection.send(settings) &&
                           H2Requests(connection, request.raw).await() && act(connection, request);
                };
                context.server.on("*", std::vector<Step>(8, whenAsked));
                context.server.show(identity(true));
            },
            [](const FaultContext& context) { context.server.show(identity(false)); }};
}

ServerFault says(std::string name, ExpectedResult expected, std::string frames) {
    return onStream(
        std::move(name), std::move(expected),
        [frames = std::move(frames)](const FaultContext&) { return sendAndStall(frames); });
}

ServerFault floodsWith(std::string name, ExpectedResult expected, const std::string& head,
                       const std::string& part) {
    return onStream(std::move(name), std::move(expected),
                    [=](const FaultContext&) { return flood(head, repeated(part, 1000)); });
}

/// The same after a header that the library has handed out.
ServerFault floodsAfterAHeaderWith(std::string name, ExpectedResult expected,
                                   const std::string& part) {
    return onStream(std::move(name), std::move(expected), [=](const FaultContext& context) {
        return [=, &session = context.session](Connection& connection,
                                               const ReceivedRequest& request) {
            (void)connection.send(okHeader);
            letWorkerTakeIn(session);
            return flood("", repeated(part, 1000))(connection, request);
        };
    });
}

ServerFault stalls(std::string name, ExpectedResult expected, const std::string& frames) {
    return onStream(std::move(name), std::move(expected), stall(frames));
}

// --- Resets and ends

const std::vector<ServerFault> streamResets{
    says("ResetWithNoError", failed(), reset(0)),
    says("ResetWithAProtocolError", failed(), reset(1)),
    says("ResetWithAnInternalError", failed(), reset(2)),
    says("ResetAsRefused", failed(), reset(7)),
    says("ResetAsCancelled", failed(), reset(8)),
    says("ResetToCalmDown", failed(), reset(11)),
    says("ResetWithACodeNobodyKnows", failed(), reset(0xFFFFFFFF)),
    says("ResetAfterTheHeader", failed(200), okHeader + reset(2)),
    says("ResetWithinTheBody", failed(200), okHeader + halfABody + reset(8)),
    says("GoAwayWithoutTheRequest", failed(), goAwayFrame(0, 0)),
    says("GoAwayWithAnError", failed(), goAwayFrame(0, 2)),
    onStream("CloseAfterTheRequest", failed(), [](const FaultContext&) { return closeAtOnce(); }),
    onStream("CloseAfterTheHeader", failed(200),
             [](const FaultContext&) { return sendAndClose(okHeader); }),
    onStream("CloseWithinTheBody", failed(200),
             [](const FaultContext&) { return sendAndClose(okHeader + halfABody); }),
    says("AnEndThatComesBeforeTheLength", failed(200),
         frame(Type::headers, endHeaders, ours, status200 + headerField("content-length", "20")) +
             frame(Type::data, endStream, ours, "{}")),
};
INSTANTIATE_TEST_SUITE_P(Resets, HostileHttp2Test, onEveryEndpoint(streamResets), nameOf);

// --- Floods

const std::string hugeHeader = [] {
    // One field of 4,000 bytes goes into the table, then it is used again and again.
    std::string block = status200 + "\x40\x01x\x7F\xA1\x1E"s + std::string(4000, 'x');
    return block + std::string(16000 - block.size(), '\xBE');
}();

const std::vector<ServerFault> floodsOfFrames{
    floodsWith("SettingsFlood", failed(), "", settings),
    floodsWith("PingFlood", failed(), "", frame(Type::ping, 0, 0, "12345678")),
    floodsWith("WindowFlood", failed(), "", frame(Type::windowUpdate, 0, 0, bigEndian(1000, 4))),
    floodsWith("ContinuationFlood", failed(), frame(Type::headers, 0, ours, status200),
               frame(Type::continuation, 0, ours, headerField("x", "y"))),
    floodsWith("FloodOfEmptyContinuations", failed(), frame(Type::headers, 0, ours, status200),
               frame(Type::continuation, 0, ours, "")),
    floodsWith("InterimFlood", failed(), "",
               frame(Type::headers, endHeaders, ours,
                     "\x08\x03"
                     "103"s)),
    says("AHeaderThatUnpacksToMegabytes", failed(),
         frame(Type::headers, endHeaders, ours, hugeHeader)),
};
INSTANTIATE_TEST_SUITE_P(Floods, HostileHttp2Test, onEveryEndpoint(floodsOfFrames), nameOf);

// The library reads on for as long as frames come that it skips, and does not look at the clock.
const std::vector<ServerFault> floodsOfNothing{
    floodsWith("Priorities", http_library::endsOddFloods() ? failed() : timedOut(), "",
               frame(Type::priority, 0, ours, bigEndian(3, 4) + "\x10")),
    floodsWith("UnknownFrames", http_library::endsOddFloods() ? failed() : timedOut(), "",
               frame(Type::unknown, 0, 0, "what?")),
    floodsAfterAHeaderWith("EmptyData", http_library::endsOddFloods() ? failed(200) : timedOut(200),
                           frame(Type::data, 0, ours, "")),
    floodsWith("ResetsOfAStreamThatIsOver", failed(), reset(0), reset(0)),
};
// Nobody waits for an identity lookup for so long.
INSTANTIATE_TEST_SUITE_P(FloodsOfNothing, HostileHttp2Test,
                         combine(floodsOfNothing, {Endpoint::poll, Endpoint::effective}), nameOf);

/// In real time, for the lookup's caller waits on the real clock.
class NightlyHostileHttp2Test : public HostileHttp2Test {};

TEST_F(NightlyHostileHttp2Test, AnAbandonedIdentityLookupEndsTheFlood) {
    constexpr auto never = std::numeric_limits<std::size_t>::max();
    const std::string frames = repeated(frame(Type::unknown, 0, 0, "what?"), 1000);
    const ServerFault fault =
        onStream("Flood", failed(), [&](const FaultContext&) { return flood("", frames, never); });
    expectEndured({&fault, Endpoint::identity});
    // After 12 s the session gives up, if the flood lets it; its caller does after 15 s.
    EXPECT_GE(cycleTime, std::chrono::milliseconds(11900));
    EXPECT_LT(cycleTime, std::chrono::seconds(25));
}

class FloodedSessionTest : public HttpTest {};

// As identity lookups do, whose caller gives up before the session does.
TEST_F(FloodedSessionTest, ItIsFreeForTheNextRequestWhenTheFloodIsCutOff) {
    HttpSession session({std::chrono::hours(24), std::chrono::hours(24)});
    ScriptedServer good;
    good.on("/p", {answer(200, "body")});
    ScriptedServer flooding(identity(true));
    Semaphore over(0);
    const std::string frames = repeated(frame(Type::unknown, 0, 0, "what?"), 1000);
    flooding.on("*", {[&](Connection& connection, const ReceivedRequest& request) {
                    bool going =
                        connection.send(settings) && H2Requests(connection, request.raw).await();
                    while (going) {
                        going = connection.send(frames);
                    }
                    over.signal();
                    return false;
                }});
    const Exchange lost(session, requestFor(flooding.url() + "/p"));
    ASSERT_TRUE(flooding.waitForRequests(1));
    // It holds the session's thread as soon as it is dense enough.
    while (!over.waitFor(std::chrono::milliseconds(1))) {
        virtual_clock::advance(HttpSessionInternals::grace);
        HttpSessionInternals::endFlood(session);
    }
    EXPECT_EQ(fetch(session, good.url() + "/p").response().value().status, 200);
}

// --- Frames that must not be

const std::vector<ServerFault> nonsense{
    says("Http1InsteadOfFrames", failed(), "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
    says("Noise", failed(), repeated("\xDE\xAD\xBE\xEF", 1000)),
    says("AFrameLargerThanAgreed", failed(), frame(Type::unknown, 0, 0, std::string(20'000, 'x'))),
    says("DataOnNoStream", failed(), frame(Type::data, 0, 0, "{}")),
    says("DataOnAStreamNobodyOpened", failed(), frame(Type::data, 0, 3, "{}")),
    says("DataBeforeTheHeader", failed(), halfABody),
    says("AHeaderOnAStreamNobodyOpened", failed(), frame(Type::headers, endHeaders, 3, status200)),
    stalls("APushNobodyWants", failed(),
           frame(Type::pushPromise, endHeaders, ours, bigEndian(2, 4) + status200)),
    says("AHeaderWithoutStatus", failed(),
         frame(Type::headers, endHeaders | endStream, ours, headerField("x", "y"))),
    says("AHeaderThatDoesNotUnpack", failed(),
         frame(Type::headers, endHeaders, ours, "\xFF\xFF\xFF\xFF\xFF\xFF")),
    says("ASettingOfThreeBytes", failed(), frame(Type::settings, 0, 0, "abc")),
    says("AWindowThatOverflows", failed(),
         frame(Type::windowUpdate, 0, 0, bigEndian(0x7FFFFFFF, 4))),
};
INSTANTIATE_TEST_SUITE_P(Nonsense, HostileHttp2Test, onEveryEndpoint(nonsense), nameOf);

// --- Silence

const std::vector<ServerFault> silences{
    stalls("StallAfterTheRequest", timedOut(), ""),
    stalls("StallWithinAFrame", timedOut(), okHeader.substr(0, 5)),
    stalls("StallAfterTheHeader", failed(200), okHeader),
    stalls("StallWithinTheBody", failed(200), okHeader + halfABody),
};
INSTANTIATE_TEST_SUITE_P(Silence, HostileHttp2Test, onEveryEndpoint(silences), nameOf);

}  // namespace
}  // namespace orvane::test
