#include "platform/file_status.h"
#include "platform/uninterrupted.h"

#include <sys/stat.h>

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

}  // namespace orvane
