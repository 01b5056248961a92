#include "config/device_identity.h"

#include "platform/http/semaphore.h"
#include "platform/http_library_calls.h"
#include "platform/machine/clock.h"
#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;
using namespace std::string_literals;

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::Field;
using ::testing::FieldsAre;
using ::testing::Ge;
using ::testing::Le;
using ::testing::Optional;
using ::testing::Pair;
using ::testing::SizeIs;

using Resolved = DeviceIdentity::Resolved;

constexpr const char* goodAnswer =
    R"({"upload_api_key":"up-1","api_url":"https://api","agent_slug":"slug","agent_type":"kind"})";

Resolved goodResult() {
    return {"https://api", "up-1", "slug", "kind"};
}

// What the file says.

TEST(DeviceEnrollmentTest, TokenTenantAndUrlAreTakenVerbatim) {
    EXPECT_THAT(DeviceIdentity::readEnrollment(
                    R"({"device_token":" t ","tenant_slug":"\u00fc","api_url":" no url ","x":1})"),
                Optional(FieldsAre(" t ", "\u00fc", " no url ")));
}

TEST(DeviceEnrollmentTest, AnEmptyUrlIsLeftToTheRequest) {
    EXPECT_THAT(
        DeviceIdentity::readEnrollment(R"({"device_token":"t","tenant_slug":"a","api_url":""})"),
        Optional(FieldsAre("t", "a", "")));
}

TEST(DeviceEnrollmentTest, WhatIsMissingMakesItUnusable) {
    for (const char* content : {
             "",
             "null",
             "[]",
             "{}",
             R"("device_token")",
             R"([{"device_token":"t","tenant_slug":"a","api_url":"http://h"}])",
             R"({"device_token":"t","tenant_slug":"a","api_url":"http://h")",
             R"({"device_token":"t","tenant_slug":"a","api_url":"http://h"}})",
             R"({"tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":"","tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":1,"tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":null,"tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":["t"],"tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":{"t":"t"},"tenant_slug":"a","api_url":"http://h"})",
             R"({"device_token":"t","api_url":"http://h"})",
             R"({"device_token":"t","tenant_slug":"","api_url":"http://h"})",
             R"({"device_token":"t","tenant_slug":2,"api_url":"http://h"})",
             R"({"device_token":"t","tenant_slug":null,"api_url":"http://h"})",
             R"({"device_token":"t","tenant_slug":true,"api_url":"http://h"})",
             R"({"device_token":"t","tenant_slug":"a"})",
             R"({"device_token":"t","tenant_slug":"a","api_url":3})",
             R"({"device_token":"t","tenant_slug":"a","api_url":null})",
             R"({"device_token":"t","tenant_slug":"a","api_url":["http://h"]})",
             R"({"device_token":"t","tenant_slug":"a","API_URL":"http://h"})",
         }) {
        SCOPED_TRACE(content);
        EXPECT_FALSE(DeviceIdentity::readEnrollment(content).has_value());
    }
}

// All of it, over the wire.

class DeviceIdentityTest : public DaemonTest {
  protected:
    static fs::path file() { return setup() / "device-identity.json"; }
    static std::optional<Resolved> resolve() { return DeviceIdentity::resolve("claude"); }

    /// What comes of `step` as the server's answer.
    std::optional<Resolved> resolvedFrom(Step step) {
        identify(server.url());
        server.on(agentConfigPath, {std::move(step)});
        return resolve();
    }

    ScriptedServer server;
};

TEST_F(DeviceIdentityTest, TheAnswerBecomesTheResult) {
    EXPECT_EQ(resolvedFrom(answer(200, goodAnswer)), goodResult());
}

TEST_F(DeviceIdentityTest, WithoutItsOwnUrlTheAnswerGetsTheFiles) {
    EXPECT_EQ(resolvedFrom(answer(200, R"({"upload_api_key":"k"})")),
              (Resolved{server.url(), "k", "", ""}));
}

TEST_F(DeviceIdentityTest, TheRequestHoldsNothingButWhatItHasTo) {
    (void)resolvedFrom(answer(200, goodAnswer));
    ASSERT_THAT(server.requests(), SizeIs(1));
    const ReceivedRequest request = server.requests().front();
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/api/orvane/v1/endpoint/agent-config/?process=claude");
    EXPECT_THAT(request.headers,
                testing::UnorderedElementsAre(
                    Pair("Host", "127.0.0.1:" + std::to_string(server.port())),
                    Pair("User-Agent", testing::StartsWith("OrvanePolicyDaemon/")),
                    Pair("Accept-Encoding", testing::_), Pair("X-Orv-Device", "device-1"),
                    Pair("X-Orv-Tenant", "tenant-1")));
    EXPECT_THAT(request.raw, EndsWith("\r\n\r\n"));
}

TEST_F(DeviceIdentityTest, TheProcessGoesIntoTheQuery) {
    identify(server.url());
    server.on(agentConfigPath, {answer(200, goodAnswer)});
    EXPECT_EQ(DeviceIdentity::resolve("a b/\u00fc&c"), goodResult());
    ASSERT_THAT(server.requests(), SizeIs(1));
    EXPECT_EQ(server.requests().front().target,
              "/api/orvane/v1/endpoint/agent-config/?process=a%20b/%C3%BC%26c");
}

TEST_F(DeviceIdentityTest, TheBasesPathStaysAndItsQueryGoes) {
    for (const char* suffix : {"/base", "/base/", "/base?x=1", "/base/?process=other#f"}) {
        SCOPED_TRACE(suffix);
        identify(server.url() + suffix);
        server.on("/base/api/orvane/v1/endpoint/agent-config/", {answer(200, goodAnswer)});
        EXPECT_EQ(resolve(), goodResult());
        EXPECT_EQ(server.requests().back().target,
                  "/base/api/orvane/v1/endpoint/agent-config/?process=claude");
    }
}

TEST_F(DeviceIdentityTest, OtherStatusesGiveNothing) {
    for (const int status : {201, 202, 204, 206, 300, 304, 400, 401, 403, 404, 500, 503}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(resolvedFrom(answer(status, status == 204 || status == 304 ? "" : goodAnswer)),
                  std::nullopt);
    }
}

TEST_F(DeviceIdentityTest, ARedirectIsNotFollowed) {
    ScriptedServer other;
    other.on(agentConfigPath, {answer(200, goodAnswer)});
    for (const int status : {301, 302, 303, 307, 308}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(
            resolvedFrom(answer(status, goodAnswer, {{"Location", other.url() + agentConfigPath}})),
            std::nullopt);
    }
    EXPECT_EQ(other.connectionCount(), 0U);
}

TEST_F(DeviceIdentityTest, UnusableBodiesGiveNothing) {
    for (const char* body :
         {"", "[]", "not json", R"({"upload_api_key":""})", R"({"api_url":"u"})"}) {
        SCOPED_TRACE(body);
        EXPECT_EQ(resolvedFrom(answer(200, body)), std::nullopt);
    }
}

TEST_F(DeviceIdentityTest, AnInterimAnswerIsNotTheAnswer) {
    EXPECT_EQ(resolvedFrom([](Connection& connection, const ReceivedRequest& request) {
                  return answer(103)(connection, request) &&
                         answer(200, goodAnswer)(connection, request);
              }),
              goodResult());
}

TEST_F(DeviceIdentityTest, TransportErrorsGiveNothing) {
    const std::vector<std::pair<const char*, Step>> steps{
        {"closed", closeAtOnce()},
        {"reset", resetAtOnce()},
        {"not HTTP", sendAndClose("hello\r\n\r\n")},
        {"only half a header", sendAndClose("HTTP/1.1 200 OK\r\nContent-Le")},
        {"cut short",
         sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"s + goodAnswer)},
    };
    for (const auto& [name, step] : steps) {
        SCOPED_TRACE(name);
        EXPECT_EQ(resolvedFrom(step), std::nullopt);
    }
}

TEST_F(DeviceIdentityTest, AServerThatIsNotThereGivesNothing) {
    {
        const ScriptedServer gone;
        identify(gone.url());
    }
    EXPECT_EQ(resolve(), std::nullopt);
}

TEST_F(DeviceIdentityTest, WithoutAUsableFileNothingIsAsked) {
    EXPECT_EQ(resolve(), std::nullopt) << "no file";
    const std::string url = R"("api_url":")" + server.url() + R"(")";
    for (const std::string& content : {
             ""s,
             "["s + "{\"device_token\":\"t\",\"tenant_slug\":\"a\"," + url + "}]",
             "{\"device_token\":\"\",\"tenant_slug\":\"a\"," + url + "}",
             "{\"device_token\":\"t\",\"tenant_slug\":\"\"," + url + "}",
             "{\"device_token\":1,\"tenant_slug\":\"a\"," + url + "}",
             "{\"device_token\":\"t\"," + url + "}",
             "{\"tenant_slug\":\"a\"," + url + "}",
             R"({"device_token":"t","tenant_slug":"a"})"s,
         }) {
        SCOPED_TRACE(content);
        writeFile(file(), content);
        EXPECT_EQ(resolve(), std::nullopt);
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceIdentityTest, AUrlThatCannotBeFetchedGivesNothing) {
    const std::string address = "127.0.0.1:" + std::to_string(server.port());
    for (const std::string& base : {""s, "/"s, "http://"s, "http:///" + address, "//" + address,
                                    address, "localhost:" + std::to_string(server.port()),
                                    "ftp://" + address, "http:" + address, " http://" + address}) {
        SCOPED_TRACE(base);
        identify(base);
        EXPECT_EQ(resolve(), std::nullopt);
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceIdentityTest, CredentialsThatAreNoHeaderValuesAreNotSent) {
    for (const std::string& bad : {"t\nX-Orv-Key: k"s, "t\r"s, "t\0"s, "\x01"s}) {
        SCOPED_TRACE(testing::PrintToString(bad));
        for (const char* key : {"device_token", "tenant_slug"}) {
            nlohmann::json identity{
                {"device_token", "t"}, {"tenant_slug", "a"}, {"api_url", server.url()}};
            identity[key] = bad;
            writeFile(file(), identity.dump());
            EXPECT_EQ(resolve(), std::nullopt) << key;
        }
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceIdentityTest, CredentialsOfSpacesAreSent) {
    const nlohmann::json identity{
        {"device_token", " "}, {"tenant_slug", "  "}, {"api_url", server.url()}};
    writeFile(file(), identity.dump());
    server.on(agentConfigPath, {answer(200, goodAnswer)});
    EXPECT_EQ(resolve(), goodResult());
    ASSERT_THAT(server.requests(), SizeIs(1));
    EXPECT_EQ(server.requests().front().header("X-Orv-Device"), "");
    EXPECT_EQ(server.requests().front().header("X-Orv-Tenant"), "");
}

TEST_F(DeviceIdentityTest, AFileThatIsNoneGivesNothing) {
    fs::create_directories(file());
    EXPECT_EQ(resolve(), std::nullopt) << "a directory";
    fs::remove(file());
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_EQ(resolve(), std::nullopt) << "a FIFO";
    fs::remove(file());
    fs::create_symlink(root() / "nowhere", file());
    EXPECT_EQ(resolve(), std::nullopt) << "a dangling link";
}

TEST_F(DeviceIdentityTest, AFileOfMoreThanOneMebibyteGivesNothing) {
    server.on(agentConfigPath, {answer(200, goodAnswer)});
    identify(server.url());
    const std::string content = readFile(file());
    writeFile(file(), content + std::string(1'048'577 - content.size(), ' '));
    EXPECT_EQ(resolve(), std::nullopt);
    fs::resize_file(file(), 1'048'576);
    EXPECT_TRUE(resolve());
}

TEST_F(DeviceIdentityTest, AnUnreadableFileGivesNothing) {
    identify("http://127.0.0.1:1");
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(file(), fs::perms::none);
    EXPECT_TRUE(asOrdinaryUser([] { return !resolve().has_value(); }));
}

TEST_F(DeviceIdentityTest, EveryCallReadsTheFileAndSendsARequest) {
    server.on(agentConfigPath, {answer(200, goodAnswer), answer(200, R"({"upload_api_key":"2"})")});
    identify(server.url());
    EXPECT_EQ(resolve(), goodResult());
    EXPECT_EQ(resolve(), (Resolved{server.url(), "2", "", ""}));
    fs::remove(file());
    EXPECT_EQ(resolve(), std::nullopt);
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(DeviceIdentityTest, EveryCallUsesTheSameConnection) {
    server.on(agentConfigPath, {answer(200, goodAnswer), answer(404), answer(200, goodAnswer)});
    identify(server.url());
    EXPECT_EQ(resolve(), goodResult());
    EXPECT_EQ(resolve(), std::nullopt);
    EXPECT_EQ(resolve(), goodResult());
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(DeviceIdentityTest, NothingIsWrittenOrLogged) {
    EXPECT_EQ(resolvedFrom(closeAtOnce()), std::nullopt);
    EXPECT_EQ(resolvedFrom(answer(401, "no")), std::nullopt);
    EXPECT_EQ(resolvedFrom(answer(200, goodAnswer)), goodResult());
    EXPECT_EQ(log.raw(), "");
    EXPECT_THAT(namesIn(root()), ElementsAre("private"));
    EXPECT_THAT(namesIn(setup()), ElementsAre("device-identity.json"));
}

// How long it may take. The server's steps move the session's clock; the caller's own limit is on
// the real one.

TEST_F(DeviceIdentityTest, AnAnswerWithinTheLimitsCounts) {
    EXPECT_EQ(resolvedFrom(after([] { virtual_clock::advance(10s); }, answer(200, goodAnswer))),
              goodResult());
}

TEST_F(DeviceIdentityTest, SilenceEndsAfterTwelveSeconds) {
    identify(server.url());
    server.on(agentConfigPath, {after([] { virtual_clock::advance(11500ms); }, staySilent())});
    const auto start = clock::monotonicNow();
    EXPECT_EQ(resolve(), std::nullopt);
    // The caller's own limit would end it after 26.5 s on this clock.
    EXPECT_THAT(clock::monotonicNow() - start, AllOf(Ge(12s), Le(25s)));
}

class RealTimeDeviceIdentityTest : public DeviceIdentityTest {
  protected:
    /// The real time that a call takes which ends without a result.
    static std::chrono::duration<double> timeWithoutResult() {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(resolve(), std::nullopt);
        return std::chrono::steady_clock::now() - start;
    }
};

TEST_F(RealTimeDeviceIdentityTest, ASilentServerTimesOutAfterTwelveSeconds) {
    identify(server.url());
    server.on(agentConfigPath, {staySilent()});
    EXPECT_THAT(timeWithoutResult(), AllOf(Ge(11500ms), Le(14s)));
}

TEST_F(RealTimeDeviceIdentityTest, ATricklingServerTimesOutAfterFifteenSeconds) {
    identify(server.url());
    server.on(agentConfigPath,
              {trickle("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{", ' ', 2s)});
    EXPECT_THAT(timeWithoutResult(), AllOf(Ge(14900ms), Le(15900ms)));
}

TEST_F(RealTimeDeviceIdentityTest, AServerThatDoesNotLetGoOfTheLibraryIsCutOff) {
    // Never destroyed, as is the thread of the session that all share.
    static std::atomic<bool> hold = false;
    static auto& release = *new Semaphore(0);
    HttpLibraryHooks hooks;
    hooks.refuseCall = [](std::string_view name) {
        if (name == "curl_multi_perform" && hold.exchange(false)) {
            release.wait();
        }
        return false;
    };
    [[maybe_unused]] static const auto& installed = *new WithHttpLibraryHooks(hooks);
    Semaphore isGone(0);
    server.on(agentConfigPath, {[&](Connection& connection, const ReceivedRequest&) {
                  hold = true;
                  connection.send("HTTP/1.1 200 OK\r\n");
                  while (!connection.receive(1).empty()) {
                  }
                  isGone.signal();
                  return false;
              }});
    identify(server.url());
    (void)timeWithoutResult();
    EXPECT_TRUE(isGone.waitFor(20s));
    release.signal();
}

TEST_F(RealTimeDeviceIdentityTest, AnAnswerThatComesTooLateDisturbsNothing) {
    const std::string body = goodAnswer;
    std::promise<void> givenUp;
    std::promise<void> sent;
    server.on(agentConfigPath, {[&](Connection& connection, const ReceivedRequest&) {
                  bool going = connection.send("HTTP/1.1 200 OK\r\nContent-Length: " +
                                               std::to_string(body.size()) + "\r\n\r\n") &&
                               connection.pause(10s) && connection.send(body.substr(0, 1));
                  givenUp.get_future().wait();
                  going = going && connection.send(body.substr(1));
                  sent.set_value();
                  return going;
              }});
    identify(server.url());
    EXPECT_EQ(resolve(), std::nullopt);
    givenUp.set_value();
    sent.get_future().wait();
    server.on(agentConfigPath, {answer(200, R"({"upload_api_key":"next"})")});
    EXPECT_EQ(resolve(), (Resolved{server.url(), "next", "", ""}));
}

}  // namespace
}  // namespace orvane::test
