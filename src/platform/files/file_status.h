// What the file system says about a file.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace orvane {

struct FileStatus {
    bool isRegular = false;
    std::uint64_t size = 0;
    std::chrono::seconds modifiedAt{};  ///< since 1970-01-01T00:00:00Z
    unsigned mode = 0;                  ///< the permission bits
    std::uint32_t owner = 0;            ///< the user's id
};

/// The status of what is at `path`, a symbolic link not followed; absent if there is nothing or it
/// cannot be seen.
std::optional<FileStatus> fileStatus(const std::filesystem::path& path);

/// The bytes that an account without privileges can still use on the disk with `path`; absent when
/// that cannot be found out. (libc++'s std::filesystem::space takes none for unknown.)
std::optional<std::uintmax_t> freeBytesAt(const std::filesystem::path& path);

}  // namespace orvane
