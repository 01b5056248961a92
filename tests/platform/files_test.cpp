#include "platform/files/files.h"

#include "platform/scratch_name.h"
#include "platform/system_calls.h"
#include "support/in_child.h"
#include "support/test_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace orvane::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using namespace std::string_literals;

/// The process's file mode mask, for a while.
class WithMask {
  public:
    explicit WithMask(mode_t mask) : original_(::umask(mask)) {}
    WithMask(const WithMask&) = delete;
    WithMask& operator=(const WithMask&) = delete;
    ~WithMask() { ::umask(original_); }

  private:
    mode_t original_;
};

class FilesTest : public ::testing::Test {
  protected:
    /// The path of `name` in the test's own directory.
    [[nodiscard]] fs::path at(const fs::path& name) const { return directory_.path() / name; }
    [[nodiscard]] std::vector<std::string> names() const { return namesIn(directory_.path()); }

    /// Lets users without privileges in.
    void open() const { fs::permissions(directory_.path(), fs::perms(0777)); }

    /// A sparse file of `size` bytes.
    void makeSparse(const fs::path& name, std::uintmax_t size) const {
        writeFile(at(name), "");
        fs::resize_file(at(name), size);
    }

    void makeFifo(const fs::path& name) const {
        if (::mkfifo(at(name).c_str(), 0666) != 0) {
            throw std::runtime_error("no FIFO");
        }
    }

  private:
    TempDirectory directory_;
};

bool isLink(const fs::path& path) {
    return fs::is_symlink(fs::symlink_status(path));
}

int codeOf(const std::error_code& error) {
    return error.value();
}

class FilesReadTest : public FilesTest {};
class FilesWriteAtomicallyTest : public FilesTest {};
class FilesAppendLineTest : public FilesTest {};
class FilesMoveTest : public FilesTest {};
class FilesRemoveTest : public FilesTest {};
class FilesDirectoriesTest : public FilesTest {};
class FilesModeTest : public FilesTest {};
class FilesExistsTest : public FilesTest {};

// --- read

TEST_F(FilesReadTest, TheContentIsReadByteForByte) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) {
        every += static_cast<char>(byte);
    }
    writeFile(at("f"), every + "\r\n\0\n"s);
    EXPECT_THAT(files::read(at("f")), Optional(every + "\r\n\0\n"s));
}

TEST_F(FilesReadTest, AnEmptyFileIsAnEmptyString) {
    writeFile(at("f"), "");
    EXPECT_THAT(files::read(at("f")), Optional(""s));
}

TEST_F(FilesReadTest, ALongFileIsComplete) {
    std::string content;
    for (int i = 0; i < 100'000; ++i) {
        content += std::to_string(i);
    }
    writeFile(at("f"), content);
    EXPECT_TRUE(files::read(at("f")) == content);
}

TEST_F(FilesReadTest, AMissingFileIsAbsent) {
    EXPECT_EQ(files::read(at("f")), std::nullopt);
    EXPECT_EQ(files::read(at("no/f")), std::nullopt);
    EXPECT_EQ(files::read(""), std::nullopt);
}

TEST_F(FilesReadTest, ADirectoryIsAbsent) {
    EXPECT_EQ(files::read(at("")), std::nullopt);
}

TEST_F(FilesReadTest, AFifoIsNotReadAndDoesNotBlock) {
    makeFifo("f");
    EXPECT_EQ(files::read(at("f")), std::nullopt);
}

TEST_F(FilesReadTest, AFifoWithAWriterIsNotReadEither) {
    makeFifo("f");
    const int end = ::open(at("f").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(end, "x", 1), 1);
    EXPECT_EQ(files::read(at("f")), std::nullopt);
    ::close(end);
}

TEST_F(FilesReadTest, ADeviceIsAbsent) {
    EXPECT_EQ(files::read("/dev/zero"), std::nullopt);
    EXPECT_EQ(files::read("/dev/null"), std::nullopt);
}

TEST_F(FilesReadTest, ALinkToAFileIsFollowed) {
    writeFile(at("f"), "content");
    fs::create_symlink("f", at("link"));
    EXPECT_THAT(files::read(at("link")), Optional("content"s));
}

TEST_F(FilesReadTest, ADanglingLinkIsAbsent) {
    fs::create_symlink("missing", at("link"));
    EXPECT_EQ(files::read(at("link")), std::nullopt);
}

TEST_F(FilesReadTest, AFileWithoutPermissionIsAbsent) {
    writeFile(at("f"), "secret");
    fs::permissions(at("f"), fs::perms(0));
    open();
    EXPECT_EQ(inUnprivilegedChild([&] { return files::read(at("f")).value_or("absent"); }),
              "absent");
}

TEST_F(FilesReadTest, TheLimitIsThatOfAnHttpBody) {
    EXPECT_EQ(files::sizeLimit, 104'857'600U);
}

TEST_F(FilesReadTest, AFileOfTheLimitIsTakenOneByteMoreIsNot) {
    makeSparse("f", files::sizeLimit);
    const auto content = files::read(at("f"));
    ASSERT_TRUE(content);
    EXPECT_EQ(content->size(), files::sizeLimit);
    makeSparse("f", files::sizeLimit + 1);
    EXPECT_EQ(files::read(at("f")), std::nullopt);
}

TEST_F(FilesReadTest, AHugeFileIsRefusedBeforeAnythingIsRead) {
    makeSparse("f", std::uintmax_t{10} * 1024 * 1024 * 1024);
    int reads = 0;
    SystemCallHooks hooks;
    hooks.read = [&](int, std::size_t) -> std::optional<ssize_t> {
        ++reads;
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(files::read(at("f")), std::nullopt);
    EXPECT_EQ(reads, 0);
}

TEST_F(FilesReadTest, AFileThatGrowsMeanwhileIsTakenAsItGrew) {
    writeFile(at("f"), "start");
    int reads = 0;
    SystemCallHooks hooks;
    hooks.read = [&](int, std::size_t) -> std::optional<ssize_t> {
        if (++reads == 1) {
            std::string more(20'000, 'x');
            const int file = ::open(at("f").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
            (void)!::write(file, more.data(), more.size());
            ::close(file);
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(files::read(at("f")), Optional("start" + std::string(20'000, 'x')));
}

TEST_F(FilesReadTest, AFileThatGrowsBeyondTheLimitIsRefused) {
    writeFile(at("f"), "start");
    int reads = 0;
    SystemCallHooks hooks;
    hooks.read = [&](int, std::size_t) -> std::optional<ssize_t> {
        if (++reads == 1) {
            fs::resize_file(at("f"), files::sizeLimit + 1);
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(files::read(at("f")), std::nullopt);
}

TEST_F(FilesReadTest, AFailedReadIsAbsent) {
    writeFile(at("f"), "content");
    SystemCallHooks hooks;
    hooks.read = [](int, std::size_t) { return std::optional<ssize_t>(failWith(EIO)); };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(files::read(at("f")), std::nullopt);
}

TEST_F(FilesReadTest, InterruptionsChangeNothing) {
    writeFile(at("f"), "content");
    int calls = 0;
    SystemCallHooks hooks;
    hooks.open = [&](const char*) {
        return calls++ < 2 ? std::optional(failWith(EINTR)) : std::nullopt;
    };
    hooks.read = [&](int, std::size_t) {
        return calls++ % 2 == 0 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(files::read(at("f")), Optional("content"s));
}

TEST_F(FilesReadTest, NoDescriptorStaysOpen) {
    writeFile(at("f"), "content");
    const auto before = openDescriptors().size();
    (void)files::read(at("f"));
    (void)files::read(at(""));
    (void)files::read(at("missing"));
    EXPECT_EQ(openDescriptors().size(), before);
}

TEST_F(FilesReadTest, TheDescriptorIsNotInheritedByChildren) {
    writeFile(at("f"), "content");
    std::vector<std::string> inheritable;
    SystemCallHooks hooks;
    hooks.close = [&](int descriptor) -> std::optional<int> {
        if (::fcntl(descriptor, F_GETFD) == 0) {
            inheritable.push_back(pathOf(descriptor));
        }
        return std::nullopt;
    };
    {
        const WithSystemCallHooks installed(hooks);
        (void)files::read(at("f"));
    }
    EXPECT_THAT(inheritable, IsEmpty());
}

TEST_F(FilesReadTest, TheLimitMayBeASmallerOne) {
    makeSparse("f", files::foreignSizeLimit);
    EXPECT_EQ(files::read(at("f"), files::foreignSizeLimit)->size(), 1'048'576U);
    makeSparse("f", files::foreignSizeLimit + 1);
    EXPECT_EQ(files::read(at("f"), files::foreignSizeLimit), std::nullopt);
    EXPECT_TRUE(files::read(at("f")));
}

// --- readInPieces

class FilesReadInPiecesTest : public FilesTest {
  protected:
    /// What comes in pieces, if it was read to its end.
    [[nodiscard]] std::optional<std::string> readAll(const fs::path& name) const {
        std::string content;
        const bool isWhole = files::readInPieces(at(name), [&](std::string_view piece) {
            EXPECT_FALSE(piece.empty());
            EXPECT_LE(piece.size(), 65'536U);
            content += piece;
            return true;
        });
        return isWhole ? std::optional(content) : std::nullopt;
    }
};

TEST_F(FilesReadInPiecesTest, ThePiecesMakeTheFile) {
    std::string content;
    for (int i = 0; i < 100'000; ++i) {
        content += std::to_string(i);
    }
    writeFile(at("f"), content);
    EXPECT_TRUE(readAll("f") == content);
    writeFile(at("f"), "");
    EXPECT_THAT(readAll("f"), Optional(""s));
}

TEST_F(FilesReadInPiecesTest, WhatIsNoFileIsNotRead) {
    EXPECT_EQ(readAll("f"), std::nullopt);
    EXPECT_EQ(readAll(""), std::nullopt);
    makeFifo("f");
    EXPECT_EQ(readAll("f"), std::nullopt);
}

TEST_F(FilesReadInPiecesTest, ALinkToAFileIsFollowed) {
    writeFile(at("f"), "content");
    fs::create_symlink("f", at("link"));
    EXPECT_THAT(readAll("link"), Optional("content"s));
}

TEST_F(FilesReadInPiecesTest, AFileOfAnySizeIsReadToItsEnd) {
    constexpr off_t size = off_t{1} << 40;
    makeSparse("f", size);
    SystemCallHooks hooks;
    hooks.read = [&](int descriptor, std::size_t) -> std::optional<ssize_t> {
        // Most of it is skipped, for time.
        if (::lseek(descriptor, 0, SEEK_CUR) == 65'536) {
            ::lseek(descriptor, size - 10, SEEK_SET);
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(readAll("f")->size(), 65'546U);
}

TEST_F(FilesReadInPiecesTest, AFileThatGrowsIsReadToItsNewEnd) {
    makeSparse("f", 100);
    std::size_t bytes = 0;
    EXPECT_TRUE(files::readInPieces(at("f"), [&](std::string_view piece) {
        fs::resize_file(at("f"), 150);
        bytes += piece.size();
        return true;
    }));
    EXPECT_EQ(bytes, 150U);
}

TEST_F(FilesReadInPiecesTest, NothingIsReadBeyondAPieceThatIsRefused) {
    makeSparse("f", std::uintmax_t{1} << 39);
    int pieces = 0;
    EXPECT_FALSE(files::readInPieces(at("f"), [&](std::string_view) { return ++pieces < 3; }));
    EXPECT_EQ(pieces, 3);
}

TEST_F(FilesReadInPiecesTest, AFailedReadIsAFailureAndAnInterruptedOneIsNot) {
    writeFile(at("f"), "content");
    int reads = 0;
    SystemCallHooks hooks;
    hooks.read = [&](int, std::size_t) {
        return ++reads == 1 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
    };
    {
        const WithSystemCallHooks installed(hooks);
        EXPECT_THAT(readAll("f"), Optional("content"s));
    }
    hooks.read = [](int, std::size_t) { return std::optional<ssize_t>(failWith(EIO)); };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(readAll("f"), std::nullopt);
}

// --- removeScratchFiles

class FilesRemoveScratchFilesTest : public FilesTest {};

TEST_F(FilesRemoveScratchFilesTest, WhatAKilledProcessLeftIsRemovedAndNothingElse) {
    const std::string user = std::to_string(::geteuid());
    const std::string stranger = std::to_string(::geteuid() + 1);
    writeFile(at(leftoverNameOf("policy.json.tmp")), "half of a po");
    writeFile(at(leftoverNameOf("f")), "");
    const std::vector<std::string> others{".f." + user + ".0123456789abcde.tmp",
                                          ".f." + user + ".0123456789abcdeg.tmp",
                                          ".f." + user + ".0123456789abcdef",
                                          ".f." + user + ".0123456789abcdef.tmp2",
                                          ".f." + user + ".tmp",
                                          ".f." + stranger + ".0123456789abcdef.tmp",
                                          "." + user + ".0123456789abcdef.tmp",
                                          "f",
                                          "f." + user + ".0123456789abcdef.tmp",
                                          "f.tmp"};
    for (const std::string& name : others) {
        writeFile(at(name), "kept");
    }
    files::removeScratchFiles(at(""));
    EXPECT_THAT(names(), ::testing::UnorderedElementsAreArray(others));
}

TEST_F(FilesRemoveScratchFilesTest, OnlyAFileOfThisAccountIsRemoved) {
    writeFile(at("victim"), "kept");
    fs::create_symlink("victim", at(leftoverNameOf("link")));
    fs::create_directory(at(leftoverNameOf("directory")));
    makeFifo(leftoverNameOf("fifo"));
    std::size_t count = 4;
    if (::geteuid() == 0) {
        writeFile(at(leftoverNameOf("foreign")), "kept");
        ASSERT_EQ(::chown(at(leftoverNameOf("foreign")).c_str(), 12345, 12345), 0);
        ++count;
    }
    files::removeScratchFiles(at(""));
    EXPECT_THAT(names(), ::testing::SizeIs(count));
}

TEST_F(FilesRemoveScratchFilesTest, WhereThereIsNoDirectoryNothingIsMade) {
    files::removeScratchFiles(at("no"));
    writeFile(at("f"), "");
    files::removeScratchFiles(at("f"));
    EXPECT_THAT(names(), ElementsAre("f"));
}

// --- writeAtomically

TEST_F(FilesWriteAtomicallyTest, ANewFileHasTheContent) {
    const std::string content = "a\0\xFF\r\n"s;
    EXPECT_FALSE(files::writeAtomically(at("f"), content));
    EXPECT_EQ(readFile(at("f")), content);
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AnExistingFileIsReplacedAsAWhole) {
    writeFile(at("f"), "the old and longer content");
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AReaderOfTheOldFileKeepsIt) {
    writeFile(at("f"), "old");
    const int reader = ::open(at("f").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    std::string content(10, '\0');
    content.resize(static_cast<std::size_t>(::read(reader, content.data(), content.size())));
    ::close(reader);
    EXPECT_EQ(content, "old");
}

TEST_F(FilesWriteAtomicallyTest, EmptyContentMakesAnEmptyFile) {
    writeFile(at("f"), "old");
    EXPECT_FALSE(files::writeAtomically(at("f"), ""));
    EXPECT_EQ(readFile(at("f")), "");
}

TEST_F(FilesWriteAtomicallyTest, LongContentIsComplete) {
    const std::string content(std::size_t{5} * 1024 * 1024, 'x');
    EXPECT_FALSE(files::writeAtomically(at("f"), content));
    EXPECT_TRUE(readFile(at("f")) == content);
}

TEST_F(FilesWriteAtomicallyTest, ANewFileGetsWhatTheMaskLeaves) {
    const struct {
        mode_t mask;
        unsigned mode;
    } table[] = {{0022, 0644}, {0077, 0600}, {0000, 0666}, {0027, 0640}};
    for (const auto& row : table) {
        const WithMask mask(row.mask);
        const fs::path path = at("f" + std::to_string(row.mask));
        EXPECT_FALSE(files::writeAtomically(path, "x"));
        EXPECT_EQ(modeOf(path), row.mode);
    }
}

TEST_F(FilesWriteAtomicallyTest, AnExistingFilesModeIsKept) {
    const WithMask mask(0022);
    for (const mode_t mode : std::initializer_list<mode_t>{0600, 0666, 0444, 0755, 0777, 0000}) {
        writeFile(at("f"), "old");
        ASSERT_EQ(::chmod(at("f").c_str(), mode), 0);
        EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
        EXPECT_EQ(modeOf(at("f")), mode);
        fs::remove(at("f"));
    }
}

TEST_F(FilesWriteAtomicallyTest, OnlyPermissionBitsAreKept) {
    writeFile(at("f"), "old");
    ASSERT_EQ(::chmod(at("f").c_str(), 07755), 0);
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(modeOf(at("f")), 0755U);
}

TEST_F(FilesWriteAtomicallyTest, ALinkIsItselfReplacedItsTargetUntouched) {
    const WithMask mask(0022);
    writeFile(at("target"), "old");
    ASSERT_EQ(::chmod(at("target").c_str(), 0600), 0);
    fs::create_symlink("target", at("link"));
    EXPECT_FALSE(files::writeAtomically(at("link"), "new"));
    EXPECT_FALSE(isLink(at("link")));
    EXPECT_EQ(readFile(at("link")), "new");
    EXPECT_EQ(modeOf(at("link")), 0644U);
    EXPECT_EQ(readFile(at("target")), "old");
}

TEST_F(FilesWriteAtomicallyTest, ADanglingLinkIsReplacedToo) {
    fs::create_symlink("missing", at("link"));
    EXPECT_FALSE(files::writeAtomically(at("link"), "new"));
    EXPECT_EQ(readFile(at("link")), "new");
    EXPECT_THAT(names(), ElementsAre("link"));
}

TEST_F(FilesWriteAtomicallyTest, AFifoIsReplacedWithoutBlocking) {
    makeFifo("f");
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(readFile(at("f")), "new");
}

TEST_F(FilesWriteAtomicallyTest, AMissingParentIsAnError) {
    EXPECT_EQ(codeOf(files::writeAtomically(at("no/f"), "x")), ENOENT);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesWriteAtomicallyTest, APlainFileAsParentIsAnError) {
    writeFile(at("plain"), "old");
    EXPECT_EQ(codeOf(files::writeAtomically(at("plain/f"), "x")), ENOTDIR);
    EXPECT_EQ(readFile(at("plain")), "old");
}

TEST_F(FilesWriteAtomicallyTest, ADirectoryAtTheDestinationIsAnErrorAndNoScratchStays) {
    fs::create_directory(at("d"));
    EXPECT_TRUE(files::writeAtomically(at("d"), "x"));
    EXPECT_TRUE(fs::is_directory(at("d")));
    EXPECT_THAT(names(), ElementsAre("d"));
    EXPECT_THAT(namesIn(at("d")), IsEmpty());
}

TEST_F(FilesWriteAtomicallyTest, AReadOnlyDirectoryIsAnError) {
    open();
    writeFile(at("f"), "old");
    fs::permissions(at(""), fs::perms(0555));
    EXPECT_EQ(inUnprivilegedChild(
                  [&] { return std::to_string(codeOf(files::writeAtomically(at("f"), "new"))); }),
              std::to_string(EACCES));
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
    open();
}

TEST_F(FilesWriteAtomicallyTest, RunningOutOfSpaceLeavesTheOldFileAndNoScratch) {
    writeFile(at("f"), "old");
    EXPECT_EQ(inChild([&] {
                  (void)std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{1000, 1000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  const std::string content(5000, 'x');
                  return std::to_string(codeOf(files::writeAtomically(at("f"), content)));
              }),
              std::to_string(EFBIG));
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AFileThatGetsTheNumberOfStandardInputIsAFile) {
    EXPECT_EQ(inChild([&] {
                  (void)::close(STDIN_FILENO);
                  const auto error = files::writeAtomically(at("f"), "new");
                  return std::to_string(codeOf(error)) + files::read(at("f")).value_or("?");
              }),
              "0new");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, UnrelatedFilesAreUntouched) {
    writeFile(at(".f.0000000000000000.tmp"), "somebody's");
    writeFile(at("f.tmp"), "somebody's");
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_EQ(readFile(at(".f.0000000000000000.tmp")), "somebody's");
    EXPECT_EQ(readFile(at("f.tmp")), "somebody's");
    EXPECT_THAT(names(), ElementsAre(".f.0000000000000000.tmp", "f", "f.tmp"));
}

TEST_F(FilesWriteAtomicallyTest, APathWithoutADirectoryMeansTheWorkingDirectory) {
    EXPECT_EQ(inChild([&] {
                  fs::current_path(at(""));
                  return std::to_string(codeOf(files::writeAtomically("f", "new")));
              }),
              "0");
    EXPECT_EQ(readFile(at("f")), "new");
}

TEST_F(FilesWriteAtomicallyTest, TheContentIsOnDiskBeforeItGetsItsNameAndTheNameBeforeTheEnd) {
    writeFile(at("f"), "old");
    std::vector<std::string> flushes;
    SystemCallHooks hooks;
    hooks.flush = [&](int descriptor) -> std::optional<int> {
        const fs::path path = pathOf(descriptor);
        const bool isDirectory = fs::is_directory(path);
        flushes.push_back((isDirectory ? "directory" : "file with " + readFile(path)) +
                          ", target has " + readFile(at("f")));
        EXPECT_TRUE(isDirectory ? path == at("f").parent_path()
                                : path.parent_path() == at("f").parent_path());
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    EXPECT_THAT(flushes, ElementsAre("file with new, target has old", "directory, target has new"));
}

/// What this account's scratch files for "f" are called.
std::string scratchNamePattern() {
    return "\\.f\\." + std::to_string(::geteuid()) + "\\.[0-9a-f]{16}\\.tmp";
}

TEST_F(FilesWriteAtomicallyTest, TheScratchFileIsHiddenBesideTheTargetAndThisProcesssOwn) {
    const std::string name = scratchNameOfAWriteTo(at("f"));
    EXPECT_TRUE(std::regex_match(name, std::regex(scratchNamePattern()))) << name;
    EXPECT_EQ(scratchNameOfAWriteTo(at("f")), name);
    EXPECT_NE(name, leftoverNameOf("f"));
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, EachProcessHasScratchFilesOfItsOwn) {
    const auto nameInAChild = [this] {
        return inChild([this] { return scratchNameOfAWriteTo(at("f")); });
    };
    EXPECT_NE(nameInAChild(), nameInAChild());
}

TEST_F(FilesWriteAtomicallyTest, AScratchFileThatThisProcessCouldNotRemoveIsReplaced) {
    writeFile(at(scratchNameOf("f")), "half of the con");
    fs::permissions(at(scratchNameOf("f")), fs::perms::none);
    const WithMask mask(022);
    EXPECT_EQ(scratchNameOfAWriteTo(at("f")), scratchNameOf("f"));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_EQ(modeOf(at("f")), 0644U);
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, ALinkAtTheScratchNameIsReplacedAndNotFollowed) {
    writeFile(at("victim"), "safe");
    fs::create_symlink(at("victim"), at(scratchNameOf("f")));
    EXPECT_EQ(scratchNameOfAWriteTo(at("f")), scratchNameOf("f"));
    EXPECT_EQ(readFile(at("victim")), "safe");
    EXPECT_FALSE(fs::is_symlink(at("f")));
}

TEST_F(FilesWriteAtomicallyTest, WhatCannotBeRemovedAtTheScratchNameIsAvoided) {
    fs::create_directory(at(scratchNameOf("f")));
    const std::string first = scratchNameOfAWriteTo(at("f"));
    const std::string second = scratchNameOfAWriteTo(at("f"));
    EXPECT_TRUE(std::regex_match(first, std::regex(scratchNamePattern()))) << first;
    EXPECT_NE(first, scratchNameOf("f"));
    EXPECT_NE(first, second);
    EXPECT_THAT(names(), ElementsAre(scratchNameOf("f"), "f"));
}

TEST_F(FilesWriteAtomicallyTest, WhenAnotherProcessRemovesTheScratchFileItIsWrittenAgain) {
    writeFile(at("f"), "old");
    int removals = 0;
    SystemCallHooks hooks;
    hooks.flush = [&](int descriptor) -> std::optional<int> {
        const fs::path path = pathOf(descriptor);
        if (path.filename() == scratchNameOf("f") && removals++ < 2) {
            files::removeScratchFiles(at(""));
        }
        return std::nullopt;
    };
    (void)scratchNameOf("f");
    {
        const WithSystemCallHooks installed(hooks);
        EXPECT_FALSE(files::writeAtomically(at("f"), "new"));
    }
    EXPECT_EQ(removals, 3);
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, ScratchFilesThatAreRemovedEachTimeAreAnErrorInTheEnd) {
    writeFile(at("f"), "old");
    int removals = 0;
    SystemCallHooks hooks;
    hooks.flush = [&](int) -> std::optional<int> {
        ++removals;
        files::removeScratchFiles(at(""));
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(codeOf(files::writeAtomically(at("f"), "new")), ENOENT);
    EXPECT_EQ(removals, 3);
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, ARequestedModeIsSetBeforeTheRename) {
    for (const mode_t mask : std::initializer_list<mode_t>{0000, 0077, 0777}) {
        for (const bool isReplacement : {false, true}) {
            fs::remove(at("f"));
            if (isReplacement) {
                writeFile(at("f"), "old");
                fs::permissions(at("f"), fs::perms(0600));
            }
            unsigned modeOfScratch = 0;
            SystemCallHooks hooks;
            hooks.flush = [&](int descriptor) -> std::optional<int> {
                const fs::path path = pathOf(descriptor);
                modeOfScratch = fs::is_directory(path) ? modeOfScratch : modeOf(path);
                return std::nullopt;
            };
            const WithMask set(mask);
            const WithSystemCallHooks installed(hooks);
            EXPECT_FALSE(files::writeAtomically(at("f"), "new", 0644));
            EXPECT_EQ(modeOfScratch, 0644U);
            EXPECT_EQ(modeOf(at("f")), 0644U);
        }
    }
}

/// Writes "new" over "old" with `hooks` in place.
std::error_code replaceOld(const fs::path& path, const SystemCallHooks& hooks) {
    writeFile(path, "old");
    const WithSystemCallHooks installed(hooks);
    return files::writeAtomically(path, "new");
}

TEST_F(FilesWriteAtomicallyTest, AFailedFlushLeavesTheOldFileAndNoScratch) {
    // The system reports a lost write once: a second flush would succeed.
    int flushes = 0;
    SystemCallHooks hooks;
    hooks.flush = [&](int) { return ++flushes == 1 ? std::optional(failWith(EIO)) : std::nullopt; };
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), EIO);
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AFailedCloseLeavesTheOldFileAndNoScratch) {
    SystemCallHooks hooks;
    hooks.close = [](int descriptor) {
        const bool isScratch = pathOf(descriptor).find("/.f.") != std::string::npos;
        return isScratch ? std::optional(failWith(EIO)) : std::nullopt;
    };
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), EIO);
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AFailedWriteLeavesTheOldFileAndNoScratch) {
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        size = 1;
        return ++writes == 2 ? std::optional<ssize_t>(failWith(ENOSPC)) : std::nullopt;
    };
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), ENOSPC);
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, AWriteThatTakesNothingIsNotRetriedIndefinitely) {
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) -> std::optional<ssize_t> {
        errno = EINTR;  // left over from something else
        return ++writes < 3 ? 0 : failWith(EIO);
    };
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), EIO);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(readFile(at("f")), "old");
    EXPECT_THAT(names(), ElementsAre("f"));
}

TEST_F(FilesWriteAtomicallyTest, ShortAndInterruptedCallsAreContinued) {
    int opens = 0;
    int writes = 0;
    SystemCallHooks hooks;
    hooks.open = [&](const char*) {
        return ++opens == 1 ? std::optional(failWith(EINTR)) : std::nullopt;
    };
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        size = ++writes == 1 ? 1 : size;
        return writes == 2 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
    };
    EXPECT_FALSE(replaceOld(at("f"), hooks));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_EQ(writes, 3);
}

TEST_F(FilesWriteAtomicallyTest, AnInterruptedCloseIsNotRetried) {
    // It has closed, and the number may be that of another file by now.
    int interrupted = 0;
    int madeAgain = 0;
    SystemCallHooks hooks;
    hooks.close = [&](int descriptor) {
        const bool isOpen = !pathOf(descriptor).empty();
        ++(isOpen ? interrupted : madeAgain);
        return isOpen ? std::optional(failWith(EINTR)) : std::nullopt;
    };
    EXPECT_FALSE(replaceOld(at("f"), hooks));
    EXPECT_EQ(readFile(at("f")), "new");
    EXPECT_GT(interrupted, 0);
    EXPECT_EQ(madeAgain, 0);
}

TEST_F(FilesWriteAtomicallyTest, ADirectoryThatCannotBeFlushedIsNoFailure) {
    for (const int error : {EIO, EINVAL, ENOTSUP}) {
        SystemCallHooks hooks;
        hooks.flush = [&](int descriptor) {
            return fs::is_directory(pathOf(descriptor)) ? std::optional(failWith(error))
                                                        : std::nullopt;
        };
        EXPECT_FALSE(replaceOld(at("f"), hooks));
        EXPECT_EQ(readFile(at("f")), "new");
    }
}

TEST_F(FilesWriteAtomicallyTest, ADirectoryThatCannotBeOpenedForFlushingIsNoFailure) {
    SystemCallHooks hooks;
    hooks.open = [&](const char* path) {
        return path == at("f").parent_path() ? std::optional(failWith(EMFILE)) : std::nullopt;
    };
    EXPECT_FALSE(replaceOld(at("f"), hooks));
    EXPECT_EQ(readFile(at("f")), "new");
}

TEST_F(FilesWriteAtomicallyTest, ADirectoryThatMayNotBeListedIsNoFailure) {
    open();
    for (const unsigned mode : {01733U, 0333U}) {
        fs::permissions(at(""), fs::perms(mode));
        EXPECT_EQ(inUnprivilegedChild([&] {
                      return std::to_string(codeOf(files::writeAtomically(at("f"), "new")));
                  }),
                  "0");
        open();
        EXPECT_EQ(readFile(at("f")), "new");
        EXPECT_THAT(names(), ElementsAre("f"));
        fs::remove(at("f"));
    }
}

TEST_F(FilesWriteAtomicallyTest, ATakenScratchNameIsTriedTwiceAndUnderSixOthersAtMost) {
    (void)scratchNameOf("f");
    std::vector<std::string> tried;
    int refusals = 7;
    SystemCallHooks hooks;
    hooks.open = [&](const char* path) -> std::optional<int> {
        const std::string name = fs::path(path).filename();
        if (name.starts_with(".f.")) {
            tried.push_back(name);
            return refusals-- > 0 ? std::optional(failWith(EEXIST)) : std::nullopt;
        }
        return std::nullopt;
    };
    EXPECT_FALSE(replaceOld(at("f"), hooks));
    EXPECT_EQ(readFile(at("f")), "new");
    ASSERT_EQ(tried.size(), 8U);
    EXPECT_EQ(tried[0], scratchNameOf("f"));
    EXPECT_EQ(tried[1], scratchNameOf("f"));
    EXPECT_EQ(std::set(tried.begin(), tried.end()).size(), 7U);

    refusals = 100;
    tried.clear();
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), EEXIST);
    EXPECT_EQ(tried.size(), 8U);
    EXPECT_EQ(readFile(at("f")), "old");
}

TEST_F(FilesWriteAtomicallyTest, AnotherErrorIsNotTriedAgain) {
    int tries = 0;
    SystemCallHooks hooks;
    hooks.open = [&](const char*) {
        ++tries;
        return std::optional(failWith(EACCES));
    };
    EXPECT_EQ(codeOf(replaceOld(at("f"), hooks)), EACCES);
    EXPECT_EQ(tries, 1);
}

TEST_F(FilesWriteAtomicallyTest, NothingIsFollowedOrReusedUnderTheScratchName) {
    // Somebody who has seen the name may plant a file or a link there, each time just before it is
    // used: it must not be opened.
    (void)scratchNameOf("f");
    writeFile(at("victim"), "precious");
    for (const bool asLink : {false, true}) {
        const fs::path planted = at(scratchNameOf("f"));
        int times = 0;
        SystemCallHooks hooks;
        hooks.open = [&](const char* path) -> std::optional<int> {
            if (path == planted) {
                ++times;
                if (asLink) {
                    fs::create_symlink(at("victim"), planted);
                } else {
                    fs::create_hard_link(at("victim"), planted);
                }
            }
            return std::nullopt;
        };
        EXPECT_FALSE(replaceOld(at("f"), hooks));
        EXPECT_EQ(readFile(at("f")), "new");
        EXPECT_EQ(readFile(at("victim")), "precious");
        EXPECT_EQ(times, 2);
        EXPECT_TRUE(fs::remove(planted));
    }
}

TEST_F(FilesWriteAtomicallyTest, TheDescriptorsAreNotInheritedByChildren) {
    std::vector<std::string> inheritable;
    SystemCallHooks hooks;
    hooks.flush = [&](int descriptor) -> std::optional<int> {
        if (::fcntl(descriptor, F_GETFD) == 0) {
            inheritable.push_back(pathOf(descriptor));
        }
        return std::nullopt;
    };
    EXPECT_FALSE(replaceOld(at("f"), hooks));
    EXPECT_THAT(inheritable, IsEmpty());
}

TEST_F(FilesWriteAtomicallyTest, NoDescriptorStaysOpen) {
    const auto before = openDescriptors().size();
    EXPECT_FALSE(files::writeAtomically(at("f"), "x"));
    EXPECT_TRUE(files::writeAtomically(at("no/f"), "x"));
    EXPECT_TRUE(files::writeAtomically(at(""), "x"));
    EXPECT_EQ(openDescriptors().size(), before);
}

// --- appendLine

TEST_F(FilesAppendLineTest, LinesFollowWhatWasThere) {
    writeFile(at("f"), "zero\n");
    EXPECT_TRUE(files::appendLine(at("f"), "one"));
    EXPECT_TRUE(files::appendLine(at("f"), "two\0\xFF"s));
    EXPECT_EQ(readFile(at("f")), "zero\none\ntwo\0\xFF\n"s);
}

TEST_F(FilesAppendLineTest, AMissingFileIsNotMade) {
    EXPECT_FALSE(files::appendLine(at("f"), "one"));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesAppendLineTest, ADirectoryCannotBeOpened) {
    EXPECT_FALSE(files::appendLine(at(""), "one"));
}

TEST_F(FilesAppendLineTest, AFifoWithoutAReaderDoesNotBlock) {
    makeFifo("f");
    EXPECT_FALSE(files::appendLine(at("f"), "one"));
}

TEST_F(FilesAppendLineTest, ALinkIsFollowed) {
    writeFile(at("f"), "");
    fs::create_symlink("f", at("link"));
    EXPECT_TRUE(files::appendLine(at("link"), "one"));
    EXPECT_EQ(readFile(at("f")), "one\n");
    EXPECT_TRUE(isLink(at("link")));
}

TEST_F(FilesAppendLineTest, ADanglingLinkIsNotFilled) {
    fs::create_symlink("missing", at("link"));
    EXPECT_FALSE(files::appendLine(at("link"), "one"));
    EXPECT_THAT(names(), ElementsAre("link"));
}

TEST_F(FilesAppendLineTest, AFileWithoutPermissionCannotBeOpened) {
    writeFile(at("f"), "old\n");
    fs::permissions(at("f"), fs::perms(0444));
    open();
    EXPECT_EQ(inUnprivilegedChild(
                  [&] { return files::appendLine(at("f"), "x") ? "opened" : "not opened"; }),
              "not opened");
    EXPECT_EQ(readFile(at("f")), "old\n");
}

TEST_F(FilesAppendLineTest, AFullDiskIsNotReported) {
    writeFile(at("f"), "");
    SystemCallHooks hooks;
    hooks.write = [](int, std::size_t&) -> std::optional<ssize_t> { return failWith(ENOSPC); };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "one"));
}

TEST_F(FilesAppendLineTest, WhatAnotherWriterAppendsMeanwhileIsKept) {
    writeFile(at("f"), "");
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) -> std::optional<ssize_t> {
        if (++writes == 1) {
            EXPECT_TRUE(files::appendLine(at("f"), "other"));
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "one"));
    EXPECT_EQ(readFile(at("f")), "other\none\n");
}

TEST_F(FilesAppendLineTest, TheLineAndItsEndAreTwoWrites) {
    writeFile(at("f"), "");
    std::vector<std::size_t> sizes;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        sizes.push_back(size);
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "four"));
    EXPECT_THAT(sizes, ElementsAre(4U, 1U));
}

TEST_F(FilesAppendLineTest, ALineThatWasCutShortIsStillEnded) {
    writeFile(at("f"), "");
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        size = 1;
        return ++writes == 2 ? std::optional<ssize_t>(failWith(ENOSPC)) : std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "line"));
    EXPECT_EQ(readFile(at("f")), "l\n");
}

TEST_F(FilesAppendLineTest, ALineOfWhichNothingWasWrittenIsNotEnded) {
    writeFile(at("f"), "old\n");
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) {
        return ++writes == 1 ? std::optional<ssize_t>(failWith(ENOSPC)) : std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "line"));
    EXPECT_EQ(readFile(at("f")), "old\n");
}

TEST_F(FilesAppendLineTest, AFullFifoIsNotTriedAgain) {
    writeFile(at("f"), "old\n");
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) {
        return ++writes == 1 ? std::optional<ssize_t>(failWith(EAGAIN)) : std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "line"));
    EXPECT_EQ(writes, 1);
}

TEST_F(FilesAppendLineTest, ShortAndInterruptedWritesAreContinued) {
    writeFile(at("f"), "");
    int calls = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        size = calls < 2 ? 1 : size;
        return ++calls % 2 == 1 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_TRUE(files::appendLine(at("f"), "line"));
    EXPECT_EQ(readFile(at("f")), "line\n");
}

TEST_F(FilesAppendLineTest, NoDescriptorStaysOpenOrIsInherited) {
    writeFile(at("f"), "");
    const auto before = openDescriptors().size();
    std::vector<std::string> inheritable;
    SystemCallHooks hooks;
    hooks.write = [&](int descriptor, std::size_t&) -> std::optional<ssize_t> {
        if (::fcntl(descriptor, F_GETFD) == 0) {
            inheritable.push_back(pathOf(descriptor));
        }
        return std::nullopt;
    };
    {
        const WithSystemCallHooks installed(hooks);
        EXPECT_TRUE(files::appendLine(at("f"), "line"));
    }
    EXPECT_THAT(inheritable, IsEmpty());
    EXPECT_EQ(openDescriptors().size(), before);
}

// --- move

TEST_F(FilesMoveTest, TheFileHasItsNewNameOnly) {
    writeFile(at("a"), "content");
    EXPECT_FALSE(files::move(at("a"), at("b")));
    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_EQ(readFile(at("b")), "content");
}

TEST_F(FilesMoveTest, AnythingAtTheDestinationStaysAndIsAnError) {
    for (const char* what : {"file", "dangling link", "directory", "FIFO"}) {
        SCOPED_TRACE(what);
        writeFile(at("a"), "content");
        if (what == "file"s) {
            writeFile(at("b"), "other");
        } else if (what == "dangling link"s) {
            fs::create_symlink("missing", at("b"));
        } else if (what == "directory"s) {
            fs::create_directory(at("b"));
        } else {
            makeFifo("b");
        }
        const auto before = fs::symlink_status(at("b")).type();
        EXPECT_EQ(files::move(at("a"), at("b")), std::errc::file_exists);
        EXPECT_EQ(readFile(at("a")), "content");
        EXPECT_EQ(fs::symlink_status(at("b")).type(), before);
        EXPECT_THAT(names(), ElementsAre("a", "b"));
        fs::remove(at("b"));
    }
}

TEST_F(FilesMoveTest, AMissingSourceIsAnError) {
    EXPECT_EQ(codeOf(files::move(at("a"), at("b"))), ENOENT);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesMoveTest, AMissingDirectoryAtTheDestinationIsAnError) {
    writeFile(at("a"), "content");
    EXPECT_EQ(codeOf(files::move(at("a"), at("no/b"))), ENOENT);
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(FilesMoveTest, ALinkIsMovedItself) {
    fs::create_symlink("missing", at("a"));
    EXPECT_FALSE(files::move(at("a"), at("b")));
    EXPECT_TRUE(isLink(at("b")));
    EXPECT_THAT(names(), ElementsAre("b"));
}

TEST_F(FilesMoveTest, TheRenamingIsPutOnDisk) {
    writeFile(at("a"), "content");
    std::vector<std::string> flushes;
    SystemCallHooks hooks;
    hooks.flush = [&](int descriptor) -> std::optional<int> {
        flushes.push_back(pathOf(descriptor));
        EXPECT_THAT(names(), ElementsAre("b"));
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_FALSE(files::move(at("a"), at("b")));
    EXPECT_THAT(flushes, ElementsAre(at("b").parent_path().string()));
}

TEST_F(FilesMoveTest, AFailedFlushIsNoFailure) {
    writeFile(at("a"), "content");
    SystemCallHooks hooks;
    hooks.flush = [](int) { return std::optional(failWith(EIO)); };
    const WithSystemCallHooks installed(hooks);
    EXPECT_FALSE(files::move(at("a"), at("b")));
    EXPECT_THAT(names(), ElementsAre("b"));
}

TEST_F(FilesMoveTest, NoDescriptorStaysOpen) {
    writeFile(at("a"), "content");
    const auto before = openDescriptors().size();
    EXPECT_FALSE(files::move(at("a"), at("b")));
    EXPECT_EQ(openDescriptors().size(), before);
}

// --- remove

TEST_F(FilesRemoveTest, AFileIsGone) {
    writeFile(at("a"), "content");
    writeFile(at("b"), "content");
    EXPECT_FALSE(files::remove(at("a")));
    EXPECT_THAT(names(), ElementsAre("b"));
}

TEST_F(FilesRemoveTest, ALinkGoesItsTargetStays) {
    writeFile(at("f"), "content");
    fs::create_directory(at("d"));
    fs::create_symlink("f", at("link1"));
    fs::create_symlink("d", at("link2"));
    fs::create_symlink("missing", at("link3"));
    EXPECT_FALSE(files::remove(at("link1")));
    EXPECT_FALSE(files::remove(at("link2")));
    EXPECT_FALSE(files::remove(at("link3")));
    EXPECT_THAT(names(), ElementsAre("d", "f"));
}

TEST_F(FilesRemoveTest, AnEmptyDirectoryIsGone) {
    fs::create_directory(at("d"));
    EXPECT_FALSE(files::remove(at("d")));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesRemoveTest, ATreeStaysAndIsAnError) {
    writeFile(at("d/f"), "content");
    EXPECT_EQ(codeOf(files::remove(at("d"))), ENOTEMPTY);
    EXPECT_EQ(readFile(at("d/f")), "content");
}

TEST_F(FilesRemoveTest, NothingToRemoveIsAnError) {
    EXPECT_EQ(codeOf(files::remove(at("f"))), ENOENT);
}

// --- createDirectories

TEST_F(FilesDirectoriesTest, AllThatIsMissingIsMade) {
    EXPECT_FALSE(files::createDirectories(at("a/b/c")));
    EXPECT_TRUE(fs::is_directory(at("a/b/c")));
}

TEST_F(FilesDirectoriesTest, TheyGetWhatTheMaskLeaves) {
    const WithMask mask(0027);
    EXPECT_FALSE(files::createDirectories(at("a/b")));
    EXPECT_EQ(modeOf(at("a")), 0750U);
    EXPECT_EQ(modeOf(at("a/b")), 0750U);
}

TEST_F(FilesDirectoriesTest, AnExistingDirectoryIsASuccess) {
    writeFile(at("a/f"), "content");
    EXPECT_FALSE(files::createDirectories(at("a")));
    EXPECT_EQ(readFile(at("a/f")), "content");
    fs::create_symlink("a", at("link"));
    EXPECT_FALSE(files::createDirectories(at("link")));
}

TEST_F(FilesDirectoriesTest, APlainFileInTheWayIsAnError) {
    writeFile(at("f"), "content");
    EXPECT_TRUE(files::createDirectories(at("f")));
    EXPECT_TRUE(files::createDirectories(at("f/below")));
    EXPECT_EQ(readFile(at("f")), "content");
}

TEST_F(FilesDirectoriesTest, ADanglingLinkInTheWayIsAnError) {
    fs::create_symlink("missing", at("link"));
    EXPECT_TRUE(files::createDirectories(at("link")));
    EXPECT_TRUE(isLink(at("link")));
}

TEST_F(FilesDirectoriesTest, AParentWithoutPermissionIsAnError) {
    open();
    fs::create_directory(at("d"));
    fs::permissions(at("d"), fs::perms(0555));
    EXPECT_EQ(inUnprivilegedChild(
                  [&] { return std::to_string(codeOf(files::createDirectories(at("d/sub")))); }),
              std::to_string(EACCES));
    EXPECT_THAT(namesIn(at("d")), IsEmpty());
}

TEST_F(FilesDirectoriesTest, ARelativePathBeginsInTheWorkingDirectory) {
    EXPECT_EQ(inChild([&] {
                  fs::current_path(at(""));
                  return std::to_string(codeOf(files::createDirectories("a/b")));
              }),
              "0");
    EXPECT_TRUE(fs::is_directory(at("a/b")));
}

// --- setMode

TEST_F(FilesModeTest, TheModeIsSetWhateverTheMask) {
    for (const mode_t value : std::initializer_list<mode_t>{0000, 0077, 0777}) {
        const WithMask mask(value);
        writeFile(at("f"), "content");
        ASSERT_EQ(::chmod(at("f").c_str(), 0600), 0);
        EXPECT_FALSE(files::setMode(at("f"), 0644));
        EXPECT_EQ(modeOf(at("f")), 0644U);
    }
}

TEST_F(FilesModeTest, ALinkIsNotFollowed) {
    writeFile(at("f"), "content");
    ASSERT_EQ(::chmod(at("f").c_str(), 0600), 0);
    fs::create_symlink("f", at("link"));
    (void)files::setMode(at("link"), 0644);
    EXPECT_EQ(modeOf(at("f")), 0600U);
}

TEST_F(FilesModeTest, AMissingFileIsAnError) {
    EXPECT_EQ(codeOf(files::setMode(at("f"), 0644)), ENOENT);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesModeTest, AFileOfSomebodyElseIsAnError) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "makes a file of another user, which takes root";
    }
    open();
    writeFile(at("f"), "content");
    ASSERT_EQ(::chmod(at("f").c_str(), 0666), 0);
    EXPECT_EQ(
        inUnprivilegedChild([&] { return std::to_string(codeOf(files::setMode(at("f"), 0644))); }),
        std::to_string(EPERM));
    EXPECT_EQ(modeOf(at("f")), 0666U);
}

// --- exists

TEST_F(FilesExistsTest, WhateverKindItIs) {
    writeFile(at("f"), "");
    makeFifo("fifo");
    fs::create_symlink("f", at("link"));
    EXPECT_TRUE(files::exists(at("f")));
    EXPECT_TRUE(files::exists(at("")));
    EXPECT_TRUE(files::exists(at("fifo")));
    EXPECT_TRUE(files::exists(at("link")));
}

TEST_F(FilesExistsTest, NotWhatIsMissing) {
    fs::create_symlink("missing", at("link"));
    writeFile(at("f"), "");
    EXPECT_FALSE(files::exists(at("missing")));
    EXPECT_FALSE(files::exists(at("link")));
    EXPECT_FALSE(files::exists(at("f/below")));
    EXPECT_FALSE(files::exists(""));
}

}  // namespace

}  // namespace orvane::test
