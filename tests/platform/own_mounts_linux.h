// Mounts that one process sees alone, so that it finds files of a test at the machine's own places.
#pragma once

#include <filesystem>
#include <string>

namespace orvane::test {

/// Lets the calling process see mounts of its own from now on; what it mounts is seen by it alone.
/// Why that is not permitted, or nothing. For children: there is no way back.
std::string useOwnMounts();

/// Mounts `source` over `target`, for a process with mounts of its own.
void mountOver(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace orvane::test
