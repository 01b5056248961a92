// The name that this process gives its scratch files.
#pragma once

#include <filesystem>
#include <string>

namespace orvane::test {

/// The name of the scratch file through which `path` is written, which has to go well.
std::string scratchNameOfAWriteTo(const std::filesystem::path& path);

/// The name of the scratch file through which this process writes a file `name`, if nothing is in
/// the way. The first call has to be made without hooks in place (system_calls.h).
std::string scratchNameOf(const std::string& name);

}  // namespace orvane::test
