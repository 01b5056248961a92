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

/// The status of what is at `path`, symbolic links not followed; nullopt if there is nothing or it
/// is not accessible.
std::optional<FileStatus> fileStatus(const std::filesystem::path& path);

/// The bytes that an unprivileged account can still use on the file system of `path`; nullopt if
/// unknown. (libc++'s std::filesystem::space reports an unknown number as 0.)
std::optional<std::uintmax_t> freeBytesAt(const std::filesystem::path& path);

}  // namespace orvane
