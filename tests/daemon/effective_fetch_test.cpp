#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>

#include <thread>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* updated = "default policy updated (2 bytes)";

class EffectiveFetchTest : public DaemonTest {
  protected:
    /// A policy update whose effective fetch the server answers with `step`.
    void fetch(Step step, const std::optional<std::string>& agentSlug = {},
               const std::string& apiKey = "key-1") {
        server.on(effectivePath, {std::move(step)});
        runner.handleUpdated("{}", {"p", server.url() + "//", apiKey, agentSlug, {}});
    }
    [[nodiscard]] ReceivedRequest onlyFetch() const {
        const auto fetches = server.requestsTo(effectivePath);
        EXPECT_THAT(fetches, SizeIs(1));
        return fetches.at(0);
    }
    [[nodiscard]] static std::filesystem::path file() { return orvane() / "guard-effective.json"; }

    ScriptedServer server;
    PolicyRunner runner;
};

TEST_F(EffectiveFetchTest, AnObjectIsStoredByteForByteAndLogged) {
    const std::string body = "{ \"z\":1,\n \"a\" : [] }\n";
    fetch(answer(200, body));
    EXPECT_EQ(readFile(file()), body);
    EXPECT_THAT(logLines(), ElementsAre(updated, "default effective config updated (21 bytes)"));
}

TEST_F(EffectiveFetchTest, TheMessageComesWhateverTheWriteDid) {
    writeFile(file() / "in the way", "");
    fetch(answer(200, "{}"));
    EXPECT_THAT(
        logLines(),
        ElementsAre(updated, "error atomic write to " + file().string() + " failed: File exists",
                    "default effective config updated (2 bytes)"));
}

TEST_F(EffectiveFetchTest, AnUnknownEndpointKeepsTheStoredFile) {
    writeFile(file(), "old");
    fetch(answer(404, "{}"));
    EXPECT_THAT(logLines(),
                ElementsAre(updated,
                            "debug guard/effective endpoint not present yet (older controlplane)"));
    EXPECT_EQ(readFile(file()), "old");
}

TEST_F(EffectiveFetchTest, A200WithoutAnObjectKeepsTheStoredFile) {
    for (const char* body : {"[]", "", "null", "{", "<html>"}) {
        SCOPED_TRACE(body);
        writeFile(file(), "old");
        log.clear();
        fetch(answer(200, body));
        EXPECT_THAT(logLines(), ElementsAre(updated, "debug guard/effective HTTP 200"));
        EXPECT_EQ(readFile(file()), "old");
    }
}

TEST_F(EffectiveFetchTest, AnyOtherStatusIsADebugLineAndARecord) {
    for (const int status : {201, 204, 302, 304, 401, 403, 500, 503}) {
        SCOPED_TRACE(status);
        writeFile(file(), "old");
        log.clear();
        fetch(answer(status, "{}"));
        EXPECT_THAT(logLines(),
                    ElementsAre(updated, "debug guard/effective HTTP " + std::to_string(status)));
        EXPECT_EQ(readFile(file()), "old");
        EXPECT_EQ(activity().back()["status"], status);
    }
    EXPECT_THAT(virtual_clock::sleeps(), IsEmpty());
}

TEST_F(EffectiveFetchTest, ATransportErrorIsOneDebugLineAndARecord) {
    fetch(closeAtOnce());
    EXPECT_THAT(logLines(), ElementsAre(updated, "debug guard/effective HTTP 0"));
    ASSERT_THAT(activity(), SizeIs(1));
    EXPECT_EQ(activity()[0]["status"], 0);
    EXPECT_EQ(activity()[0]["bytes"], 0);
    EXPECT_EQ(activity()[0]["error"], "The network connection was lost.");
}

TEST_F(EffectiveFetchTest, ABodyThatBreaksOffKeepsTheStatusAndTheStoredFile) {
    writeFile(file(), "old");
    fetch(sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{}"));
    EXPECT_THAT(logLines(), ElementsAre(updated, "debug guard/effective HTTP 200"));
    EXPECT_EQ(readFile(file()), "old");
    EXPECT_EQ(activity().at(0)["status"], 200);
    EXPECT_EQ(activity().at(0)["bytes"], 0);
    EXPECT_TRUE(activity().at(0).contains("error"));
}

TEST_F(EffectiveFetchTest, WithoutSlugAndUuidThereIsNoQuery) {
    fetch(answer(200, "{}"), "");
    EXPECT_EQ(onlyFetch().target, effectivePath);
    EXPECT_EQ(activity().at(0)["url"], server.url() + effectivePath);
}

TEST_F(EffectiveFetchTest, TheHardwareUuidAloneIsTheWholeQuery) {
    installRegistryTool("#!/bin/sh\necho '  \"IOPlatformUUID\" = \"U-1\"'\n");
    fetch(answer(200, "{}"));
    EXPECT_EQ(onlyFetch().target, std::string(effectivePath) + "?hardware_uuid=U-1");
}

TEST_F(EffectiveFetchTest, TheSlugComesBeforeTheHardwareUuid) {
    installRegistryTool("#!/bin/sh\necho '\"IOPlatformUUID\" = \"U 1\"'\n");
    fetch(answer(200, "{}"), "slug");
    EXPECT_EQ(onlyFetch().target,
              std::string(effectivePath) + "?agent_slug=slug&hardware_uuid=U%201");
}

TEST_F(EffectiveFetchTest, OnlyTheKeyIsSent) {
    fetch(answer(200, "{}"));
    EXPECT_EQ(onlyFetch().method, "GET");
    EXPECT_EQ(onlyFetch().header("X-Orv-Key"), "key-1");
    EXPECT_EQ(onlyFetch().header("Accept"), std::nullopt);
    EXPECT_EQ(onlyFetch().header("If-None-Match"), std::nullopt);
}

TEST_F(EffectiveFetchTest, AnEmptyKeyIsSentAsAnEmptyHeader) {
    fetch(answer(200, "{}"), {}, "");
    EXPECT_EQ(onlyFetch().header("X-Orv-Key"), "");
}

TEST_F(EffectiveFetchTest, ABaseThatIsNoUrlIsNotFetchedRecordedOrLogged) {
    installRegistryTool("#!/bin/sh\ntouch \"$(dirname \"$0\")/was-run\"\n");
    runner.handleUpdated("{}", {"p", "https://h x", "key-1", {}, {}});
    EXPECT_THAT(logLines(), ElementsAre(updated));
    EXPECT_THAT(activity(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(root() / "usr/sbin/was-run"));
}

TEST_F(EffectiveFetchTest, TheRecordHoldsWhatWasExchanged) {
    fetch(answer(200, R"({"a":1})"));
    ASSERT_THAT(activity(), SizeIs(1));
    const auto line = activity()[0];
    EXPECT_EQ(line["method"], "GET");
    EXPECT_EQ(line["status"], 200);
    EXPECT_EQ(line["bytes"], 7);
    EXPECT_FALSE(line.contains("summary"));
    EXPECT_FALSE(line.contains("error"));
}

TEST_F(EffectiveFetchTest, SilenceOf30SecondsEndsTheFetch) {
    server.on(effectivePath, {staySilent()});
    std::thread updating([this] {
        runner.handleUpdated("{}", {"p", server.url(), "key-1", {}, {}});
    });
    ASSERT_TRUE(server.waitForRequests(1));
    virtual_clock::advance(std::chrono::seconds(25));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_THAT(activity(), IsEmpty());
    virtual_clock::advance(std::chrono::seconds(6));
    updating.join();
    ASSERT_THAT(activity(), SizeIs(1));
    EXPECT_EQ(activity()[0]["status"], 0);
    EXPECT_EQ(activity()[0]["error"], "The request timed out.");
    EXPECT_GE(activity()[0]["ms"], 30000);
}

}  // namespace
}  // namespace orvane::test
