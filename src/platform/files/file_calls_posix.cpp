#include "platform/files/file_calls.h"

#include "platform/files/flush.h"
#include "platform/files/uninterrupted.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace orvane::files {

namespace fs = std::filesystem;

std::error_code lastError() {
    return {errno, std::generic_category()};
}

Descriptor openFile(const fs::path& path, int flags, mode_t mode) {
    return Descriptor(uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

std::size_t writeAll(int descriptor, std::string_view data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t count = uninterrupted(
            [&] { return ::write(descriptor, data.data() + done, data.size() - done); });
        if (count == 0) {
            errno = EIO;  // a write of 0 bytes leaves errno unset, and retrying could loop
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

bool removeFile(const fs::path& path) {
    return uninterrupted([&] { return ::unlink(path.c_str()); }) == 0;
}

bool renameFile(const fs::path& from, const fs::path& to) {
    return uninterrupted([&] { return ::rename(from.c_str(), to.c_str()); }) == 0;
}

bool statusOf(const fs::path& path, struct stat& status) {
    return uninterrupted([&] { return ::lstat(path.c_str(), &status); }) == 0;
}

void flushDirectory(const fs::path& directory) {
    const Descriptor handle = openFile(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
    if (handle.isOpen()) {
        (void)flushToDisk(handle.number());
    }
}

}  // namespace orvane::files
