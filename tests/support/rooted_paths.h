// Replaces platform/machine/paths: every path of the daemon below one directory.
#pragma once

#include <filesystem>

namespace orvane::rooted_paths {

/// Puts everything below `directory` from now on. Programs take it from ORVANE_ROOT instead.
void setRoot(const std::filesystem::path& directory);

}  // namespace orvane::rooted_paths
