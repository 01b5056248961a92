#include "platform/descriptor.h"
#include "platform/files.h"
#include "platform/flush.h"
#include "platform/uninterrupted.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace orvane::files {

namespace {

namespace fs = std::filesystem;

std::error_code lastError() {
    return {errno, std::generic_category()};
}

Descriptor openFile(const fs::path& path, int flags, mode_t mode = 0) {
    return Descriptor(uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

/// Writes all of `data`; the count that got through is less only on failure, with errno set.
std::size_t writeAll(int descriptor, std::string_view data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t count = uninterrupted(
            [&] { return ::write(descriptor, data.data() + done, data.size() - done); });
        if (count == 0) {
            errno = EIO;  // nothing was taken, and nothing says why
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

std::optional<std::string> readToEnd(int descriptor, std::size_t expected) {
    std::string content(expected, '\0');
    std::size_t done = 0;
    // One byte more than expected is asked for, so that the end of the file is seen, and a file
    // that grows meanwhile is taken as it grew.
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
        if (done > sizeLimit) {
            return std::nullopt;
        }
    }
}

bool removeFile(const fs::path& path) {
    return uninterrupted([&] { return ::unlink(path.c_str()); }) == 0;
}

bool renameFile(const fs::path& from, const fs::path& to) {
    return uninterrupted([&] { return ::rename(from.c_str(), to.c_str()); }) == 0;
}

/// The status of what stands at `path`, a link not followed.
bool statusOf(const fs::path& path, struct stat& status) {
    return uninterrupted([&] { return ::lstat(path.c_str(), &status); }) == 0;
}

/// Whether a directory is at `path`, links followed; false with errno set.
bool isDirectory(const fs::path& path) {
    struct stat status {};
    if (uninterrupted([&] { return ::stat(path.c_str(), &status); }) != 0) {
        return false;
    }
    errno = ENOTDIR;
    return S_ISDIR(status.st_mode);
}

/// Whether a file of this account is at `path`. Leaves errno as it is.
bool isOwnFile(const fs::path& path) {
    const int error = errno;
    struct stat status {};
    const bool isOwn =
        statusOf(path, status) && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
    errno = error;
    return isOwn;
}

std::error_code flushDirectory(const fs::path& directory) {
    const Descriptor handle = openFile(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
    if (!handle.isOpen()) {
        return lastError();
    }
    // Some file systems cannot flush a directory and say so; their names are as safe as they get.
    if (!flushToDisk(handle.number()) && errno != EINVAL && errno != ENOTSUP) {
        return lastError();
    }
    return {};
}

/// The hidden name `.NAME.SUFFIX` beside the file NAME at `path`.
fs::path besideWithSuffix(const fs::path& path, const std::string& suffix) {
    fs::path name = ".";
    name += path.filename();
    name += "." + suffix;
    return path.parent_path() / name;
}

/// This account's name for a scratch file. It is always the same, so that what a killed process
/// leaves there is replaced by the next write instead of staying for ever.
fs::path usualScratchName(const fs::path& path) {
    return besideWithSuffix(path, std::to_string(::geteuid()) + ".tmp");
}

/// A name for a scratch file that nobody can foresee, and so nobody can occupy.
fs::path randomScratchName(const fs::path& path) {
    std::random_device device;
    std::array<char, 24> suffix{};
    (void)std::snprintf(suffix.data(), suffix.size(), "%08x%08x.tmp", device(), device());
    return besideWithSuffix(path, suffix.data());
}

/// The file that will replace another one; removed again unless it was put in place.
class ScratchFile {
  public:
    explicit ScratchFile(const fs::path& target) : target_(target) {
        const fs::path usual = usualScratchName(target);
        if (create(usual) || errno != EEXIST) {
            return;
        }
        // Left by a process that was killed. What cannot be removed was put in our way, but for a
        // file of ours: beside it there would soon be many.
        if (!removeFile(usual) && isOwnFile(usual)) {
            return;
        }
        bool created = create(usual);
        constexpr int attempts = 6;
        for (int i = 0; i < attempts && !created && errno == EEXIST; ++i) {
            created = create(randomScratchName(target));
        }
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() {
        if (exists_) {
            (void)removeFile(path_);
        }
    }

    /// False with errno set when a step failed; then the target is untouched.
    bool fillAndPutInPlace(std::string_view data) {
        if (!file_.isOpen() || !keepModeOfTarget() ||
            writeAll(file_.number(), data) != data.size() || !flushToDisk(file_.number()) ||
            !file_.close() || !renameFile(path_, target_)) {
            return false;
        }
        exists_ = false;
        return true;
    }

  private:
    /// False with errno set when there is something at `path` already, or it cannot be.
    bool create(const fs::path& path) {
        path_ = path;
        file_ = openFile(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
        exists_ = file_.isOpen();
        return exists_;
    }

    bool keepModeOfTarget() {
        struct stat existing {};
        if (!statusOf(target_, existing) || !S_ISREG(existing.st_mode)) {
            return true;
        }
        const mode_t bits = existing.st_mode & 0777;
        return uninterrupted([&] { return ::fchmod(file_.number(), bits); }) == 0;
    }

    const fs::path& target_;
    fs::path path_;
    Descriptor file_;
    bool exists_ = false;
};

}  // namespace

std::optional<std::string> read(const fs::path& path) {
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() || uninterrupted([&] { return ::fstat(file.number(), &status); }) != 0 ||
        !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > sizeLimit) {
        return std::nullopt;
    }
    return readToEnd(file.number(), static_cast<std::size_t>(size) + 1);
}

std::error_code writeAtomically(const fs::path& path, std::string_view data) {
    ScratchFile scratch(path);
    if (!scratch.fillAndPutInPlace(data)) {
        return lastError();
    }
    return flushDirectory(path.parent_path());
}

void removeScratchFile(const fs::path& path) {
    (void)removeFile(usualScratchName(path));
}

bool appendLine(const fs::path& path, std::string_view line) {
    // Non-blocking, so that a FIFO planted under the name cannot hold the caller.
    const Descriptor file = openFile(path, O_WRONLY | O_APPEND | O_NONBLOCK);
    if (!file.isOpen()) {
        return false;
    }
    // A line that was cut short (a full disk) is still ended, so that it spoils no later one.
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
    // Somebody else may have been quicker.
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
    return flushDirectory(to.parent_path());
}

std::error_code setMode(const fs::path& path, unsigned mode) {
    const auto bits = static_cast<mode_t>(mode);
    return uninterrupted(
               [&] { return ::fchmodat(AT_FDCWD, path.c_str(), bits, AT_SYMLINK_NOFOLLOW); }) == 0
               ? std::error_code()
               : lastError();
}

}  // namespace orvane::files
