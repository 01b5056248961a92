#include "platform/machine/machine_id.h"

#include "platform/machine/paths.h"
#include "platform/process/child_process.h"
#include "support/rooted_paths.h"
#include "support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace orvane::test {

namespace {

using ::testing::Optional;

constexpr const char* digits = "0123456789abcdef0123456789abcdef";
/// What `systemd-id128 machine-id --uuid --app-specific=bc95cd8ed88e4cf19c75727418b63a56` prints on
/// a machine with this id.
constexpr const char* uuid = "dba612b0-5219-46fb-a8d7-076ba628c63b";

class MachineIdTest : public ::testing::Test {
  protected:
    MachineIdTest() { rooted_paths::setRoot(root_.path()); }

    static void keep(std::string_view content) { writeFile(paths::machineIdFile(), content); }

  private:
    TempDirectory root_;
};

TEST_F(MachineIdTest, TheMachinesOwnIdBecomesOneForThisProgram) {
    keep(std::string(digits) + "\n");
    EXPECT_THAT(machineId(), Optional(std::string(uuid)));
}

TEST_F(MachineIdTest, LineEndsAreOptional) {
    for (const char* end : {"", "\n", "\n\n"}) {
        keep(std::string(digits) + end);
        EXPECT_THAT(machineId(), Optional(std::string(uuid)));
    }
}

TEST_F(MachineIdTest, AMissingFileGivesNone) {
    EXPECT_EQ(machineId(), std::nullopt);
}

TEST_F(MachineIdTest, ADirectoryInItsPlaceGivesNone) {
    std::filesystem::create_directories(paths::machineIdFile());
    EXPECT_EQ(machineId(), std::nullopt);
}

TEST_F(MachineIdTest, TheFileIsReadOnEveryCall) {
    EXPECT_EQ(machineId(), std::nullopt);
    keep(digits);
    EXPECT_THAT(machineId(), Optional(std::string(uuid)));
    keep("ffffffffffffffffffffffffffffffff\n");
    EXPECT_THAT(machineId(), Optional(std::string("ffbd0f4a-9e5f-4983-bfdb-b2935e40164b")));
}

/// The service manager's own tool prints the id of this machine.
TEST_F(MachineIdTest, ItIsTheOneThatTheServiceManagerDerives) {
    const auto expected =
        outputOf("/usr/bin/systemd-id128",
                 {"machine-id", "--uuid", "--app-specific=bc95cd8ed88e4cf19c75727418b63a56"});
    if (!expected || expected->empty()) {
        GTEST_SKIP() << "takes systemd-id128 and a machine with an id";
    }
    keep(readFile("/etc/machine-id"));
    EXPECT_EQ(machineId().value_or("none") + "\n", *expected);
}

TEST_F(MachineIdTest, AnythingButThirtyTwoLowerCaseDigitsGivesNone) {
    const struct {
        const char* what;
        std::string content;
    } table[] = {
        {"empty", ""},
        {"never booted", "uninitialized\n"},
        {"a digit short", "0123456789abcdef0123456789abcde\n"},
        {"a digit too many", "0123456789abcdef0123456789abcdef0\n"},
        {"upper case", "0123456789ABCDEF0123456789ABCDEF\n"},
        {"one upper-case letter", "0123456789abcdef0123456789abcdeF\n"},
        {"after f", "0123456789abcdef0123456789abcdeg\n"},
        {"before a", "0123456789abcdef0123456789abcde`\n"},
        {"before 0", "0123456789abcdef0123456789abcde/\n"},
        {"after 9", "0123456789abcdef0123456789abcde:\n"},
        {"already a UUID", "01234567-89ab-cdef-0123-456789abcdef\n"},
        {"carriage return", std::string(digits) + "\r\n"},
        {"leading space", " " + std::string(digits) + "\n"},
        {"two lines", std::string(digits) + "\n" + digits + "\n"},
        {"huge", std::string(std::size_t{4} * 1024 * 1024, 'a')},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        keep(row.content);
        EXPECT_EQ(machineId(), std::nullopt);
    }
}

}  // namespace

}  // namespace orvane::test
