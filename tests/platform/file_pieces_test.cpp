#include "platform/files/file_pieces.h"

#include "platform/files/file_status.h"
#include "support/test_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

namespace orvane::test {

namespace {

namespace fs = std::filesystem;

class FilePiecesTest : public ::testing::Test {
  protected:
    [[nodiscard]] fs::path file() const { return directory.path() / "file"; }

    TempDirectory directory;
};

TEST_F(FilePiecesTest, PiecesAreReadFromAnywhere) {
    writeFile(file(), "0123456789");
    const auto pieces = FilePieces::open(file());
    ASSERT_TRUE(pieces);
    EXPECT_EQ(pieces->size(), 10U);
    EXPECT_EQ(pieces->read(7, 2), "78");
    EXPECT_EQ(pieces->read(0, 10), "0123456789");
    EXPECT_EQ(pieces->read(8, 10), "89");
    EXPECT_EQ(pieces->read(10, 1), "");
    EXPECT_EQ(pieces->read(100, 1), "");
}

TEST_F(FilePiecesTest, AFileStaysTheSameWhenItIsRenamed) {
    writeFile(file(), "old");
    auto pieces = FilePieces::open(file());
    ASSERT_TRUE(pieces);
    fs::rename(file(), directory.path() / "renamed");
    writeFile(file(), "new");
    EXPECT_EQ(pieces->read(0, 3), "old");
    *pieces = *FilePieces::open(file());
    EXPECT_EQ(pieces->read(0, 3), "new");
}

TEST_F(FilePiecesTest, OnlyRegularFilesAreOpened) {
    EXPECT_FALSE(FilePieces::open(file()));
    EXPECT_FALSE(FilePieces::open(directory.path()));
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_FALSE(FilePieces::open(file()));
}

TEST_F(FilePiecesTest, AnOffsetBeyondWhatTheSystemKnowsIsAnError) {
    writeFile(file(), "x");
    EXPECT_EQ(FilePieces::open(file())->read(UINT64_MAX / 2 + 1, 1), std::nullopt);
}

TEST_F(FilePiecesTest, AStatusSaysWhatTheFileSystemKnows) {
    writeFile(file(), "12345");
    fs::permissions(file(), fs::perms(0640));
    const auto status = fileStatus(file());
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->isRegular);
    EXPECT_EQ(status->size, 5U);
    EXPECT_EQ(status->mode, 0640U);
    EXPECT_EQ(status->owner, ::geteuid());
    const auto age = std::chrono::system_clock::now().time_since_epoch() - status->modifiedAt;
    EXPECT_GE(age, std::chrono::seconds(-1));
    EXPECT_LT(age, std::chrono::minutes(5));
}

TEST_F(FilePiecesTest, ALinkIsNotFollowedForItsStatus) {
    fs::create_symlink("nowhere", file());
    const auto status = fileStatus(file());
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->isRegular);
    EXPECT_FALSE(fileStatus(directory.path() / "nowhere"));
}

}  // namespace

}  // namespace orvane::test
