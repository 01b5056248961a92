#include "platform/files/file_status.h"

#include "platform/files/uninterrupted.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace orvane {

std::optional<FileStatus> fileStatus(const std::filesystem::path& path) {
    struct stat status {};
    if (uninterrupted([&] { return ::lstat(path.c_str(), &status); }) != 0) {
        return std::nullopt;
    }
    return FileStatus{S_ISREG(status.st_mode), static_cast<std::uint64_t>(status.st_size),
                      std::chrono::seconds(status.st_mtime), status.st_mode & 07777U,
                      status.st_uid};
}

std::optional<std::uintmax_t> freeBytesAt(const std::filesystem::path& path) {
    struct statvfs disk {};
    if (::statvfs(path.c_str(), &disk) != 0) {
        return std::nullopt;
    }
    return std::uintmax_t{disk.f_bavail} * disk.f_frsize;
}

}  // namespace orvane
