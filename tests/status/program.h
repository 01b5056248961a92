// The status command as a process.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace orvane::test {

/// How a program ended.
struct ProgramResult {
    int status = -1;  ///< its exit status; -1 if it ended otherwise
    std::string output;

    [[nodiscard]] std::string lastLine() const;
};

/// Runs `program` with `arguments` and `environment` and nothing else, after `prepare` in its
/// process.
ProgramResult runProgram(
    const std::filesystem::path& program, std::vector<std::string> arguments,
    std::vector<std::string> environment,
    const std::function<bool()>& prepare = [] { return true; });

}  // namespace orvane::test
