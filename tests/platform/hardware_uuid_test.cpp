#include "platform/machine/hardware_uuid.h"

#include "platform/hardware_uuid_test.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using ::testing::Optional;

using namespace std::string_literals;

struct Listing {
    const char* name;
    std::string text;
    std::optional<std::string> uuid;
};

TEST(HardwareUuidInTest, TheUsualListing) {
    EXPECT_THAT(
        hardwareUuidIn("+-o Mac  <class IOPlatformExpertDevice, id 0x1>\n"
                       "    {\n"
                       "      \"IOPolledInterface\" = \"not serializable\"\n"
                       "      \"IOPlatformSerialNumber\" = \"C02\"\n"
                       "      \"IOPlatformUUID\" = \"0A1B2C3D-0000-1111-2222-333344445555\"\n"
                       "      \"clock-frequency\" = <00e1f505>\n"
                       "    }\n\n"),
        Optional("0A1B2C3D-0000-1111-2222-333344445555"s));
}

TEST(HardwareUuidInTest, Lines) {
    const std::vector<Listing> listings{
        {"nothing", "", std::nullopt},
        {"empty lines only", "\n\n\n", std::nullopt},
        {"no such line", "\"IOPlatformName\" = \"x\"\n", std::nullopt},
        {"no line feed at the end", "\"IOPlatformUUID\" = \"U\"", "U"},
        {"empty lines around it", "\n\n\"IOPlatformUUID\" = \"U\"\n\n", "U"},
        {"the first of two", "\"IOPlatformUUID\" = \"U\"\n\"IOPlatformUUID\" = \"V\"\n", "U"},
        {"the second when the first has no =", "\"IOPlatformUUID\"\n\"IOPlatformUUID\" = \"V\"",
         "V"},
        {"the first even when it is empty", "\"IOPlatformUUID\" =\n\"IOPlatformUUID\" = \"V\"", ""},
        {"no = in any line", "\"IOPlatformUUID\"\nIOPlatformUUID\n", std::nullopt},
        {"the = on the next line", "\"IOPlatformUUID\"\n= \"U\"\n", std::nullopt},
        {"the name on the line before", "= \"U\"\n\"IOPlatformUUID\"\n", std::nullopt},
        {"another case", "\"IOPlatformUuid\" = \"U\"\n\"ioplatformuuid\" = \"V\"", std::nullopt},
        {"a later line from its very start", "x\nIOPlatformUUID=U", "U"},
        {"the name inside a longer one", "\"XIOPlatformUUIDs\" = \"U\"", "U"},
        {"only part of the name", "\"IOPlatformUUI\" = \"U\"\n\"OPlatformUUID\" = \"U\"",
         std::nullopt},
        {"the name after the =", "\"x\" = \"IOPlatformUUID\"", "IOPlatformUUID"},
        {"a carriage return does not split", "a = b\r\"IOPlatformUUID\"", "b\r\"IOPlatformUUID"},
        {"CR LF line ends", "x\r\n\"IOPlatformUUID\" = \"U\"\r\ny\r\n", "U"},
        {"a vertical tab does not split", "\"IOPlatformUUID\"\v= \"U\"", "U"},
    };
    for (const auto& [name, text, uuid] : listings) {
        SCOPED_TRACE(name);
        EXPECT_EQ(hardwareUuidIn(text), uuid);
    }
}

TEST(HardwareUuidInTest, Values) {
    const std::vector<Listing> listings{
        {"no spaces", "\"U\"", "U"},
        {"no quotes", " U ", "U"},
        {"one quote", "\"U", "U"},
        {"several quotes", "\"\"U\"\"\"", "U"},
        {"spaces inside the quotes stay", " \" U \" ", " U "},
        {"quotes inside stay", "\"a\"b\"", "a\"b"},
        {"case and form do not matter", "\"not a uuid, Straße\"", "not a uuid, Straße"},
        {"a second =", " \"a\" = \"b\" ", "a\" = \"b"},
        {"a second = in front", "= \"b\"", "= \"b"},
        {"only spaces", " \t ", ""},
        {"only quotes", "\"\"", ""},
        {"one quote alone", "\"", ""},
        {"only spaces and quotes", " \"\" ", ""},
        {"spaces in quotes", "\" \"", " "},
        {"whitespace of all kinds", "\t\v\f\r \u0085\u00A0\u2028\u3000\"U\"\u2029\r\f\v\t ", "U"},
        {"other characters stay", "\uFEFFU\u200C", "\uFEFFU\u200C"},
        {"a NUL stays", "\"a\0b\""s, "a\0b"s},
    };
    for (const auto& [name, text, uuid] : listings) {
        SCOPED_TRACE(name);
        EXPECT_EQ(hardwareUuidIn("  \"IOPlatformUUID\" =" + text + "\nx\n"), uuid);
    }
}

TEST(HardwareUuidInTest, AListingThatIsNotUtf8HasNone) {
    EXPECT_EQ(hardwareUuidIn("\"IOPlatformUUID\" = \"U\"\n\xFF\n"), std::nullopt);
    EXPECT_EQ(hardwareUuidIn("\xC3\n\"IOPlatformUUID\" = \"U\"\n"), std::nullopt);
    EXPECT_EQ(hardwareUuidIn("\"IOPlatformUUID\" = \"\xED\xA0\x80\"\n"), std::nullopt);
}

TEST_F(HardwareUuidTest, TheToolIsAskedForThePlatformDevice) {
    installTool("printf '%s\\n' \"$#\" \"$@\" > '" + (root() / "arguments").string() + "'\n" +
                printUuid);
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
    EXPECT_EQ(readFile(root() / "arguments"), "3\n-rd1\n-c\nIOPlatformExpertDevice\n");
}

TEST_F(HardwareUuidTest, TheToolsExitStatusDoesNotMatter) {
    installTool(std::string(printUuid) + "\nexit 3");
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
}

TEST_F(HardwareUuidTest, TheOutputOfAToolThatKillsItselfCounts) {
    installTool(std::string(printUuid) + "\nkill -9 $$");
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
}

TEST_F(HardwareUuidTest, WhatTheToolComplainsOfIsIgnored) {
    installTool(std::string("echo '\"IOPlatformUUID\" = \"wrong\"' >&2\n") + printUuid);
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(HardwareUuidTest, AValueOfTheToolMayBeEmpty) {
    installTool("echo '\"IOPlatformUUID\" ='");
    writeMachineId(machineIdText);
    EXPECT_THAT(readHardwareUuid(), Optional(""s));
}

TEST_F(HardwareUuidTest, AToolThatSaysNothingUsefulIsNotReplaced) {
    writeMachineId(machineIdText);
    for (const char* commands : {
             "exit 0",
             "exit 1",
             "echo",
             "echo '\"IOPlatformName\" = \"x\"'",
             "echo '\"IOPlatformUUID\"'",
             "echo '\"IOPlatformUUID\" = \"U\"' >&2",
             "printf '\"IOPlatformUUID\" = \"U\\377\"\\n'",
         }) {
        SCOPED_TRACE(commands);
        installTool(commands);
        EXPECT_EQ(readHardwareUuid(), std::nullopt);
    }
}

TEST_F(HardwareUuidTest, TheToolIsPreferredToTheMachineId) {
    installTool(printUuid);
    writeMachineId(machineIdText);
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
}

TEST_F(HardwareUuidTest, EveryCallRunsTheTool) {
    installTool("echo x >> '" + (root() / "runs").string() + "'\n" + printUuid);
    EXPECT_THAT(readHardwareUuid(), Optional("U-1"s));
    installTool("echo x >> '" + (root() / "runs").string() + "'\necho IOPlatformUUID=U-2");
    EXPECT_THAT(readHardwareUuid(), Optional("U-2"s));
    EXPECT_EQ(readFile(root() / "runs"), "x\nx\n");
}

TEST_F(HardwareUuidTest, NothingIsLoggedWhenThereIsNone) {
    EXPECT_EQ(readHardwareUuid(), std::nullopt);
    EXPECT_EQ(log.raw(), "");
    EXPECT_THAT(namesIn(root()), testing::IsEmpty());
}

}  // namespace
}  // namespace orvane::test
