// The power fails at every point of a poll cycle, and the file system keeps whatever it may of what
// was not flushed. From every such state the daemon is back in step with one poll.
#include "daemon/leftovers.h"
#include "daemon/policy_runner.h"
#include "power/disk.h"
#include "support/daemon_test.h"
#include "support/policy_versions.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <iterator>
#include <memory>
#include <thread>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = FileOperation::Kind;

const PolicyVersion outdated = policyVersion(1);
const PolicyVersion updated = policyVersion(2);
const PolicyVersion newest = policyVersion(3);

/// What a poll cycle starts from.
struct Start {
    const char* name;
    std::map<std::string, std::string> files;
};

std::vector<Start> starts() {
    auto withoutCapture = outdated.files();
    withoutCapture.erase(capturePolicyFile);
    return {{"AFreshHome", {}},
            {"TheVersionBefore", outdated.files()},
            {"TheVersionBeforeWithoutACaptureFile", withoutCapture},
            {"TheSameVersion", updated.files()}};
}

/// The content at `path`; nothing when no file is there.
std::optional<std::string> contentIn(const Tree& tree, const std::string& path) {
    const auto found = tree.find(path);
    return found == tree.end() ? std::nullopt : found->second;
}

class PowerLossTest : public DaemonTest {
  protected:
    PowerLossTest() { (void)::umask(0077); }  // as the service has it

    /// The operations of the cycle that brings `updated` to a machine in the state `start`.
    std::vector<FileOperation> recordUpdate(const Start& start) {
        putInPlace(filesOf(start));
        // Even to somebody who has it already, as a server does that keeps no ETags.
        serve(updated, answer(200, updated.policy));
        before_ = treeBelowRoot();
        return recordFileOperations(root(), [this] { poll(); });
    }

    /// Everything that may be on disk when the power fails at any point of `operations`.
    [[nodiscard]] std::set<Tree> losses(const std::vector<FileOperation>& operations,
                                        Disk::Detail detail) const {
        Disk disk(before_);
        std::set<Tree> all = disk.afterPowerLoss(detail);
        for (const FileOperation& operation : operations) {
            disk.apply(operation);
            all.merge(disk.afterPowerLoss(detail));
        }
        return all;
    }

    /// What is wrong with what is on disk, before the daemon does anything about it.
    [[nodiscard]] static std::vector<std::string> faultsOf(const Tree& tree, const Start& start) {
        std::vector<std::string> faults;
        for (const auto& [path, content] : updated.files()) {
            const auto old = start.files.find(path);
            const auto file = contentIn(tree, path);
            if (!file) {
                // None for a moment, between the removal of the old file and the move.
                if (old != start.files.end() && contentIn(tree, path + ".tmp") != content) {
                    faults.push_back(path + " is gone");
                }
            } else if (*file != content && (old == start.files.end() || *file != old->second)) {
                faults.push_back(path + " is damaged");
            }
        }
        if (contentIn(tree, etagFile) == updated.files().at(etagFile) &&
            contentIn(tree, policyFile) != updated.policy &&
            contentIn(tree, policyFile + std::string(".tmp")) != updated.policy) {
            faults.emplace_back("an ETag is stored whose policy is not on disk");
        }
        return faults;
    }

    /// What may be wrong on disk when the power fails in `operations`.
    [[nodiscard]] std::set<std::string> faultsIn(const std::vector<FileOperation>& operations,
                                                 const Start& start) const {
        std::set<std::string> faults;
        for (const Tree& tree : losses(operations, Disk::Detail::some)) {
            for (const std::string& fault : faultsOf(tree, start)) {
                faults.insert(fault);
            }
        }
        return faults;
    }

    static std::set<int> directoryHandles(const std::vector<FileOperation>& operations) {
        std::set<int> handles;
        for (const FileOperation& operation : operations) {
            if (operation.kind == Kind::open && fs::is_directory(root() / operation.path)) {
                handles.insert(operation.handle);
            }
        }
        return handles;
    }

    /// What each flush is of, and what may be wrong on disk when the power fails in a poll cycle
    /// without it.
    std::map<std::string, std::set<std::string>> faultsWithoutEachFlush(const Start& start) {
        const auto operations = recordUpdate(start);
        std::map<std::string, std::set<std::string>> faults;
        for (auto flush = operations.begin(); flush != operations.end(); ++flush) {
            if (flush->kind == Kind::flush) {
                auto without = operations;
                without.erase(without.begin() + (flush - operations.begin()));
                faults[nameOfFlush(operations, flush)] = faultsIn(without, start);
            }
        }
        return faults;
    }

    /// Goes through every state: what is on disk is sound, and the daemon makes up for the rest.
    void startFromEveryLoss(const Start& start, Disk::Detail detail) {
        const auto operations = recordUpdate(start);
        const std::set<Tree> states = losses(operations, detail);
        std::cout << operations.size() << " operations, " << states.size() << " states\n";
        for (const Tree& tree : states) {
            EXPECT_THAT(faultsOf(tree, start), IsEmpty()) << ::testing::PrintToString(tree);
            expectOnePollConverges(tree);
            expectAPolicyAfterAPollAt(outdated, tree);
            if (HasFailure()) {
                return;
            }
        }
    }

    [[nodiscard]] Tree before() const { return before_; }

    static Tree treeBelowRoot() {
        Tree tree;
        for (const auto& entry : fs::recursive_directory_iterator(root())) {
            const std::string path = fs::relative(entry.path(), root());
            tree[path] =
                entry.is_directory() ? std::nullopt : std::optional(readFile(entry.path()));
        }
        return tree;
    }

  private:
    using Operations = std::vector<FileOperation>;

    /// Which of the writes it belongs to: a file is flushed before it is renamed, the directory
    /// after that.
    static std::string nameOfFlush(const Operations& operations, Operations::const_iterator flush) {
        const auto isRename = [](const FileOperation& other) { return other.kind == Kind::rename; };
        const auto opened =
            std::find_if(operations.begin(), flush, [&](const FileOperation& other) {
                return other.kind == Kind::open && other.handle == flush->handle;
            });
        if (opened->creates) {
            return "content of " + std::find_if(flush, operations.end(), isRename)->argument;
        }
        const auto renamed =
            std::find_if(std::make_reverse_iterator(flush), operations.rend(), isRename);
        return "name of " + renamed->argument;
    }

    static Tree filesOf(const Start& start) {
        Tree tree{{"home", {}}, {"etc/machine-id", std::string(32, '1')}};
        tree["private/tmp/dev.orvane.setup/enroll-config.json"] = "{}";
        for (const auto& [path, content] : start.files) {
            tree[path] = content;
            tree["home/.orvane/logs/policy-daemon.activity.jsonl"] = "{\"earlier\":1}\n";
        }
        return tree;
    }

    static void putInPlace(const Tree& tree) {
        for (const char* directory : {"home", "private"}) {
            fs::remove_all(root() / directory);
        }
        for (const auto& [path, content] : tree) {
            content ? writeFile(root() / path, *content)
                    : (void)fs::create_directories(root() / path);
        }
    }

    void serve(const PolicyVersion& version, const Step& whenUnchanged = answer(304)) {
        test::serve(*server_, version, whenUnchanged);
    }

    /// One cycle of a daemon that has just been started.
    void poll() {
        removeLeftovers();
        PolicyRunner runner;
        runner.pollOnce({"managed", server_->url(), "key-1", {}, {}});
        constexpr int cyclesPerServer = 200;  // it keeps what it has seen
        if (++cycles_ % cyclesPerServer == 0) {
            server_ = std::make_unique<ScriptedServer>();
            log.clear();
        }
    }

    void expectOnePollConverges(const Tree& tree) {
        putInPlace(tree);
        serve(updated);
        poll();
        const Tree after = treeBelowRoot();
        for (const auto& [path, content] : updated.files()) {
            // Only a new policy brings the effective configuration.
            if (path != effectiveFile) {
                EXPECT_EQ(contentIn(after, path), content)
                    << "from " << ::testing::PrintToString(tree);
            }
        }
        expectNothingLeftOverByTheNextUpdate();
    }

    void expectNothingLeftOverByTheNextUpdate() {
        serve(newest);
        poll();
        Tree after = treeBelowRoot();
        for (const auto& [path, content] : newest.files()) {
            EXPECT_EQ(contentIn(after, path), content);
            after.erase(path);
        }
        std::erase_if(after, [](const auto& entry) { return !entry.second; });
        std::vector<std::string> others;
        std::transform(after.begin(), after.end(), std::back_inserter(others),
                       [](const auto& entry) { return entry.first; });
        EXPECT_THAT(others,
                    ElementsAre("etc/machine-id", "home/.orvane/logs/policy-daemon.activity.jsonl",
                                "private/tmp/dev.orvane.setup/enroll-config.json"));
    }

    /// A control plane that meanwhile went back says "unchanged" to the older ETag: then there has
    /// to be a policy.
    void expectAPolicyAfterAPollAt(const PolicyVersion& version, const Tree& tree) {
        putInPlace(tree);
        serve(version);
        poll();
        EXPECT_THAT(contentIn(treeBelowRoot(), policyFile), AnyOf(version.policy, updated.policy))
            << "from " << ::testing::PrintToString(tree);
    }

    std::unique_ptr<ScriptedServer> server_ = std::make_unique<ScriptedServer>();
    int cycles_ = 0;
    Tree before_;
};

class EveryLossTest : public PowerLossTest, public ::testing::WithParamInterface<Start> {};
using NightlyEveryLossTest = EveryLossTest;

TEST_P(EveryLossTest, WhatIsRecordedIsAllThatHappens) {
    const auto operations = recordUpdate(GetParam());
    Disk disk(before());
    for (const FileOperation& operation : operations) {
        disk.apply(operation);
    }
    EXPECT_EQ(disk.now(), treeBelowRoot());
}

TEST_P(EveryLossTest, NoFileIsEverThereWithAnotherModeThanItShouldHave) {
    const auto operations = recordUpdate(GetParam());
    Disk disk(before());
    std::set<std::string> written;
    for (const FileOperation& operation : operations) {
        disk.apply(operation);
        for (const auto& [path, content] : updated.files()) {
            const unsigned expected = path == capturePolicyFile ? 0644 : 0600;
            for (const unsigned mode : disk.possibleModes(path)) {
                EXPECT_EQ(mode, expected) << path;
                written.insert(path);
            }
        }
    }
    EXPECT_GE(written.size(), 3U);  // all but a capture file that stays
}

TEST_P(EveryLossTest, OnePollConverges) {
    startFromEveryLoss(GetParam(), Disk::Detail::some);
}

TEST_P(NightlyEveryLossTest, WithFilesCutAtEveryByteOnePollConverges) {
    startFromEveryLoss(GetParam(), Disk::Detail::all);
}

const auto allStarts = ::testing::ValuesIn(starts());
const auto nameOf = [](const auto& start) { return std::string(start.param.name); };
INSTANTIATE_TEST_SUITE_P(From, EveryLossTest, allStarts, nameOf);
INSTANTIATE_TEST_SUITE_P(From, NightlyEveryLossTest, allStarts, nameOf);

TEST(FileOperationsTest, ARecordingEndsWhileAnotherThreadClosesFiles) {
    std::atomic<bool> isOver = false;
    std::thread other([&] {
        while (!isOver) {
            (void)::close(-1);
        }
    });
    for (int i = 0; i < 100'000; ++i) {
        EXPECT_TRUE(recordFileOperations("/", [] {}).empty());
    }
    isOver = true;
    other.join();
}

TEST_F(PowerLossTest, TheFlushesThatKeepWhatIsPromisedAreMissedWhenTheyAreNotThere) {
    const auto faults = faultsWithoutEachFlush(starts().at(1));
    EXPECT_THAT(faults.at(std::string("content of ") + policyFile + ".tmp"),
                Contains("an ETag is stored whose policy is not on disk"));
    std::vector<std::string> missed;
    std::vector<std::string> notMissed;
    for (const auto& [flush, found] : faults) {
        (found.empty() ? notMissed : missed).push_back(flush);
    }
    const std::string orvane = "home/.orvane/";
    EXPECT_THAT(missed, ElementsAre("content of " + orvane + "guard-effective.json.tmp",
                                    "content of " + orvane + "policy-etag.json.tmp",
                                    "content of " + orvane + "policy.json.tmp",
                                    std::string("content of ") + capturePolicyFile,
                                    "name of " + orvane + "guard-effective.json.tmp",
                                    "name of " + orvane + "policy-etag.json.tmp",
                                    "name of " + orvane + "policy.json.tmp"));
    // Of these the next flush of the directory takes care, before anything that builds on them is
    // renamed (see below). They let a finished write be on disk at once, and not with the next.
    EXPECT_THAT(notMissed, ElementsAre(std::string("name of ") + effectiveFile,
                                       std::string("name of ") + etagFile,
                                       std::string("name of ") + policyFile,
                                       std::string("name of ") + capturePolicyFile));
}

TEST_F(PowerLossTest, WithoutNamesFlushedAnEtagMayOutliveItsPolicy) {
    const Start start = starts().at(1);
    auto operations = recordUpdate(start);
    const std::set<int> directories = directoryHandles(operations);
    std::erase_if(operations, [&](const FileOperation& operation) {
        return operation.kind == Kind::flush && directories.count(operation.handle) != 0;
    });
    // Up to where the ETag is in its place; more would be too many changes to combine.
    operations.erase(std::find_if(operations.begin(), operations.end(),
                                  [](const FileOperation& operation) {
                                      return operation.argument == etagFile;
                                  }) +
                         1,
                     operations.end());
    EXPECT_THAT(faultsIn(operations, start),
                Contains("an ETag is stored whose policy is not on disk"));
}

}  // namespace
}  // namespace orvane::test
