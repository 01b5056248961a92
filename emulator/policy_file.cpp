#include "emulator/policy_file.h"

#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace orvane::emulator {

std::optional<std::string> readFile(const std::filesystem::path& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file.is_open() || std::filesystem::is_directory(path)) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return std::move(content).str();
}

bool WatchedFile::changed() {
    auto now = stamp();
    const bool isOther = std::exchange(isFirst_, false) || now != seen_;
    seen_ = now;
    return isOther;
}

std::optional<WatchedFile::Stamp> WatchedFile::stamp() const {
    struct stat status {};
    std::error_code failed;
    const auto changedAt = std::filesystem::last_write_time(path_, failed);
    if (failed || ::stat(path_.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Stamp{changedAt, static_cast<std::uintmax_t>(status.st_size), status.st_ino};
}

}  // namespace orvane::emulator
