#include "platform/descriptor.h"
#include "platform/files.h"
#include "platform/flush.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <random>

namespace orvane::files {

namespace {

namespace fs = std::filesystem;

std::error_code lastError() {
    return {errno, std::generic_category()};
}

Descriptor openFile(const fs::path& path, int flags, mode_t mode = 0) {
    int number = -1;
    do {
        number = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (number < 0 && errno == EINTR);
    return Descriptor(number);
}

/// Writes all of `data`; the count that got through is less only on failure, with errno set.
std::size_t writeAll(int descriptor, std::string_view data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t count = ::write(descriptor, data.data() + done, data.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

/// A read that an interruption does not end.
ssize_t readSome(int descriptor, char* buffer, std::size_t size) {
    ssize_t count = 0;
    do {
        count = ::read(descriptor, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
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
        const ssize_t count = readSome(descriptor, content.data() + done, content.size() - done);
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

/// A name beside `path` that nobody can foresee.
fs::path scratchNameFor(const fs::path& path) {
    std::random_device device;
    std::array<char, 24> suffix{};
    (void)std::snprintf(suffix.data(), suffix.size(), ".%08x%08x", device(), device());
    fs::path name = ".";
    name += path.filename();
    name += suffix.data();
    return path.parent_path() / name;
}

/// The file that will replace another one; removed again unless it was put in place.
class ScratchFile {
  public:
    explicit ScratchFile(const fs::path& target) : target_(target) {
        constexpr int attempts = 7;
        for (int attempt = 0; attempt < attempts && !file_.isOpen(); ++attempt) {
            path_ = scratchNameFor(target);
            file_ = openFile(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
            if (!file_.isOpen() && errno != EEXIST) {
                break;
            }
        }
        created_ = file_.isOpen();
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() {
        if (created_) {
            (void)::unlink(path_.c_str());
        }
    }

    /// False with errno set when a step failed; then the target is untouched.
    bool fillAndPutInPlace(std::string_view data) {
        if (!file_.isOpen() || !keepModeOfTarget() ||
            writeAll(file_.number(), data) != data.size() || !flushToDisk(file_.number()) ||
            !file_.close() || ::rename(path_.c_str(), target_.c_str()) != 0) {
            return false;
        }
        created_ = false;
        return true;
    }

  private:
    bool keepModeOfTarget() {
        struct stat existing {};
        if (::lstat(target_.c_str(), &existing) != 0 || !S_ISREG(existing.st_mode)) {
            return true;
        }
        return ::fchmod(file_.number(), existing.st_mode & 0777) == 0;
    }

    const fs::path& target_;
    fs::path path_;
    Descriptor file_;
    bool created_ = false;
};

}  // namespace

std::optional<std::string> read(const fs::path& path) {
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
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
    return ::stat(path.c_str(), &status) == 0;
}

std::error_code createDirectories(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    return error;
}

std::error_code remove(const fs::path& path) {
    // remove(3): unlink for a file or link, rmdir for a directory, which must be empty.
    return ::remove(path.c_str()) == 0 ? std::error_code() : lastError();
}

std::error_code move(const fs::path& from, const fs::path& to) {
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0) {
        return std::make_error_code(std::errc::file_exists);
    }
    if (::rename(from.c_str(), to.c_str()) != 0) {
        return lastError();
    }
    return flushDirectory(to.parent_path());
}

std::error_code setMode(const fs::path& path, unsigned mode) {
    const auto bits = static_cast<mode_t>(mode);
    return ::fchmodat(AT_FDCWD, path.c_str(), bits, AT_SYMLINK_NOFOLLOW) == 0 ? std::error_code()
                                                                              : lastError();
}

}  // namespace orvane::files
