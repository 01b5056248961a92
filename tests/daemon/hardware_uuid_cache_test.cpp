#include "daemon/policy_runner.h"
#include "support/daemon_test.h"

#include <gmock/gmock.h>

namespace orvane::test {
namespace {

/// A registry tool that counts its runs in a file beside it.
class HardwareUuidCacheTest : public DaemonTest {
  protected:
    static void install(const std::string& output) {
        installRegistryTool("#!/bin/sh\necho run >> \"$(dirname \"$0\")/runs\"\nprintf '" + output +
                            "'\n");
    }
    static std::size_t runs() {
        const auto file = root() / "usr/sbin/runs";
        return std::filesystem::exists(file) ? readFile(file).size() / 4 : 0;
    }
};

TEST_F(HardwareUuidCacheTest, ASuccessIsRememberedForTheProcess) {
    install("\"IOPlatformUUID\" = \"U-1\"\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "U-1");
    install("\"IOPlatformUUID\" = \"U-2\"\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "U-1");
    EXPECT_EQ(runs(), 1U);
}

TEST_F(HardwareUuidCacheTest, AnEmptyValueIsRememberedToo) {
    install("\"IOPlatformUUID\" =\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "");
    install("\"IOPlatformUUID\" = \"U-2\"\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "");
    EXPECT_EQ(runs(), 1U);
}

TEST_F(HardwareUuidCacheTest, AFailureIsTriedAgain) {
    install("nothing of interest\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "");
    EXPECT_EQ(runs(), 2U);
    install("\"IOPlatformUUID\" = \"U-2\"\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "U-2");
}

TEST_F(HardwareUuidCacheTest, AMissingToolIsLookedForAgain) {
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "");
    install("\"IOPlatformUUID\" = \"U-1\"\\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "U-1");
}

TEST_F(HardwareUuidCacheTest, TheMachineIdIsRememberedToo) {
    writeFile(root() / "etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "dba612b0-5219-46fb-a8d7-076ba628c63b");
    std::filesystem::remove(root() / "etc/machine-id");
    EXPECT_EQ(PolicyRunner::hardwareUUID(), "dba612b0-5219-46fb-a8d7-076ba628c63b");
}

}  // namespace
}  // namespace orvane::test
