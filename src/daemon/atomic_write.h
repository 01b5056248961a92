// Replacing a file whose name other processes know.
#pragma once

#include <filesystem>
#include <string_view>
#include <system_error>

namespace orvane {

/// Replaces the file at `destination`, creating its directory if needed. Readers see the old file,
/// briefly none, or the new one, never a partial one; on return the new one is on disk, where its
/// directory can be flushed. A failure before the last step leaves the destination as it was.
/// Another process of this account may do the same meanwhile: what it disturbs is repeated.
///
/// Steps: write "<name>.tmp" next to it, remove the destination, move the .tmp into its place. If
/// the move fails, the .tmp stays with the new content until the next write replaces it.
[[nodiscard]] std::error_code replaceFile(std::string_view data,
                                          const std::filesystem::path& destination);

/// Whether a process was killed in `replaceFile` after it had removed `destination`.
bool wasReplacementCutOff(const std::filesystem::path& destination);

}  // namespace orvane
