// Every status there can be, on every endpoint, each with all that might lead elsewhere.
#include "hostile/hostile_cycle.h"
#include "support/sanitizers.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class EveryStatusTest : public DaemonTest {
  protected:
    static constexpr int first = 100;
    static constexpr int last = 599;
    /// What follows an interim answer.
    static constexpr int teapot = 418;
    /// To another protocol, which was not requested: what follows is not HTTP any more.
    static constexpr int switching = 101;

    /// An answer with `status` that points to the other server in every way there is.
    [[nodiscard]] Step answerWith(int status) const {
        const std::string elsewhere = other.url() + "/elsewhere";
        std::vector<std::pair<std::string, std::string>> headers{
            {"Location", elsewhere},
            {"Content-Location", elsewhere},
            {"Refresh", "0; url=" + elsewhere},
            {"Alt-Svc", "http/1.1=\"127.0.0.1:" + std::to_string(other.port()) + "\"; ma=3600"},
            {"Link", "<" + elsewhere + ">; rel=preload"},
            {"WWW-Authenticate", "Basic realm=\"x\""},
            {"Retry-After", "0"}};
        if (status >= 200) {
            return answer(status, "[]", headers);
        }
        return [=, interim = answer(status, "", headers)](Connection& connection,
                                                          const ReceivedRequest& request) {
            return interim(connection, request) && answer(teapot, "[]")(connection, request) &&
                   status != switching;
        };
    }

    /// What the daemon makes of it.
    static ExpectedResult endingOf(int status) {
        if (status == switching) {
            return lost();
        }
        return answered(status < 200 ? teapot : status, status == 204 || status == 304 ? 0 : 2);
    }

    /// The status that each of them ends with.
    static std::vector<int> allEndings() {
        std::vector<int> statuses;
        for (int status = first; status <= last; ++status) {
            statuses.push_back(endingOf(status).status);
        }
        return statuses;
    }

    static std::vector<int> statusesOnRecord() {
        std::vector<int> statuses;
        for (const auto& line : activity()) {
            statuses.push_back(line["status"]);
        }
        return statuses;
    }

    /// The answers to everything that goes to `path`, one for every status.
    void answerWithEveryStatus(const char* path) {
        for (int status = first; status <= last; ++status) {
            server.on(path, {answerWith(status)});
        }
    }

    /// Runs the loop until it has slept `sleeps` times.
    void runUntilSleeps(int sleeps) {
        virtual_clock::onSleep([&](double) {
            if (--sleeps == 0) {
                throw virtual_clock::EndOfLoop();
            }
        });
        EXPECT_THROW(runner.run(), virtual_clock::EndOfLoop);
    }

    /// The lines of the log after the first, and that no other server was contacted.
    void expectLogged(std::vector<std::string> lines) const {
        lines.insert(lines.begin(), "default Resolving credentials from ~/.orvane/config…");
        EXPECT_THAT(logLines(), ElementsAreArray(lines));
        EXPECT_EQ(other.connectionCount(), 0U);
    }
    [[nodiscard]] std::string usingLine() const {
        return "default Using profile [managed] api=" + server.url();
    }

    ScriptedServer server;
    const ScriptedServer other;
    PolicyRunner runner;
};

TEST_F(EveryStatusTest, IsActedOnAndLeadsNowhereElseOnAPoll) {
    const std::string stored = R"({"etag":"stored"})";
    for (const auto& file : {runner.policyPath, runner.etagPath, runner.effectivePath}) {
        writeFile(file, stored);
    }
    enroll(server.url());
    answerWithEveryStatus(pollPath);
    std::vector<std::string> lines{usingLine()};
    int sleeps = 0;
    for (int status = first; status <= last; ++status) {
        for (const std::string& line : pollLines(endingOf(status))) {
            lines.push_back(line);
        }
        sleeps += costsASleep(endingOf(status)) ? 1 : 0;
    }
    runUntilSleeps(sleeps);
    expectLogged(lines);
    EXPECT_THAT(virtual_clock::sleeps(), Each(60.0));
    EXPECT_THAT(statusesOnRecord(), ElementsAreArray(allEndings()));
    for (const auto& file : {runner.policyPath, runner.etagPath, runner.effectivePath}) {
        EXPECT_EQ(readFile(file), stored);
    }
}

constexpr const char* likeAPoll = "threads do the same as on a poll";

TEST_F(EveryStatusTest, IsActedOnAndLeadsNowhereElseOnAnEffectiveFetch) {
    ORVANE_SKIP_UNDER_THREAD_SANITIZER(likeAPoll);
    writeFile(runner.effectivePath, "stored");
    enroll(server.url());
    answerWithEveryStatus(effectivePath);
    std::vector<std::string> lines{usingLine()};
    for (int status = first; status <= last; ++status) {
        server.on(pollPath, {answer(200, "{}")});
        lines.emplace_back("default policy updated (2 bytes)");
        lines.push_back(effectiveLine(endingOf(status)));
    }
    server.on(pollPath, {answer(500)});
    lines.emplace_back("error Unexpected HTTP 500");
    runUntilSleeps(1);
    expectLogged(lines);
    std::vector<int> expected;
    for (const int status : allEndings()) {
        expected.insert(expected.end(), {200, status});
    }
    expected.push_back(500);
    EXPECT_THAT(statusesOnRecord(), ElementsAreArray(expected));
    EXPECT_EQ(readFile(runner.effectivePath), "stored");
}

TEST_F(EveryStatusTest, IsActedOnAndLeadsNowhereElseOnAnIdentityLookup) {
    ORVANE_SKIP_UNDER_THREAD_SANITIZER(likeAPoll);
    identify(server.url());
    answerWithEveryStatus(agentConfigPath);
    const int count = last - first + 1;
    runUntilSleeps(count);
    expectLogged(
        std::vector<std::string>(count, "default No usable profile — sleeping 30s and retrying"));
    EXPECT_THAT(server.requestsTo(agentConfigPath), SizeIs(count));
    EXPECT_THAT(statusesOnRecord(), IsEmpty());
}

}  // namespace
}  // namespace orvane::test
