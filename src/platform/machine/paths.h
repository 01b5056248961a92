// Where this machine keeps things. Declared once, defined in paths_machine.cpp for the daemon and
// in a twin under tests/support that puts everything below one directory; the link decides.
#pragma once

#include <filesystem>

namespace orvane::paths {

/// The home directory of the account that the process runs as, from the account database; HOME
/// counts only for an account without an entry. Looked up anew on every call.
std::filesystem::path homeDirectory();

/// The machine-wide directory shared with enrollment and with the interception component.
std::filesystem::path setupDirectory();

/// The root of the file system, for programs and state of the system itself.
std::filesystem::path systemRoot();

/// The tool that lists the hardware registry (on macOS; elsewhere there is none).
std::filesystem::path registryTool();

/// The file with this installation's stable id (on Linux, machine-id(5)).
std::filesystem::path machineIdFile();

/// A directory of trusted certificates by hashed name (openssl-rehash(1)), or empty for the HTTP
/// library's own default.
std::filesystem::path certificateDirectory();

/// The user's own directory, which holds the config file and everything the daemon stores.
inline std::filesystem::path orvaneDirectory() {
    return homeDirectory() / ".orvane";
}

/// Where the activity log is kept.
inline std::filesystem::path logDirectory() {
    return orvaneDirectory() / "logs";
}

}  // namespace orvane::paths
