// Running a tool of the system.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

/// Runs `tool` with `arguments`, waits until it has exited, then reads its standard output to the
/// end.
///
/// The tool inherits standard input, environment and working directory, gets a process group of its
/// own and no other descriptor. Its standard error goes to a pipe that nobody reads. Its exit
/// status is not looked at. Absent when it could not be launched: it is missing, not a regular file
/// or not executable, or the system has no process, pipe or memory for it.
///
/// Because the wait comes first, a tool that prints more than a pipe holds (64 KiB on Linux) never
/// exits: call it only for tools known to print little. Blocks the calling thread.
std::optional<std::string> outputOf(const std::filesystem::path& tool,
                                    const std::vector<std::string>& arguments);

}  // namespace orvane
