#include "power/file_operations.h"

#include "support/test_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace orvane::test {

namespace {

using Kind = FileOperation::Kind;

class Recorder;

/// The session's thread opens and closes files, too, also when a recording begins or ends.
std::mutex mutex;
Recorder* recorder = nullptr;

/// Takes note of what succeeds while it exists. `mutex` guards everything.
class Recorder {
  public:
    explicit Recorder(const std::filesystem::path& root) : root_(root.string() + "/") {
        const std::lock_guard lock(mutex);
        recorder = this;
    }
    ~Recorder() {
        const std::lock_guard lock(mutex);
        recorder = nullptr;
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void opened(const std::string& path, int descriptor, bool creates) {
        if (const auto name = below(path)) {
            handles_[descriptor] = ++lastHandle_;
            operations_.push_back({Kind::open, *name, "", lastHandle_, creates, modeOf(path)});
        }
    }
    void closed(int descriptor) { handles_.erase(descriptor); }
    void used(Kind kind, int descriptor, std::string bytes, unsigned mode = 0) {
        if (const auto handle = handles_.find(descriptor); handle != handles_.end()) {
            operations_.push_back({kind, "", std::move(bytes), handle->second, false, mode});
        }
    }
    void named(Kind kind, const std::string& path, const std::string& target = "") {
        if (const auto name = below(path)) {
            operations_.push_back({kind, *name, below(target).value_or("")});
        }
    }
    std::vector<FileOperation> take() {
        const std::lock_guard lock(mutex);
        return std::move(operations_);
    }

  private:
    [[nodiscard]] std::optional<std::string> below(const std::string& path) const {
        return path.starts_with(root_) ? std::optional(path.substr(root_.size())) : std::nullopt;
    }

    const std::string root_;
    std::map<int, int> handles_;  ///< of the descriptors that are open
    int lastHandle_ = 0;
    std::vector<FileOperation> operations_;
};

/// Passes `result` on, after `note` if it means success.
template <typename Result, typename Note>
Result noted(Result result, const Note& note) {
    const std::lock_guard lock(mutex);
    if (recorder != nullptr && result >= 0) {
        note(*recorder);
    }
    return result;
}

}  // namespace

std::vector<FileOperation> recordFileOperations(const std::filesystem::path& root,
                                                const std::function<void()>& body) {
    Recorder own(root);
    body();
    return own.take();
}

}  // namespace orvane::test

// These take the place of the C library's in this program alone.
extern "C" {

using orvane::test::Kind;
using orvane::test::noted;

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    const bool creates = (flags & O_CREAT) != 0 && ::faccessat(AT_FDCWD, path, F_OK, 0) != 0;
    const int descriptor = ::openat(AT_FDCWD, path, flags, mode);
    return noted(descriptor, [&](auto& notes) { notes.opened(path, descriptor, creates); });
}

ssize_t write(int descriptor, const void* buffer, std::size_t size) {
    const ssize_t count = ::syscall(SYS_write, descriptor, buffer, size);
    return noted(count, [&](auto& notes) {
        notes.used(Kind::write, descriptor,
                   {static_cast<const char*>(buffer), static_cast<std::size_t>(count)});
    });
}

int fchmod(int descriptor, mode_t mode) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_fchmod, descriptor, mode));
    return noted(result, [&](auto& notes) { notes.used(Kind::changeMode, descriptor, "", mode); });
}

int fsync(int descriptor) {
    return noted(0, [&](auto& notes) { notes.used(Kind::flush, descriptor, ""); });
}

int close(int descriptor) {
    // Before it is closed, for then another thread may get the same descriptor.
    (void)noted(0, [&](auto& notes) { notes.closed(descriptor); });
    return static_cast<int>(::syscall(SYS_close, descriptor));
}

int mkdir(const char* path, mode_t mode) noexcept {
    return noted(::mkdirat(AT_FDCWD, path, mode),
                 [&](auto& notes) { notes.named(Kind::makeDirectory, path); });
}

int rename(const char* from, const char* to) noexcept {
    return noted(::renameat(AT_FDCWD, from, AT_FDCWD, to),
                 [&](auto& notes) { notes.named(Kind::rename, from, to); });
}

int unlink(const char* path) noexcept {
    return noted(::unlinkat(AT_FDCWD, path, 0),
                 [&](auto& notes) { notes.named(Kind::remove, path); });
}

int remove(const char* path) noexcept {
    const int result = ::unlink(path);
    return result != 0 && errno == EISDIR ? ::rmdir(path) : result;
}

}  // extern "C"
