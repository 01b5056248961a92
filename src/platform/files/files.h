// Whole files and directories.
//
// Nothing here throws for what the file system does. What can fail and whose failure matters
// returns an absent value, false, or a std::error_code that is false on success and whose message()
// is for people; each operation says which. Every descriptor is closed on exec. Safe on any thread,
// but one process must not write the same path from two threads at once.
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

/// The largest file that `read` takes. It is that of an HTTP body (`HttpSession::bodyLimit`), for a
/// policy is stored as it came, and fits into the service's memory limit of 256 MiB with what is
/// made of it.
inline constexpr std::size_t sizeLimit = std::size_t{100} * 1024 * 1024;

/// The same for a file of the setup directory, which any account may have put there: what such a
/// file holds is small, and a sparse file costs its owner nothing.
inline constexpr std::size_t foreignSizeLimit = std::size_t{1024} * 1024;

/// The whole content of the regular file at `path`, links followed. Absent when it cannot be read,
/// is not a regular file (a FIFO never blocks the caller) or is larger than `limit`.
std::optional<std::string> read(const std::filesystem::path& path, std::size_t limit = sizeLimit);

/// Takes the next piece of a file; false to read no further.
using TakePiece = std::function<bool(std::string_view piece)>;

/// Reads the regular file at `path`, links followed, and hands it to `take` piece by piece, so that
/// its size does not matter to the caller's memory. True when all of it was taken; false, too, when
/// it cannot be read or is not a regular file. A file that grows meanwhile is read to its new end:
/// `take` has to stop one that has no end.
bool readInPieces(const std::filesystem::path& path, const TakePiece& take);

/// Replaces the file at `path` as a whole: readers see the old content or the new, never a part.
/// The content is on disk before it gets its name, and so is the name before this returns, where
/// the directory can be flushed (fsync(2)). A symbolic link at `path` is itself replaced. The new
/// file has the permission bits `mode` from the start, as far as they can be set; without `mode`
/// those of the file that it replaces, or 0666 less the process's mask where there is none. On
/// failure `path` is as it was and no scratch file stays.
///
/// The scratch file is `.NAME.UID.TOKEN.tmp` in the same directory. The token is a random one of
/// this process, so other processes of the account may write the same path at the same time.
[[nodiscard]] std::error_code writeAtomically(const std::filesystem::path& path,
                                              std::string_view data,
                                              std::optional<unsigned> mode = std::nullopt);

/// Removes the scratch files of this account that processes killed in `writeAtomically` left in
/// `directory`, as far as it can be listed. A process that is writing there writes again.
void removeScratchFiles(const std::filesystem::path& directory);

/// Appends `line`, then a line feed in a second write, to an existing file. False only when the
/// file could not be opened for writing; what goes wrong afterwards is not reported.
bool appendLine(const std::filesystem::path& path, std::string_view line);

/// Whether something exists at `path`, links followed.
bool exists(const std::filesystem::path& path);

/// Creates the directory with all that is missing above it. An existing directory is a success.
[[nodiscard]] std::error_code createDirectories(const std::filesystem::path& path);

/// Removes the file, the link itself or the empty directory at `path`; never a tree.
[[nodiscard]] std::error_code remove(const std::filesystem::path& path);

/// Renames `from` to `to` within one directory and puts the renaming on disk, where the directory
/// can be flushed. It is an error when anything, even a dangling link, is at `to`.
[[nodiscard]] std::error_code move(const std::filesystem::path& from,
                                   const std::filesystem::path& to);

/// Sets the permission bits of the file at `path`, a symbolic link not followed.
[[nodiscard]] std::error_code setMode(const std::filesystem::path& path, unsigned mode);

}  // namespace orvane::files
