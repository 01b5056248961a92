// A disk without space, which takes a file system of its own.
#include "platform/own_mounts_linux.h"
#include "status/gather.h"
#include "status/status_files.h"
#include "status/verdict.h"
#include "support/in_child.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

namespace orvane::status {
namespace {

namespace fs = std::filesystem;

TEST(DiskFullTest, AFullDiskIsTheReason) {
    const test::StatusFiles files;
    const auto problems = test::inChild([&]() -> std::string {
        const std::string obstacle = test::useOwnMounts();
        if (!obstacle.empty()) {
            return "SKIP " + obstacle;
        }
        const fs::path copy = files.root() / "copy";
        fs::copy(files.orvane(), copy, fs::copy_options::recursive);
        if (::mount("tmpfs", files.orvane().c_str(), "tmpfs", 0, "size=256k") != 0) {
            return "SKIP no tmpfs";
        }
        fs::copy(copy, files.orvane(), fs::copy_options::recursive);
        test::StatusFiles::setAge(files.orvane() / "policy.json", std::chrono::hours(1));
        const std::string before = judge(gatherFacts()).problem;
        std::ofstream(files.orvane() / "filling") << std::string(1'000'000, 'x');
        return before + "," + judge(gatherFacts()).problem;
    });
    if (problems.starts_with("SKIP")) {
        GTEST_SKIP() << problems;
    }
    EXPECT_EQ(problems, ",disk-full");
}

}  // namespace
}  // namespace orvane::status
