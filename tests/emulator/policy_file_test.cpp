#include "emulator/policy_file.h"

#include "scratch_directory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace orvane::emulator {
namespace {

using AFile = ScratchDirectory;

TEST_F(AFile, IsReadWholeAndOneThatIsNotThereIsToldApartFromAnEmptyOne) {
    EXPECT_EQ(readFile(write("some", "text\n")), "text\n");
    EXPECT_EQ(readFile(write("empty", "")), "");
    EXPECT_FALSE(readFile(path_ / "none"));
    EXPECT_FALSE(readFile(path_));
}

TEST_F(AFile, IsSeenToAppearToChangeToBeReplacedAndToGo) {
    WatchedFile file(path_ / "policy");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
    write("policy", "1");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
    write("policy", "22");
    EXPECT_TRUE(file.changed());
    std::filesystem::rename(write("other", "33"), path_ / "policy");
    EXPECT_TRUE(file.changed());
    std::filesystem::remove(path_ / "policy");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
}

}  // namespace
}  // namespace orvane::emulator
