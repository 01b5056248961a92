// Single system calls on files, retried when interrupted by a signal. For the sources of this
// folder only. On failure all set errno.
#pragma once

#include "platform/files/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace orvane::files {

/// errno, as set by the call that has just failed.
std::error_code lastError();

/// Opens with O_CLOEXEC in addition to `flags`.
Descriptor openFile(const std::filesystem::path& path, int flags, mode_t mode = 0);

/// Writes all of `data`. Returns the number of bytes written, which is smaller only on failure.
std::size_t writeAll(int descriptor, std::string_view data);

bool removeFile(const std::filesystem::path& path);

bool renameFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// The status of what is at `path`; symbolic links are not followed.
bool statusOf(const std::filesystem::path& path, struct stat& status);

/// Makes the names in `directory` durable where that is possible. A directory without read
/// permission cannot be opened for that, and some file systems cannot flush one. No caller could do
/// anything about it, so it is not reported.
void flushDirectory(const std::filesystem::path& directory);

}  // namespace orvane::files
