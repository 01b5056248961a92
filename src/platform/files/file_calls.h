// Single calls on files, repeated when a signal interrupts them. For the sources of this directory
// only. All report failure with errno set.
#pragma once

#include "platform/files/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace orvane::files {

/// The error of the call that has just failed.
std::error_code lastError();

/// Opens with O_CLOEXEC in addition to `flags`.
Descriptor openFile(const std::filesystem::path& path, int flags, mode_t mode = 0);

/// Writes all of `data`. Returns the number of bytes written, which is smaller only on failure.
std::size_t writeAll(int descriptor, std::string_view data);

bool removeFile(const std::filesystem::path& path);

bool renameFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// The status of what is at `path`; a symbolic link is not followed.
bool statusOf(const std::filesystem::path& path, struct stat& status);

/// Makes the names in `directory` durable where that is possible. A directory that may not be
/// listed cannot be opened for it, and some file systems cannot flush one: the names are then as
/// safe as the system makes them, and no caller could do more about it.
void flushDirectory(const std::filesystem::path& directory);

}  // namespace orvane::files
