// The ground of tests of the hardware UUID: a registry tool and a machine id of the test's own.
#pragma once

#include "support/daemon_test.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace orvane::test {

/// The name and the "=" of the usual line, for printf(1).
inline constexpr const char* printUuid = R"(printf '  "IOPlatformUUID" = "U-1"\n')";

class HardwareUuidTest : public DaemonTest {
  protected:
    /// A registry tool that runs `commands`.
    static void installTool(const std::string& commands) {
        installRegistryTool("#!/bin/sh\n" + commands + "\n");
    }
    static std::filesystem::path tool() { return root() / "usr/sbin/ioreg"; }
    static void writeMachineId(std::string_view content) {
        writeFile(root() / "etc/machine-id", content);
    }
};

inline constexpr const char* machineIdText = "0123456789abcdef0123456789abcdef\n";

}  // namespace orvane::test
