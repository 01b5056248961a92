// The capture file's mode where there is no /proc, by way of which the C library would set it.
#include "guard/capture_policy.h"
#include "platform/own_mounts_linux.h"
#include "support/daemon_test.h"
#include "support/in_child.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

class CaptureModeTest : public DaemonTest {};

TEST_F(CaptureModeTest, AnyoneMayReadItWithoutProcToo) {
    writeFile(orvane() / "policy.json", R"({"config":{"capture":{}}})");
    fs::create_directory(root() / "empty");
    const std::string result = inChild([&]() -> std::string {
        const std::string obstacle = useOwnMounts();
        if (!obstacle.empty()) {
            return "SKIP " + obstacle;
        }
        mountOver(root() / "empty", "/proc");
        (void)::umask(0077);
        guard::applyCapturePolicy(orvane() / "policy.json",
                                  Logger("dev.orvane.setup", "policy-daemon"));
        return fs::exists("/proc/self") ? "/proc is there" : "done";
    });
    if (result.starts_with("SKIP")) {
        GTEST_SKIP() << result;
    }
    EXPECT_EQ(result, "done");
    EXPECT_EQ(modeOf(captureFile()), 0644U);
}

}  // namespace
}  // namespace orvane::test
