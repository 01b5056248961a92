#include "platform/files/files.h"

#include "platform/files/file_calls.h"
#include "platform/files/uninterrupted.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace orvane::files {

namespace {

namespace fs = std::filesystem;

/// An open regular file and its size; not open if there is none.
struct OpenFile {
    Descriptor descriptor = Descriptor();
    std::uint64_t size = 0;
};

OpenFile openToRead(const fs::path& path) {
    // Non-blocking, so that a FIFO cannot hold the caller.
    Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() || uninterrupted([&] { return ::fstat(file.number(), &status); }) != 0 ||
        !S_ISREG(status.st_mode)) {
        return {};
    }
    return {.descriptor = std::move(file), .size = static_cast<std::uint64_t>(status.st_size)};
}

std::optional<std::string> readToEnd(int descriptor, std::size_t expected, std::size_t limit) {
    std::string content(expected, '\0');
    std::size_t done = 0;
    // Ask for one byte more than expected, so that we see end-of-file, or that the file is growing.
    for (;;) {
        if (done == content.size()) {
            content.resize(std::max<std::size_t>(4096, content.size() + content.size() / 2));
        }
        const ssize_t count = uninterrupted(
            [&] { return ::read(descriptor, content.data() + done, content.size() - done); });
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            content.resize(done);
            return content;
        }
        done += static_cast<std::size_t>(count);
        if (done > limit) {
            return std::nullopt;
        }
    }
}

/// Whether there is a directory at `path`, links followed; sets errno if not.
bool isDirectory(const fs::path& path) {
    struct stat status {};
    if (uninterrupted([&] { return ::stat(path.c_str(), &status); }) != 0) {
        return false;
    }
    errno = ENOTDIR;
    return S_ISDIR(status.st_mode);
}

}  // namespace

std::optional<std::string> read(const fs::path& path, std::size_t limit) {
    const OpenFile file = openToRead(path);
    return file.descriptor.isOpen() && file.size <= limit
               ? readToEnd(file.descriptor.number(), static_cast<std::size_t>(file.size) + 1, limit)
               : std::nullopt;
}

bool readInPieces(const fs::path& path, const TakePiece& take) {
    const OpenFile file = openToRead(path);
    if (!file.descriptor.isOpen()) {
        return false;
    }
    constexpr std::size_t pieceSize = std::size_t{64} * 1024;
    std::string piece(pieceSize, '\0');
    for (;;) {
        const ssize_t count = uninterrupted(
            [&] { return ::read(file.descriptor.number(), piece.data(), piece.size()); });
        if (count <= 0) {
            return count == 0;
        }
        if (!take(std::string_view(piece).substr(0, static_cast<std::size_t>(count)))) {
            return false;
        }
    }
}

bool appendLine(const fs::path& path, std::string_view line) {
    // Non-blocking, so that a FIFO planted under the name cannot hold the caller.
    const Descriptor file = openFile(path, O_WRONLY | O_APPEND | O_NONBLOCK);
    if (!file.isOpen()) {
        return false;
    }
    // End even a line that was cut short (disk full), so that it does not spoil the next one.
    if (writeAll(file.number(), line) > 0) {
        (void)writeAll(file.number(), "\n");
    }
    return true;
}

bool exists(const fs::path& path) {
    struct stat status {};
    return uninterrupted([&] { return ::stat(path.c_str(), &status); }) == 0;
}

std::error_code createDirectories(const fs::path& path) {
    if (path.empty() || isDirectory(path)) {
        return {};
    }
    if (errno != ENOENT) {
        return lastError();
    }
    if (const auto error = createDirectories(path.parent_path())) {
        return error;
    }
    if (uninterrupted([&] { return ::mkdir(path.c_str(), 0777); }) == 0) {
        return {};
    }
    const auto error = lastError();
    // Another process may have created it first.
    return error == std::errc::file_exists && isDirectory(path) ? std::error_code() : error;
}

std::error_code remove(const fs::path& path) {
    // remove(3): unlink for a file or link, rmdir for a directory, which must be empty.
    return uninterrupted([&] { return ::remove(path.c_str()); }) == 0 ? std::error_code()
                                                                      : lastError();
}

std::error_code move(const fs::path& from, const fs::path& to) {
    struct stat status {};
    if (statusOf(to, status)) {
        return std::make_error_code(std::errc::file_exists);
    }
    if (!renameFile(from, to)) {
        return lastError();
    }
    flushDirectory(to.parent_path());
    return {};
}

std::error_code setMode(const fs::path& path, unsigned mode) {
    const auto bits = static_cast<mode_t>(mode);
    return uninterrupted(
               [&] { return ::fchmodat(AT_FDCWD, path.c_str(), bits, AT_SYMLINK_NOFOLLOW); }) == 0
               ? std::error_code()
               : lastError();
}

}  // namespace orvane::files
