// The machine id, which replaces the hardware UUID on Linux.
#include "platform/machine/hardware_uuid.h"

#include "platform/hardware_uuid_test.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using ::testing::Optional;

using namespace std::string_literals;

constexpr const char* machineIdAsUuid = "dba612b0-5219-46fb-a8d7-076ba628c63b";

TEST_F(HardwareUuidTest, WithoutTheToolTheMachineIdIsUsed) {
    writeMachineId(machineIdText);
    EXPECT_THAT(readHardwareUuid(), Optional(std::string(machineIdAsUuid)));
}

TEST_F(HardwareUuidTest, AMachineIdThatIsNoneIsNotTaken) {
    for (const char* content :
         {"", "\n", "uninitialized\n", "0123456789abcdef\n", "0123456789ABCDEF0123456789ABCDEF\n",
          "01234567-89ab-cdef-0123-456789abcdef\n"}) {
        SCOPED_TRACE(content);
        writeMachineId(content);
        EXPECT_EQ(readHardwareUuid(), std::nullopt);
    }
}

TEST_F(HardwareUuidTest, AToolThatCannotBeLaunchedIsReplaced) {
    writeMachineId(machineIdText);
    installTool(printUuid);
    fs::permissions(tool(), fs::perms(0644));
    EXPECT_THAT(readHardwareUuid(), Optional(std::string(machineIdAsUuid))) << "not executable";
    fs::remove(tool());
    fs::create_directory(tool());
    EXPECT_THAT(readHardwareUuid(), Optional(std::string(machineIdAsUuid))) << "a directory";
}

TEST_F(HardwareUuidTest, AToolThatAppearsIsUsedFromThenOn) {
    writeMachineId(machineIdText);
    EXPECT_THAT(readHardwareUuid(), Optional(std::string(machineIdAsUuid)));
    installTool(printUuid);
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
}

}  // namespace
}  // namespace orvane::test
