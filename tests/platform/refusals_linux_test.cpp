// What becomes of each operation when the system refuses one of its steps.
#include "platform/files/file_pieces.h"
#include "platform/files/files.h"
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/log/logger.h"
#include "platform/machine/accounts.h"
#include "platform/process/child_process.h"
#include "platform/scratch_name.h"
#include "platform/system_calls.h"
#include "support/log_capture.h"
#include "support/sanitizers.h"
#include "support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace orvane::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Optional;

/// Hooks that refuse one call, once.
SystemCallHooks refusing(const char* call, int number, int error) {
    SystemCallHooks hooks;
    hooks.refuse = refuseNth(call, number, error);
    return hooks;
}

constexpr const char* sanitizersCallToo = "sanitizers replace some of the refused calls themselves";

class RefusalTest : public ::testing::Test {
  protected:
    void SetUp() override { ORVANE_SKIP_UNDER_SANITIZERS(sanitizersCallToo); }

    [[nodiscard]] fs::path at(const std::string& name) const { return directory_.path() / name; }
    [[nodiscard]] fs::path directory() const { return directory_.path(); }

  private:
    TempDirectory directory_;
};

TEST_F(RefusalTest, WithoutAnyOfItsStepsNoToolIsLaunchedAndNothingIsLeftOpen) {
    writeFile(at("tool"), "#!/bin/sh\ntouch " + at("ran").string() + "\n");
    fs::permissions(at("tool"), fs::perms(0755));
    const std::pair<const char*, int> steps[] = {
        {"pipe", 2},
        {"fcntl", 4},
        {"posix_spawn_file_actions_adddup2", 2},
        {"posix_spawn_file_actions_addclosefrom_np", 1},
    };
    const std::size_t open = namesIn("/proc/self/fd").size();
    for (const auto& [call, times] : steps) {
        for (int number = 1; number <= times; ++number) {
            const WithSystemCallHooks installed(refusing(call, number, ENOMEM));
            EXPECT_EQ(outputOf(at("tool"), {}), std::nullopt) << call << " " << number;
            EXPECT_EQ(namesIn("/proc/self/fd").size(), open) << call << " " << number;
        }
    }
    EXPECT_FALSE(fs::exists(at("ran")));
}

TEST_F(RefusalTest, AnInterruptedLaunchIsRetried) {
    writeFile(at("tool"), "#!/bin/sh\necho out\n");
    fs::permissions(at("tool"), fs::perms(0755));
    const WithSystemCallHooks installed(refusing("posix_spawn", 1, EINTR));
    EXPECT_EQ(outputOf(at("tool"), {}), "out\n");
}

TEST_F(RefusalTest, AFileWithoutAStatusIsAbsent) {
    writeFile(at("f"), "text");
    const WithSystemCallHooks installed(refusing("fstat", 1, EIO));
    EXPECT_EQ(files::read(at("f")), std::nullopt);
    EXPECT_EQ(files::read(at("f")), "text");
}

TEST_F(RefusalTest, AFileWithoutAStatusIsNotReadInPieces) {
    writeFile(at("f"), "text");
    const WithSystemCallHooks installed(refusing("fstat", 1, EIO));
    EXPECT_FALSE(FilePieces::open(at("f")));
    EXPECT_TRUE(FilePieces::open(at("f")));
}

TEST_F(RefusalTest, WithoutAPipeOrAProcessNothingIsDoneAsAnotherAccount) {
    const Account own{accountName(::geteuid()), ::geteuid(), ::getegid(), "/"};
    for (const char* call : {"pipe", "fork", "poll"}) {
        const WithSystemCallHooks installed(refusing(call, 1, EAGAIN));
        EXPECT_EQ(resultAs(
                      own, [] { return "done"; }, std::chrono::seconds(30)),
                  std::nullopt)
            << call;
    }
}

TEST_F(RefusalTest, WithoutTheModeOfTheOldFileItStaysAsItIs) {
    writeFile(at("f"), "old");
    {
        const WithSystemCallHooks installed(refusing("fchmod", 1, EPERM));
        EXPECT_EQ(files::writeAtomically(at("f"), "new").value(), EPERM);
    }
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(namesIn(directory()), ElementsAre("f"));
}

TEST_F(RefusalTest, WhereNoModeCanBeSetAFileIsWrittenAnyway) {
    const WithSystemCallHooks installed(refusing("fchmod", 1, EPERM));
    EXPECT_FALSE(files::writeAtomically(at("f"), "new", 0644));
    EXPECT_EQ(readFile(at("f")), "new");
}

TEST_F(RefusalTest, AScratchFileOfOursThatCannotBeRemovedStaysTheOnlyOne) {
    writeFile(at(scratchNameOf("f")), "left");
    const WithSystemCallHooks installed(refusing("unlink", 1, EPERM));
    EXPECT_EQ(files::writeAtomically(at("f"), "new").value(), EPERM);
    EXPECT_THAT(namesIn(directory()), ElementsAre(scratchNameOf("f")));
}

TEST_F(RefusalTest, AScratchFileWithoutAStatusCountsAsForeign) {
    writeFile(at(scratchNameOf("f")), "left");
    SystemCallHooks hooks;
    hooks.refuse = [](std::string_view call) {
        return call == "unlink" || call == "lstat" ? EACCES : 0;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_EQ(readFile(at(scratchNameOf("f"))), "left");
}

TEST_F(RefusalTest, AForeignScratchFileThatCannotBeRemovedIsAvoided) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    writeFile(at(scratchNameOf("f")), "planted");
    ASSERT_EQ(::chown(at(scratchNameOf("f")).c_str(), 12345, static_cast<gid_t>(-1)), 0);
    const WithSystemCallHooks installed(refusing("unlink", 1, EPERM));
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_EQ(readFile(at(scratchNameOf("f"))), "planted");
}

TEST_F(RefusalTest, ARandomNameIsRetriedOnlyIfItIsTaken) {
    fs::create_directory(at(scratchNameOf("f")));
    int randomNames = 0;
    SystemCallHooks hooks;
    hooks.open = [&](const char* path) -> std::optional<int> {
        const std::string name = fs::path(path).filename();
        if (!name.starts_with(".f.") || name == scratchNameOf("f")) {
            return std::nullopt;
        }
        ++randomNames;
        return failWith(ENOSPC);
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(files::writeAtomically(at("f"), "new").value(), ENOSPC);
    EXPECT_EQ(randomNames, 1);
}

TEST_F(RefusalTest, ADirectoryThatSomebodyElseMakesFirstIsAsGood) {
    SystemCallHooks hooks;
    bool isMine = true;
    hooks.refuse = [&](std::string_view call) {
        if (call != "mkdir" || !std::exchange(isMine, false)) {
            return 0;
        }
        fs::create_directory(at("a"));
        return EEXIST;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_FALSE(files::createDirectories(at("a")));
}

TEST_F(RefusalTest, WithoutASocketForTheJournalMessagesGoToStandardError) {
    const LogCapture capture;
    struct stat status {};
    ASSERT_EQ(::fstat(2, &status), 0);
    const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    ::setenv("JOURNAL_STREAM", stream.c_str(), 1);
    {
        const WithSystemCallHooks installed(refusing("socket", 1, EMFILE));
        Logger("dev.orvane", "policy").log("line");
    }
    ::unsetenv("JOURNAL_STREAM");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

class ThreadRefusalTest : public HttpTest {
  protected:
    void SetUp() override { ORVANE_SKIP_UNDER_SANITIZERS(sanitizersCallToo); }
};

TEST_F(ThreadRefusalTest, WithoutAThreadTheExchangeFailsAndTheNextOneTriesAgain) {
    constexpr const char* nobodyListens = "http://127.0.0.1:1/";
    HttpSession session(limits);
    {
        const WithSystemCallHooks installed(refusing("pthread_create", 1, EAGAIN));
        Exchange exchange(session, requestFor(nobodyListens));
        ASSERT_TRUE(exchange.isComplete());
        EXPECT_EQ(exchange.thread(), std::this_thread::get_id());
        EXPECT_THAT(exchange.result().error(), Optional(std::string("Failed initialization")));
    }
    EXPECT_THAT(fetch(session, nobodyListens).error(),
                Optional(std::string("Could not connect to the server.")));
}

}  // namespace

}  // namespace orvane::test
