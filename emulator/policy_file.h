#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace orvane::emulator {

/// The whole content of a file; nothing when it cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& path);

/// Tells when a file became another: by its time of change, its size or its identity on disk.
class WatchedFile {
  public:
    explicit WatchedFile(std::filesystem::path path) : path_(std::move(path)) {}

    /// True on the first call, and whenever the file appeared, changed or went away since the
    /// last one. A change made after this returns is reported by the next call.
    bool changed();

    const std::filesystem::path& path() const { return path_; }

  private:
    struct Stamp {
        std::filesystem::file_time_type changedAt;
        std::uintmax_t size;
        ino_t inode;
        bool operator==(const Stamp&) const = default;
    };
    std::optional<Stamp> stamp() const;

    std::filesystem::path path_;
    std::optional<Stamp> seen_;
    bool isFirst_ = true;
};

}  // namespace orvane::emulator
