// Replacing a file atomically, by renaming a scratch file over it.
#include "platform/files/file_calls.h"
#include "platform/files/files.h"
#include "platform/files/flush.h"
#include "platform/files/uninterrupted.h"

#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

namespace orvane::files {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view scratchExtension = ".tmp";
constexpr std::size_t tokenLength = 16;

/// Unpredictable hexadecimal digits.
std::string randomToken() {
    std::uint64_t number = 0;
    // Fails only on kernels without the call; the number stays 0 then.
    [[maybe_unused]] const int failed = ::getentropy(&number, sizeof number);
    std::array<char, tokenLength + 1> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%016jx", std::uintmax_t{number});
    return digits.data();
}

/// The part of this account's scratch names before the token.
std::string accountPart() {
    return "." + std::to_string(::geteuid()) + ".";
}

/// `.NAME.UID.TOKEN.tmp` next to the file NAME at `target`.
fs::path scratchPath(const fs::path& target, const std::string& token) {
    fs::path name = ".";
    name += target.filename();
    name += accountPart() + token;
    name += scratchExtension;
    return target.parent_path() / name;
}

/// Whether `name` is a scratch name of this account.
bool isScratchName(std::string_view name) {
    const std::string account = accountPart();
    const std::size_t tail = account.size() + tokenLength + scratchExtension.size();
    if (name.size() <= tail || !name.starts_with('.') || !name.ends_with(scratchExtension)) {
        return false;
    }
    name.remove_suffix(scratchExtension.size());
    const std::string_view token = name.substr(name.size() - tokenLength);
    name.remove_suffix(tokenLength);
    return name.ends_with(account) &&
           token.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// Whether there is a regular file of this account at `path`. Preserves errno: the constructor of
/// ScratchFile, its caller, reports its own failure there.
bool isOwnFile(const fs::path& path) {
    const int error = errno;
    struct stat status {};
    const bool isOwn =
        statusOf(path, status) && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
    errno = error;
    return isOwn;
}

/// The file that will replace another one; removed again unless it was put in place. If it could
/// not be created, `isThere` is false and errno, left by the constructor, says why.
class ScratchFile {
  public:
    explicit ScratchFile(const fs::path& target) : target_(target) {
        // One name per process and target: no other process of this account uses it, and if nothing
        // can be removed there, one leftover stays, not one for each write.
        // branch of a race: another thread initializes it
        static const std::string processToken = randomToken();
        const fs::path usual = scratchPath(target, processToken);
        if (create(usual) || errno != EEXIST) {
            return;  // created, or failed for a reason that another name would not change
        }
        // A leftover. If it is ours and cannot be removed, give up with the errno of the removal:
        // with random names, leftovers would pile up.
        if (!removeFile(usual) && isOwnFile(usual)) {
            return;
        }
        // If another account that has seen the name put something there that we cannot remove, fall
        // back to random names. errno is that of the last attempt.
        bool created = create(usual);
        constexpr int attempts = 6;
        for (int i = 0; i < attempts && !created && errno == EEXIST; ++i) {
            created = create(scratchPath(target, randomToken()));
        }
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() {
        if (isThere_) {
            (void)removeFile(path_);
        }
    }

    /// Whether the file was created and not yet put in place.
    [[nodiscard]] bool isThere() const { return isThere_; }

    /// False with errno set if a step failed; the target is unchanged then.
    bool fillAndPutInPlace(std::string_view data, std::optional<unsigned> mode) {
        if (!file_.isOpen() || !setMode(mode) || writeAll(file_.number(), data) != data.size() ||
            !flushToDisk(file_.number()) || !file_.close() || !renameFile(path_, target_)) {
            return false;
        }
        isThere_ = false;
        return true;
    }

  private:
    /// False with errno set if there is something at `path` already, or it cannot be created.
    bool create(const fs::path& path) {
        path_ = path;
        file_ = openFile(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
        isThere_ = file_.isOpen();
        return isThere_;
    }

    /// Sets `mode`, or the permission bits of the file to be replaced. Done while the file is still
    /// empty, so that its content is never readable by more accounts than it should be.
    bool setMode(std::optional<unsigned> mode) {
        if (mode) {
            (void)changeMode(static_cast<mode_t>(*mode));
            return true;
        }
        struct stat existing {};
        return !statusOf(target_, existing) || !S_ISREG(existing.st_mode) ||
               changeMode(existing.st_mode & 0777);
    }

    bool changeMode(mode_t bits) {
        return uninterrupted([&] { return ::fchmod(file_.number(), bits); }) == 0;
    }

    const fs::path& target_;
    fs::path path_;
    Descriptor file_;
    bool isThere_ = false;
};

}  // namespace

std::error_code writeAtomically(const fs::path& path, std::string_view data,
                                std::optional<unsigned> mode) {
    std::error_code error;
    // A process of this account that starts meanwhile takes our scratch file for a leftover and
    // removes it. Starting three times during one write, it would be in a crash loop.
    constexpr int attempts = 3;
    for (int i = 0; i < attempts; ++i) {
        ScratchFile scratch(path);
        if (scratch.fillAndPutInPlace(data, mode)) {
            flushDirectory(path.parent_path());
            return {};
        }
        error = lastError();
        if (!scratch.isThere() || error != std::errc::no_such_file_or_directory) {
            break;
        }
    }
    return error;
}

void removeScratchFiles(const fs::path& directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path& path = entry->path();
        const std::string name = path.filename();
        if (isScratchName(name) && isOwnFile(path)) {
            (void)removeFile(path);
        }
    }
}

}  // namespace orvane::files
