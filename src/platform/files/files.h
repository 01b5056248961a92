// Whole files and directories.
//
// File-system errors never throw. An operation whose failure matters returns nullopt, false, or a
// std::error_code with a human-readable message(); each says which. (`read` does not distinguish
// missing from unreadable: no caller may log the difference.) Every descriptor is closed on exec.
// Safe on any thread, but one process must not write the same path from two threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace orvane::files {

/// The largest file that `read` accepts. It is the limit of an HTTP body, `HttpSession::bodyLimit`,
/// because a policy is stored as received; together with what is derived from it, it fits into the
/// service's memory limit of 256 MiB.
inline constexpr std::size_t sizeLimit = std::size_t{100} * 1024 * 1024;

/// The limit for a file in the setup directory, which any account may have created: real ones are
/// small, and a huge sparse file would cost an attacker nothing.
inline constexpr std::size_t foreignSizeLimit = std::size_t{1024} * 1024;

/// The whole content of the regular file at `path`, links followed. nullopt if it cannot be read,
/// is not a regular file (a FIFO never blocks the caller) or is larger than `limit`.
[[nodiscard]] std::optional<std::string> read(const std::filesystem::path& path,
                                              std::size_t limit = sizeLimit);

/// Receives the next piece of a file; returns false to stop.
using TakePiece = std::function<bool(std::string_view piece)>;

/// Reads the regular file at `path`, links followed, and passes it to `take` piece by piece, in a
/// fixed amount of memory. False if `take` stopped, or the file cannot be read or is not a regular
/// file. A file that grows meanwhile is read to its new end: `take` has to stop an endless one.
[[nodiscard]] bool readInPieces(const std::filesystem::path& path, const TakePiece& take);

/// Replaces the file at `path` atomically: readers see the old content or the new, never a partial
/// file. The content is on disk before the rename, and the rename before this returns, where the
/// directory can be flushed (fsync(2)). A symbolic link at `path` is itself replaced. The new file
/// has the permission bits `mode` from the start, as far as they can be set; without `mode`, those
/// of the file that it replaces, or 0666 less the umask if there is none. On failure `path` is
/// unchanged and no scratch file is left.
///
/// The scratch file is `.NAME.UID.TOKEN.tmp` in the same directory. The token is random and fixed
/// for this process, so other processes of the account may write the same path at the same time.
[[nodiscard]] std::error_code writeAtomically(const std::filesystem::path& path,
                                              std::string_view data,
                                              std::optional<unsigned> mode = std::nullopt);

/// Removes the scratch files that processes of this account left in `directory` when they were
/// killed in `writeAtomically`, as far as it can be listed. A process that is writing there right
/// now repeats its write.
void removeScratchFiles(const std::filesystem::path& directory);

/// Appends `line`, then a line feed in a second write, to an existing file. False only if the file
/// could not be opened for writing; later failures are not reported.
[[nodiscard]] bool appendLine(const std::filesystem::path& path, std::string_view line);

/// Whether something exists at `path`, links followed.
[[nodiscard]] bool exists(const std::filesystem::path& path);

/// Creates the directory and any missing parents. An existing directory is a success.
[[nodiscard]] std::error_code createDirectories(const std::filesystem::path& path);

/// Removes the file, symbolic link or empty directory at `path`; never a tree.
[[nodiscard]] std::error_code remove(const std::filesystem::path& path);

/// Renames `from` to `to` within one directory and flushes the directory, where that is possible.
/// Fails if anything, even a dangling symbolic link, exists at `to`.
[[nodiscard]] std::error_code move(const std::filesystem::path& from,
                                   const std::filesystem::path& to);

/// Sets the permission bits of the file at `path`, symbolic links not followed.
[[nodiscard]] std::error_code setMode(const std::filesystem::path& path, unsigned mode);

}  // namespace orvane::files
