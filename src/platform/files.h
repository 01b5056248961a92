// Whole files and directories.
//
// Nothing here throws for what the file system does: a read that cannot be had is an absent value,
// all else returns a std::error_code that is false on success and whose message() is for people.
// Every descriptor is closed on exec. Safe on any thread, but two writers of one path must not
// overlap.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace orvane::files {

/// The largest file that `read` takes. It is that of an HTTP body (`HttpSession::bodyLimit`), for a
/// policy is stored as it came, and fits into the service's memory limit of 256 MiB with what is
/// made of it.
inline constexpr std::size_t sizeLimit = std::size_t{100} * 1024 * 1024;

/// The whole content of the regular file at `path`, links followed. Absent when it cannot be read,
/// is not a regular file (a FIFO never blocks the caller) or is larger than `sizeLimit`.
std::optional<std::string> read(const std::filesystem::path& path);

/// Replaces the file at `path` as a whole: readers see the old content or the new, never a part.
/// The content is on disk before it gets its name, and the name before this returns (fsync(2)). A
/// symbolic link at `path` is itself replaced. An existing file's permission bits are kept, a new
/// file gets 0666 less the process's mask. On failure `path` is as it was and no scratch file
/// stays; only when nothing but the flush of the directory fails, the new content is in its place.
/// The scratch file is `.NAME.UID.tmp` in the same directory: one that a killed process left there
/// is replaced. Where something else that cannot be removed has that name, a random one is taken.
[[nodiscard]] std::error_code writeAtomically(const std::filesystem::path& path,
                                              std::string_view data);

/// Removes the scratch file that a process killed in `writeAtomically` may have left for `path`;
/// most often there is none. For paths that are not written as a whole again soon.
void removeScratchFile(const std::filesystem::path& path);

/// Appends `line`, then a line feed in a second write, to an existing file. False only when the
/// file could not be opened for writing; what goes wrong afterwards is not reported.
bool appendLine(const std::filesystem::path& path, std::string_view line);

/// Whether something exists at `path`, links followed.
bool exists(const std::filesystem::path& path);

/// Creates the directory with all that is missing above it. An existing directory is a success.
[[nodiscard]] std::error_code createDirectories(const std::filesystem::path& path);

/// Removes the file, the link itself or the empty directory at `path`; never a tree.
[[nodiscard]] std::error_code remove(const std::filesystem::path& path);

/// Renames `from` to `to` within one directory and puts the renaming on disk. It is an error when
/// anything, even a dangling link, stands at `to`.
[[nodiscard]] std::error_code move(const std::filesystem::path& from,
                                   const std::filesystem::path& to);

/// Sets the permission bits of the file at `path`, a symbolic link not followed.
[[nodiscard]] std::error_code setMode(const std::filesystem::path& path, unsigned mode);

}  // namespace orvane::files
