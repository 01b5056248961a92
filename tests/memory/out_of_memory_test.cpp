// Every allocation of a poll cycle fails, each in a process of its own: once, and from there on.
#include "memory/starved_daemon.h"
#include "process/daemon_process.h"
#include "support/daemon_test.h"
#include "support/http_library.h"
#include "support/policy_versions.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::IsSubsetOf;

enum class Fault { once, fromThenOn };
enum class Home { fresh, inUse };

class OutOfMemoryTest : public DaemonTest,
                        public ::testing::WithParamInterface<std::tuple<Fault, Home>> {
  protected:
    using Files = std::map<std::string, std::string>;

    /// Fails the first allocation, the one `stride` later and so on, each in a new process that
    /// meets the same machine, until there is none left to fail.
    void failEvery(long stride) {
        std::map<int, int> ends;
        for (long number = 1; ends[untouched] == 0; number += stride) {
            SCOPED_TRACE("allocation " + std::to_string(number));
            renewServer();
            putInPlace(start());
            const int end = run(number);
            ++ends[end];
            expectNothingDamaged();
            if (end == wentOn && std::get<Fault>(GetParam()) == Fault::once) {
                expectInStep(updated);
            }
            if (statesSeen_.insert(stored()).second) {
                expectARestartConverges();
            }
            if (HasFailure()) {
                return;
            }
        }
        std::cout << "ended with status 1: " << ends[EXIT_FAILURE] << ", went on: " << ends[wentOn]
                  << ", full stacks: " << ends[stackFull]
                  << ", different states on disk: " << statesSeen_.size() << "\n";
    }

  private:
    /// Ever so often, for it keeps what it has seen.
    void renewServer() {
        constexpr int runsPerServer = 100;
        if (runs_++ % runsPerServer == 0) {
            server_.emplace();
            // Once the new policy is stored, every poll brings a back-off; two end the process.
            serve(*server_, updated, answer(500));
        }
    }

    [[nodiscard]] static Files start() {
        return std::get<Home>(GetParam()) == Home::inUse ? outdated.files() : Files();
    }

    void putInPlace(const Files& files) const {
        for (const char* directory : {"home", "private"}) {
            fs::remove_all(root() / directory);
        }
        for (const auto& [name, content] : files) {
            writeFile(root() / name, content);
        }
        enroll(server_->url());
        writeFile(root() / "etc/machine-id", std::string(32, '1'));
    }

    /// Everything that the daemon stores, but for the activity log.
    [[nodiscard]] static Files stored() {
        Files files;
        for (const fs::path& directory : {orvane(), setup()}) {
            for (const std::string& name : namesIn(directory)) {
                if (name != "logs" && name != "enroll-config.json") {
                    const fs::path path = directory / name;
                    files[fs::relative(path, root())] = readFile(path);
                }
            }
        }
        return files;
    }

    /// The daemon's exit status, with a fault at allocation `number` if one is given.
    static int run(std::optional<long> number = std::nullopt) {
        std::map<std::string, std::string> environment{{"ORVANE_ROOT", root().string()}};
        if (number) {
            environment["STARVE_AT"] = std::to_string(*number);
        }
        if (std::get<Fault>(GetParam()) == Fault::fromThenOn) {
            environment["STARVE_ON"] = "1";
        }
        DaemonProcess daemon({ORVANE_STARVED_DAEMON, environment, root() / "stderr"});
        constexpr int attempts = 15;  // times 20 s, for a busy machine
        for (int i = 0; i < attempts && daemon.isRunning(); ++i) {
            (void)waitUntil([&] { return !daemon.isRunning(); });
        }
        EXPECT_FALSE(daemon.isRunning()) << "it hangs";
        const int status = daemon.end(SIGKILL);
        EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        if (http_library::recursesWithoutMemory() && number &&
            std::get<Fault>(GetParam()) == Fault::fromThenOn) {
            EXPECT_THAT(WEXITSTATUS(status), AnyOf(EXIT_FAILURE, wentOn, untouched, stackFull));
        } else {
            EXPECT_THAT(WEXITSTATUS(status), AnyOf(EXIT_FAILURE, wentOn, untouched));
        }
        return WEXITSTATUS(status);
    }

    static void expectNothingDamaged() {
        const Files files = stored();
        for (const auto& [name, content] : updated.files()) {
            const auto file = files.find(name);
            const bool wasThere = start().count(name) != 0;
            if (file == files.end()) {
                EXPECT_FALSE(wasThere) << name << " is gone";
            } else if (file->second != content) {
                EXPECT_TRUE(wasThere) << name;
                EXPECT_EQ(file->second, outdated.files().at(name)) << name;
            }
        }
        if (files.count(etagFile) != 0 && files.at(etagFile) == updated.files().at(etagFile)) {
            EXPECT_EQ(files.at(policyFile), updated.policy);
        }
        (void)activity();  // every line parses
    }

    /// The effective configuration apart, which only a new policy brings.
    static void expectInStep(const PolicyVersion& version) {
        Files wanted = version.files();
        wanted.erase(effectiveFile);
        EXPECT_THAT(wanted, IsSubsetOf(stored()));
    }

    /// What is on disk now is what a new process starts from, with the control plane where it was,
    /// and once more with a newer policy there.
    void expectARestartConverges() {
        const Files left = stored();
        EXPECT_EQ(run(), untouched);
        expectInStep(updated);

        const PolicyVersion newest = policyVersion(3);
        serve(*server_, newest, answer(500));
        putInPlace(left);
        EXPECT_EQ(run(), untouched);
        EXPECT_EQ(stored(), newest.files());
        serve(*server_, updated, answer(500));
    }

    inline static const PolicyVersion outdated = policyVersion(1);
    inline static const PolicyVersion updated = policyVersion(2);

    std::optional<ScriptedServer> server_;
    int runs_ = 0;
    std::set<Files> statesSeen_;
};

using NightlyOutOfMemoryTest = OutOfMemoryTest;

TEST_P(OutOfMemoryTest, ASampleOfAllAllocations) {
    constexpr long stride = 83;  // has no factor in common with anything that repeats
    failEvery(stride);
}

TEST_P(NightlyOutOfMemoryTest, EveryAllocation) {
    failEvery(1);
}

std::string nameOf(const ::testing::TestParamInfo<std::tuple<Fault, Home>>& info) {
    const auto [fault, home] = info.param;
    return std::string(fault == Fault::once ? "FailsOnce" : "FailsFromThenOn") +
           (home == Home::fresh ? "InAFreshHome" : "InAHomeInUse");
}

const auto allWays = ::testing::Combine(::testing::Values(Fault::once, Fault::fromThenOn),
                                        ::testing::Values(Home::fresh, Home::inUse));
INSTANTIATE_TEST_SUITE_P(Allocations, OutOfMemoryTest, allWays, nameOf);
INSTANTIATE_TEST_SUITE_P(Allocations, NightlyOutOfMemoryTest, allWays, nameOf);

}  // namespace
}  // namespace orvane::test
