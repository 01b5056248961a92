// Running a system tool.
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
/// status is ignored. nullopt if it could not be launched: it is missing, not a regular file or not
/// executable, or the system has no process, pipe or memory for it.
///
/// Because the wait comes first, a tool that prints more than fits into a pipe (64 KiB on Linux)
/// never exits: use it only for tools with little output. Blocks the calling thread.
[[nodiscard]] std::optional<std::string> outputOf(const std::filesystem::path& tool,
                                                  const std::vector<std::string>& arguments);

}  // namespace orvane
