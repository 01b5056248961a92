#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;

class CycleOrderTest : public DaemonTest {
  protected:
    void poll() { runner.pollOnce({"p", server.url(), "key-1", {}, {}}); }

    ScriptedServer server;
    PolicyRunner runner;
};

TEST_F(CycleOrderTest, PolicyThenEtagThenEffectiveFetchThenCaptureFile) {
    std::vector<std::string> atFetch;
    bool captureAtFetch = true;
    server.on(pollPath,
              {answer(200, R"({"etag":"v1","config":{"capture":{"suppress_ech":true}}})")});
    server.on(effectivePath, {after(
                                 [&] {
                                     atFetch = namesIn(orvane());
                                     captureAtFetch = std::filesystem::exists(captureFile());
                                 },
                                 answer(200, "{}"))});
    poll();
    EXPECT_THAT(atFetch, ElementsAre("logs", "policy-etag.json", "policy.json"));
    EXPECT_FALSE(captureAtFetch);
    EXPECT_THAT(namesIn(orvane()),
                ElementsAre("guard-effective.json", "logs", "policy-etag.json", "policy.json"));
    EXPECT_THAT(logLines(),
                ElementsAre("default policy updated (56 bytes)",
                            "default effective config updated (2 bytes)",
                            "default capture-policy applied from guard cascade: enabled=false "
                            "hosts=0 suppress_ech=true"));
}

TEST_F(CycleOrderTest, ThePolicyIsStoredBeforeItsEtag) {
    // With a directory in the way of the policy, both failures are logged in the order of the
    // writes.
    std::filesystem::create_directories(orvane() / "policy.json/x");
    std::filesystem::create_directories(orvane() / "policy-etag.json/x");
    server.on(pollPath, {answer(200, R"({"etag":"v1"})")});
    poll();
    const auto errors = logged("error");
    ASSERT_EQ(errors.size(), 2U);
    EXPECT_THAT(errors[0], ::testing::HasSubstr("/policy.json failed"));
    EXPECT_THAT(errors[1], ::testing::HasSubstr("/policy-etag.json failed"));
}

TEST_F(CycleOrderTest, TheNextPollSendsTheEtagOfThePolicy) {
    server.on(pollPath, {answer(200, R"({"etag":"v1"})"), answer(304)});
    poll();
    poll();
    const auto polls = server.requestsTo(pollPath);
    EXPECT_EQ(polls.at(0).header("If-None-Match"), std::nullopt);
    EXPECT_EQ(polls.at(1).header("If-None-Match"), "\"v1\"");
    EXPECT_EQ(logged("debug").back(), "policy unchanged (etag=v1)");
}

TEST_F(CycleOrderTest, BothExchangesOfACycleAreOnRecordInOrder) {
    server.on(pollPath, {answer(200, "{}")});
    server.on(effectivePath, {answer(200, R"({"x":1})")});
    poll();
    const auto lines = activity();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["url"], server.url() + pollPath + "?wait=300");
    EXPECT_EQ(lines[0]["bytes"], 2);
    EXPECT_EQ(lines[1]["url"], server.url() + effectivePath);
    EXPECT_EQ(lines[1]["bytes"], 7);
}

TEST_F(CycleOrderTest, ASecondCycleWithTheSamePolicyWritesNoCaptureFile) {
    const std::string body = R"({"etag":"v1","guard_config":{"capture":{"enabled":true}}})";
    server.on(pollPath, {answer(200, body), answer(304)});
    poll();
    const auto written = std::filesystem::last_write_time(captureFile());
    log.clear();
    poll();
    EXPECT_TRUE(std::filesystem::last_write_time(captureFile()) == written);
    EXPECT_THAT(logLines(), ElementsAre("debug policy unchanged (etag=v1)"));
}

}  // namespace
}  // namespace orvane::test
