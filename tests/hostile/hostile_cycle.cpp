#include "hostile/hostile_cycle.h"

#include "platform/http_exchange.h"
#include "platform/machine/clock.h"
#include "support/http_session_internals.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <sstream>
#include <utility>

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using namespace std::chrono_literals;

constexpr const char* noProfile = "default No usable profile — sleeping 30s and retrying";

// Three policies that differ in their ETags and in the number of their hosts.
constexpr const char* storedPolicy =
    R"({"etag":"stored","guard_config":{"capture":{"hosts":["a"]}}})";
constexpr const char* firstPolicy =
    R"({"etag":"first","guard_config":{"capture":{"hosts":["a","b"]}}})";
constexpr const char* goodPolicy =
    R"({"etag":"good","guard_config":{"capture":{"hosts":["a","b","c"]}}})";
constexpr const char* storedEffective = R"({"effective":"stored"})";
constexpr const char* goodEffective = R"({"effective":"good"})";

/// These tests flush thousands of files. That takes no time where files are in memory anyway.
[[maybe_unused]] const bool inMemory =
    ::access("/dev/shm", W_OK) == 0 && ::setenv("TMPDIR", "/dev/shm", 0) == 0;

/// A good answer. The connection goes with it, so that every exchange makes its own.
Step lastAnswer(const std::string& body) {
    return answer(200, body, {{"Connection", "close"}});
}

std::string captureApplied(int hosts) {
    return "default capture-policy applied from guard cascade: enabled=false hosts=" +
           std::to_string(hosts) + " suppress_ech=false";
}

std::string bytesOf(const std::string& text) {
    return " (" + std::to_string(text.size()) + " bytes)";
}

std::string etagFileOf(const std::string& etag) {
    return R"({"etag":")" + etag + R"("})";
}

/// What is stored, and that nothing else is: no file half written.
void expectStored(const std::string& policy, const std::string& etag, const std::string& effective,
                  const std::filesystem::path& directory) {
    EXPECT_EQ(readFile(directory / "policy.json"), policy);
    EXPECT_EQ(readFile(directory / "policy-etag.json"), etagFileOf(etag));
    EXPECT_EQ(readFile(directory / "guard-effective.json"), effective);
    for (const std::string& name : namesIn(directory)) {
        EXPECT_THAT(name, ::testing::AnyOf("policy.json", "policy-etag.json",
                                           "guard-effective.json", "logs"));
    }
}

}  // namespace

ExpectedResult lost(int status) {
    return {status, 0, "The network connection was lost."};
}

ExpectedResult timedOut(int status) {
    return {status, 0, "The request timed out."};
}

ExpectedResult failed(int status) {
    return {status, 0, ""};
}

ExpectedResult answered(int status, std::size_t bytes) {
    return {status, static_cast<std::int64_t>(bytes), std::nullopt};
}

std::ostream& operator<<(std::ostream& stream, Endpoint endpoint) {
    switch (endpoint) {
        case Endpoint::poll:
            return stream << "OnAPoll";
        case Endpoint::effective:
            return stream << "OnAnEffectiveFetch";
        case Endpoint::identity:
            break;
    }
    return stream << "OnAnIdentityLookup";
}

std::string nameOf(const testing::TestParamInfo<HostileCase>& info) {
    std::ostringstream name;
    name << std::get<const ServerFault*>(info.param)->name << std::get<Endpoint>(info.param);
    return name.str();
}

ServerFault onRequest(std::string name, ExpectedResult expected, StepFor step) {
    return {std::move(name), std::move(expected),
            [step = std::move(step)](const FaultContext& context) {
                context.server.on(context.path, {step(context)});
            }};
}

ServerFault onRequest(std::string name, ExpectedResult expected, Step step) {
    return onRequest(std::move(name), std::move(expected),
                     [step = std::move(step)](const FaultContext&) { return step; });
}

ServerFault onConnect(std::string name, ExpectedResult expected, StepFor step) {
    return {std::move(name), std::move(expected),
            [step = std::move(step)](const FaultContext& context) {
                context.server.onConnect(step(context));
            },
            [](const FaultContext& context) { context.server.onConnect(nullptr); }};
}

StepFor stall(std::string head, Step rest) {
    return [head = std::move(head), rest = std::move(rest)](const FaultContext& context) {
        // A silent address is left for the others while time passes, and then connected to again.
        const auto isTimePassing = std::make_shared<std::atomic<bool>>(false);
        return [head, rest, isTimePassing, &session = context.session, limit = context.silence](
                   Connection& connection, const ReceivedRequest& request) {
            (void)connection.send(head);
            if (!isTimePassing->exchange(true)) {
                letWorkerTakeIn(session);
                virtual_clock::advance(limit - 5s);
                letWorkerIterate(session);
                virtual_clock::advance(6s);
            }
            return rest(connection, request);
        };
    };
}

Step flood(std::string head, std::string bytes, std::size_t enough) {
    return [head = std::move(head), bytes = std::move(bytes), enough](Connection& connection,
                                                                      const ReceivedRequest&) {
        std::size_t sent = 0;
        for (bool going = connection.send(head); going; going = connection.send(bytes)) {
            const std::size_t before = std::exchange(sent, sent + bytes.size());
            if (before / enough != sent / enough) {
                virtual_clock::advance(totalLimit + HttpSessionInternals::grace + 1s);
            }
        }
        return false;
    };
}

std::string repeated(const std::string& part, int times) {
    std::string whole;
    for (int i = 0; i < times; ++i) {
        whole += part;
    }
    return whole;
}

std::vector<std::string> pollLines(const ExpectedResult& expected) {
    if (expected.error) {
        return {"error Poll error: " + *expected.error, "error Unexpected HTTP 0"};
    }
    switch (expected.status) {
        case 200:
            return {expected.bytes == 0 ? "error 200 with no body — skipping write"
                                        : "error Couldn't parse policy JSON — skipping write"};
        case 304:
            return {"debug policy unchanged (etag=stored)"};
        case 401:
        case 403:
            return {"error Auth rejected: HTTP " + std::to_string(expected.status) +
                    ". Re-sign in via the Mac app's Setup tab."};
        default:
            return {"error Unexpected HTTP " + std::to_string(expected.status)};
    }
}

std::string effectiveLine(const ExpectedResult& expected) {
    return expected.status == 404
               ? "debug guard/effective endpoint not present yet (older controlplane)"
               : "debug guard/effective HTTP " + std::to_string(expected.status);
}

bool costsASleep(const ExpectedResult& expected) {
    return expected.error || (expected.status != 200 && expected.status != 304);
}

HostileCycleTest::HostileCycleTest() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        (void)::unsetenv(name);
    }
}

FaultContext HostileCycleTest::contextAt(Endpoint endpoint) {
    switch (endpoint) {
        case Endpoint::poll:
            return {endpoint, pollPath, 330s, runner.session, *server};
        case Endpoint::effective:
            return {endpoint, effectivePath, 30s, runner.session, *server};
        case Endpoint::identity:
            break;
    }
    return {endpoint, agentConfigPath, 12s, HttpSession::shared(), *server};
}

void HostileCycleTest::expectEndured(const HostileCase& hostileCase) {
    const ServerFault& fault = *std::get<const ServerFault*>(hostileCase);
    const auto endpoint = std::get<Endpoint>(hostileCase);
    writeFile(runner.policyPath, storedPolicy);
    writeFile(runner.etagPath, etagFileOf("stored"));
    writeFile(runner.effectivePath, storedEffective);
    offerProfile(endpoint);
    scriptFaultyCycle(endpoint, fault);
    scriptGoodCycle(endpoint);
    run(endpoint, fault);

    EXPECT_TRUE(recovered_);
    expectStored(goodPolicy, "good", goodEffective, orvane());
    ExpectedResult expected = fault.expected;
    const auto isPart = [](const std::string& error) {
        return error.empty() || error.ends_with('(');
    };
    if (expected.error && isPart(*expected.error) && endpoint != Endpoint::identity) {
        const auto line = activity().at(endpoint == Endpoint::poll ? 0 : 1);
        expected.error = line.value("error", "");
        EXPECT_THAT(*expected.error, ::testing::StartsWith(*fault.expected.error));
        EXPECT_GT(expected.error->size(), fault.expected.error->size());
        if (line["status"] == 0) {
            expected.status = 0;  // the library may fail before it hands the header out
        }
    }
    expectLogged(endpoint, expected);
    expectRecorded(endpoint, expected);
    if (endpoint == Endpoint::poll && !costsASleep(expected)) {
        EXPECT_THAT(virtual_clock::sleeps(), ElementsAre(30.0));
    } else {
        EXPECT_THAT(virtual_clock::sleeps(),
                    ElementsAre(endpoint == Endpoint::poll ? 60.0 : 30.0, 30.0));
    }
}

void HostileCycleTest::offerProfile(Endpoint endpoint) const {
    if (endpoint == Endpoint::identity) {
        identify(server->url());
    } else {
        enroll(server->url());
    }
}

void HostileCycleTest::withdrawProfile() {
    std::filesystem::remove(setup() / "enroll-config.json");
    std::filesystem::remove(setup() / "device-identity.json");
}

void HostileCycleTest::inject(Endpoint endpoint, const ServerFault& fault) {
    receivedBefore_ = server->received().size();
    fault.inject(contextAt(endpoint));
}

void HostileCycleTest::scriptFaultyCycle(Endpoint endpoint, const ServerFault& fault) {
    if (endpoint != Endpoint::effective) {
        inject(endpoint, fault);
        return;
    }
    // Without a profile the next cycle is a sleep, not a poll; meanwhile the server recovers.
    const auto action = [=, this, &fault] {
        withdrawProfile();
        inject(endpoint, fault);
    };
    server->on(pollPath, {after(action, lastAnswer(firstPolicy))});
}

void HostileCycleTest::scriptGoodCycle(Endpoint endpoint) {
    server->on(agentConfigPath, {lastAnswer(R"({"upload_api_key":"key-2","agent_slug":"s"})")});
    const auto action = [=, this] {
        const bool hasFirst = endpoint == Endpoint::effective;
        expectStored(hasFirst ? firstPolicy : storedPolicy, hasFirst ? "first" : "stored",
                     storedEffective, orvane());
        EXPECT_EQ(server->requestsTo(pollPath).back().header("If-None-Match"),
                  hasFirst ? "\"first\"" : "\"stored\"");
        withdrawProfile();
        server->on(effectivePath, {lastAnswer(goodEffective)});
        recovered_ = true;
    };
    server->on(pollPath, {after(action, lastAnswer(goodPolicy))});
}

void HostileCycleTest::run(Endpoint endpoint, const ServerFault& fault) {
    const auto start = clock::monotonicNow();
    virtual_clock::onSleep([&](double seconds) {
        if (recovered_) {
            throw virtual_clock::EndOfLoop();
        }
        cycleTime = clock::monotonicNow() - start -
                    std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::duration<double>(seconds));
        receivedMeanwhile = server->received().substr(receivedBefore_);
        if (fault.undo) {
            fault.undo(contextAt(endpoint));
        }
        offerProfile(endpoint);
    });
    EXPECT_THROW(runner.run(), virtual_clock::EndOfLoop);
}

void HostileCycleTest::expectLogged(Endpoint endpoint, const ExpectedResult& expected) const {
    std::vector<std::string> lines{"default Resolving credentials from ~/.orvane/config…"};
    const auto usingProfile = [&](const std::string& name) {
        lines.push_back("default Using profile [" + name + "] api=" + server->url());
    };
    switch (endpoint) {
        case Endpoint::poll:
            usingProfile("managed");
            for (const std::string& line : pollLines(expected)) {
                lines.push_back(line);
            }
            lines.push_back(captureApplied(1));
            break;
        case Endpoint::effective:
            usingProfile("managed");
            lines.push_back("default policy updated" + bytesOf(firstPolicy));
            lines.push_back(effectiveLine(expected));
            lines.push_back(captureApplied(2));
            lines.emplace_back(noProfile);
            break;
        case Endpoint::identity:
            lines.emplace_back(noProfile);
            usingProfile("device");
            break;
    }
    lines.push_back("default policy updated" + bytesOf(goodPolicy));
    lines.push_back("default effective config updated" + bytesOf(goodEffective));
    lines.push_back(captureApplied(3));
    lines.emplace_back(noProfile);
    EXPECT_THAT(logLines(), ElementsAreArray(lines));
}

void HostileCycleTest::expectRecorded(Endpoint endpoint, const ExpectedResult& expected) {
    std::vector<ExpectedResult> exchanges;
    switch (endpoint) {
        case Endpoint::poll:
            exchanges.push_back(expected);
            if (expected.error) {
                exchanges.back().status = 0;  // a poll that fails has no status, whatever came
            }
            break;
        case Endpoint::effective:
            exchanges.push_back(answered(200, std::string(firstPolicy).size()));
            exchanges.push_back(expected);
            break;
        case Endpoint::identity:
            break;
    }
    exchanges.push_back(answered(200, std::string(goodPolicy).size()));
    exchanges.push_back(answered(200, std::string(goodEffective).size()));
    const auto lines = activity();
    ASSERT_THAT(lines, ::testing::SizeIs(exchanges.size()));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["status"], exchanges[i].status) << i;
        EXPECT_EQ(lines[i]["bytes"], exchanges[i].bytes) << i;
        EXPECT_EQ(lines[i].contains("error"), exchanges[i].error.has_value()) << i;
        EXPECT_EQ(lines[i].value("error", ""), exchanges[i].error.value_or("")) << i;
    }
}

}  // namespace orvane::test
