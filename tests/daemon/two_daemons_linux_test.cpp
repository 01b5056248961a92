// What another daemon of the same account does between two steps of a write.
#include "daemon/policy_runner.h"
#include "platform/system_calls.h"
#include "support/daemon_test.h"

#include <gmock/gmock.h>

#include <functional>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class TwoDaemonsTest : public DaemonTest {
  protected:
    [[nodiscard]] static fs::path destination() { return orvane() / "policy.json"; }
    [[nodiscard]] static fs::path temporary() { return orvane() / "policy.json.tmp"; }

    /// Writes "ours" while the other one does `step` just before each move into place.
    void writeWhile(const std::function<void()>& step) {
        writeFile(destination(), "old");
        SystemCallHooks hooks;
        hooks.refuse = [&](std::string_view call) {
            // The move looks whether its destination is clear.
            if (call == "lstat" && !isBusy_ && fs::exists(temporary()) &&
                !fs::exists(destination())) {
                isBusy_ = true;
                step();
                isBusy_ = false;
            }
            return 0;
        };
        const WithSystemCallHooks installed(hooks);
        runner_.atomicWrite("ours", destination());
    }

  private:
    PolicyRunner runner_;
    bool isBusy_ = false;
};

TEST_F(TwoDaemonsTest, AFileThatTheOtherOneMovedIsWrittenAgain) {
    int moves = 0;
    writeWhile([&] {
        if (++moves <= 2) {
            fs::rename(temporary(), destination());
            fs::remove(destination());
        }
    });
    EXPECT_EQ(moves, 3);
    EXPECT_EQ(readFile(destination()), "ours");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(TwoDaemonsTest, AFileThatTheOtherOnePutInPlaceIsReplaced) {
    int moves = 0;
    writeWhile([&] {
        if (++moves <= 2) {
            writeFile(destination(), "theirs");
        }
    });
    EXPECT_EQ(readFile(destination()), "ours");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(TwoDaemonsTest, WhoIsDisturbedEachTimeGivesUp) {
    writeWhile([&] { writeFile(destination(), "theirs"); });
    EXPECT_EQ(readFile(destination()), "theirs");
    EXPECT_THAT(logLines(), ElementsAre(StartsWith("error atomic write to ")));
}

}  // namespace
}  // namespace orvane::test
