#include "daemon/policy_runner.h"
#include "support/daemon_test.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AtomicWriteTest : public DaemonTest {
  protected:
    void write(std::string_view data) { runner.atomicWrite(data, destination()); }
    [[nodiscard]] static fs::path destination() { return orvane() / "policy.json"; }
    [[nodiscard]] static fs::path temporary() { return orvane() / "policy.json.tmp"; }
    [[nodiscard]] static std::string failure(const std::string& why) {
        return "error atomic write to " + destination().string() + " failed: " + why;
    }

    PolicyRunner runner;
};

TEST_F(AtomicWriteTest, TheFirstWriteMakesTheDirectory) {
    write("data");
    EXPECT_EQ(readFile(destination()), "data");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(AtomicWriteTest, AnExistingFileIsReplacedAsAWhole) {
    writeFile(destination(), "a longer old content");
    write("new");
    EXPECT_EQ(readFile(destination()), "new");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(AtomicWriteTest, TheFileGetsThePlatformsDefaultMode) {
    for (const mode_t mask : std::initializer_list<mode_t>{0000, 0022, 0077}) {
        const mode_t before = ::umask(mask);
        write("data");
        (void)::umask(before);
        EXPECT_EQ(modeOf(destination()), 0666U & ~mask);
    }
}

TEST_F(AtomicWriteTest, AModeThatSomebodySetIsNotKeptForTheDestinationIsRemovedFirst) {
    writeFile(destination(), "old");
    fs::permissions(destination(), fs::perms(0600));
    const mode_t before = ::umask(0022);
    write("new");
    (void)::umask(before);
    EXPECT_EQ(modeOf(destination()), 0644U);
}

TEST_F(AtomicWriteTest, ALeftoverTemporaryIsOverwritten) {
    writeFile(temporary(), "left over");
    write("data");
    EXPECT_EQ(readFile(destination()), "data");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(AtomicWriteTest, APlainFileAsParentFailsTheWrite) {
    writeFile(orvane(), "plain");
    write("data");
    EXPECT_THAT(logLines(), ElementsAre(failure("Not a directory")));
    EXPECT_EQ(readFile(orvane()), "plain");
}

TEST_F(AtomicWriteTest, ADirectoryThatCannotBeMadeIsOneErrorThatNamesTheDestination) {
    writeFile(root() / "home", "plain");
    write("data");
    EXPECT_THAT(logLines(), ElementsAre(failure("Not a directory")));
    EXPECT_THAT(namesIn(root()), ElementsAre("home"));
}

TEST_F(AtomicWriteTest, ADanglingLinkAsParentCountsAsMissingAndFails) {
    fs::create_directories(orvane().parent_path());
    fs::create_symlink("nowhere", orvane());
    write("data");
    ASSERT_EQ(logLines().size(), 1U);
    EXPECT_THAT(logLines()[0], ::testing::StartsWith(failure("")));
}

TEST_F(AtomicWriteTest, ATemporaryThatCannotBeWrittenLeavesTheDestination) {
    writeFile(destination(), "old");
    fs::create_directories(temporary() / "in the way");
    write("new");
    EXPECT_THAT(logLines(), ElementsAre(failure("Is a directory")));
    EXPECT_EQ(readFile(destination()), "old");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json", "policy.json.tmp"));
}

TEST_F(AtomicWriteTest, ADestinationThatCannotBeRemovedFailsTheMoveAndLeavesTheNewContentBeside) {
    writeFile(destination() / "inner", "kept");
    write("new");
    EXPECT_THAT(logLines(), ElementsAre(failure("File exists")));
    EXPECT_EQ(readFile(destination() / "inner"), "kept");
    EXPECT_EQ(readFile(temporary()), "new");
}

TEST_F(AtomicWriteTest, TheNextWriteAfterAFailedMoveCompletes) {
    writeFile(destination() / "inner", "kept");
    write("first");
    fs::remove_all(destination());
    write("second");
    EXPECT_EQ(readFile(destination()), "second");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
}

TEST_F(AtomicWriteTest, AnEmptyDirectoryAtTheDestinationMakesWay) {
    fs::create_directories(destination());
    write("data");
    EXPECT_EQ(readFile(destination()), "data");
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(AtomicWriteTest, LinksAtTheNamesAreReplacedAndNotFollowed) {
    const fs::path victim = root() / "victim";
    writeFile(victim, "untouched");
    fs::create_directories(orvane());
    fs::create_symlink(victim, destination());
    fs::create_symlink(victim, temporary());
    write("data");
    EXPECT_EQ(readFile(victim), "untouched");
    EXPECT_EQ(readFile(destination()), "data");
    EXPECT_FALSE(fs::is_symlink(destination()));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(AtomicWriteTest, WithoutPermissionNothingChanges) {
    if (::geteuid() == 0) {
        // root may write anywhere, so an unprivileged child does the writing
        fs::permissions(root(), fs::perms(0755));
        writeFile(destination(), "old");
        const pid_t child = ::fork();
        if (child == 0) {
            constexpr uid_t nobody = 65534;
            if (::setuid(nobody) != 0) {
                ::_exit(1);
            }
            write("new");
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    } else {
        writeFile(destination(), "old");
        fs::permissions(orvane(), fs::perms(0555));
        write("new");
        fs::permissions(orvane(), fs::perms(0755));
    }
    EXPECT_THAT(logLines(), ElementsAre(failure("Permission denied")));
    EXPECT_EQ(readFile(destination()), "old");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
}

}  // namespace
}  // namespace orvane::test
