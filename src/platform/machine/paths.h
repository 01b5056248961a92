// Fixed paths. Declared once; defined in paths_machine.cpp for the daemon, in a fake under
// tests/support that puts everything below one directory, and in emulator/check for the check of
// control planes. The choice is made at link time.
#pragma once

#include <filesystem>

namespace orvane::paths {

/// The home directory of the account that the process runs as, from the account database; HOME is
/// used only for an account without an entry. Looked up on every call.
std::filesystem::path homeDirectory();

/// The machine-wide directory shared with enrollment and with the interception component.
std::filesystem::path setupDirectory();

/// The root of the file system, for programs and state of the operating system.
std::filesystem::path systemRoot();

/// The tool that lists the hardware registry (on macOS; other systems have none).
std::filesystem::path registryTool();

/// The file with this installation's stable id (on Linux, machine-id(5)).
std::filesystem::path machineIdFile();

/// A directory of trusted certificates by hashed name (openssl-rehash(1)), or empty for the HTTP
/// library's own default.
std::filesystem::path certificateDirectory();

/// The account's directory with the config file and everything the daemon stores.
inline std::filesystem::path orvaneDirectory() {
    return homeDirectory() / ".orvane";
}

/// The directory of the activity log.
inline std::filesystem::path logDirectory() {
    return orvaneDirectory() / "logs";
}

}  // namespace orvane::paths
