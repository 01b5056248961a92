// The lines of a text file from its end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>

namespace orvane::status {

/// Reads files backward in pieces, with a limit on the bytes of all of them: however large a file
/// or long a line is, little of it is held in memory.
class LinesBackward {
  public:
    explicit LinesBackward(std::uint64_t mostBytes) : bytesLeft_(mostBytes) {}

    /// Hands the lines of `file` to `take`, the last one first, until it returns false or the limit
    /// is reached. Lines of more than 64 KiB are left out. Text after the last line feed counts as
    /// a line. Returns false if the file cannot be read.
    bool read(const std::filesystem::path& file, const std::function<bool(std::string_view)>& take);

    /// Whether something was not read because of the limit.
    [[nodiscard]] bool isExhausted() const { return isExhausted_; }

  private:
    std::uint64_t bytesLeft_;
    bool isExhausted_ = false;
};

}  // namespace orvane::status
