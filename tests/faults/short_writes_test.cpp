// One whole poll cycle with writes that take less than they are given. strace(1) can only claim
// that a write was short; here it is, for the call is made with a smaller size.
#include "config/orvane_config.h"
#include "daemon/policy_runner.h"
#include "faults/policy_server.h"
#include "platform/system_calls.h"
#include "support/daemon_test.h"
#include "support/policy_versions.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using ::testing::Each;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

/// What becomes of the writes after the short one.
enum class Then { fine, shortToo, full, nothingTaken };

class ShortWritesTest : public DaemonTest {
  protected:
    /// One cycle on a device without any files. Of the writes to files below the root, those before
    /// `first` are as they should be, that one takes half of what it is given. Gives the names of
    /// the files that were written to, one for each write.
    std::vector<std::string> runCycle(std::size_t first, Then then) {
        for (const auto& entry : fs::directory_iterator(root())) {
            fs::remove_all(entry.path());
        }
        log.clear();
        PolicyServer server;
        server.answerOne(offered);
        enroll(server.url());
        PolicyRunner runner;
        std::vector<std::string> writes;
        SystemCallHooks hooks;
        hooks.write = [&](int descriptor, std::size_t& size) -> std::optional<ssize_t> {
            const fs::path path = pathOf(descriptor);
            if (!path.string().starts_with(root().string())) {
                return std::nullopt;
            }
            const std::size_t number = writes.size();
            writes.push_back(path.filename());
            const bool isLater = number > first;
            if (isLater && then == Then::full) {
                return failWith(ENOSPC);
            }
            if (isLater && then == Then::nothingTaken) {
                errno = 0;
                return 0;
            }
            if (number == first || (isLater && then == Then::shortToo)) {
                size = (size + 1) / 2;
            }
            return std::nullopt;
        };
        const WithSystemCallHooks installed(hooks);
        runner.pollOnce(OrvaneConfig::managedProfile().value());
        return writes;
    }

    void expectEverythingStored() const {
        for (const auto& [path, content] : policyVersion(offered).files()) {
            EXPECT_EQ(readFile(root() / path), content);
        }
        EXPECT_THAT(activity(), SizeIs(2));
        EXPECT_THAT(logged("error"), IsEmpty());
        expectNoScratchFile();
    }

    /// A record's line end is written by itself.
    static bool isLineEnd(const std::vector<std::string>& writes, std::size_t index) {
        return index > 0 && writes[index] == writes[index - 1];
    }

    static void expectNoScratchFile() {
        for (const auto& directory : {orvane(), setup(), orvane() / "logs"}) {
            EXPECT_THAT(namesIn(directory), Each(Not(EndsWith(".tmp"))));
        }
    }

    /// With every write after the one at `first` failing: what was written before is there, of the
    /// rest nothing is, and each file's failure was logged once.
    void expectStoredBefore(std::size_t first, const std::vector<std::string>& writes,
                            const std::string& reason) const {
        const auto isStored = [&](const fs::path& file) {
            const auto write =
                std::find_if(writes.begin(), writes.end(), [&](const std::string& name) {
                    return name.starts_with("." + file.filename().string() + ".");
                });
            return static_cast<std::size_t>(write - writes.begin()) < first;
        };
        std::vector<std::string> expected;
        for (const char* name : {"policy.json", "policy-etag.json", "guard-effective.json"}) {
            const auto file = orvane() / name;
            EXPECT_EQ(fs::exists(file), isStored(file)) << file;
            if (!isStored(file)) {
                expected.push_back("atomic write to " + file.string() + " failed: " + reason);
            }
        }
        const bool hasPolicy = isStored(orvane() / "policy.json");
        EXPECT_EQ(fs::exists(captureFile()), isStored(captureFile()));
        if (hasPolicy && !isStored(captureFile())) {
            expected.push_back("capture-policy write failed: " + reason);
        }
        EXPECT_EQ(logged("error"), expected);
        expectNoScratchFile();
    }

    static constexpr int offered = 2;
    static constexpr std::size_t never = 1000;
};

TEST_F(ShortWritesTest, OneShortWriteIsCarriedOn) {
    const auto writes = runCycle(never, Then::fine);
    expectEverythingStored();
    for (std::size_t i = 0; i < writes.size(); ++i) {
        SCOPED_TRACE(writes[i]);
        // Of a line end there is no half.
        EXPECT_EQ(runCycle(i, Then::fine).size(), writes.size() + (isLineEnd(writes, i) ? 0 : 1));
        expectEverythingStored();
    }
}

TEST_F(ShortWritesTest, WritesThatAreShortFromThenOnAreCarriedOn) {
    const auto writes = runCycle(never, Then::fine);
    for (std::size_t i = 0; i < writes.size(); ++i) {
        SCOPED_TRACE(writes[i]);
        EXPECT_GT(runCycle(i, Then::shortToo).size(), writes.size());
        expectEverythingStored();
    }
}

TEST_F(ShortWritesTest, ADiskThatFillsUpWithinAWriteKeepsPartsOutOfAllFiles) {
    const auto writes = runCycle(never, Then::fine);
    for (std::size_t i = 0; i < writes.size(); ++i) {
        SCOPED_TRACE(writes[i]);
        (void)runCycle(i, Then::full);
        expectStoredBefore(i, writes, std::generic_category().message(ENOSPC));
    }
}

TEST_F(ShortWritesTest, WritesThatTakeNothingWithoutAReasonAreFailures) {
    const auto writes = runCycle(never, Then::fine);
    for (std::size_t i = 0; i < writes.size(); ++i) {
        SCOPED_TRACE(writes[i]);
        (void)runCycle(i, Then::nothingTaken);
        expectStoredBefore(i, writes, std::generic_category().message(EIO));
    }
}

}  // namespace
}  // namespace orvane::test
