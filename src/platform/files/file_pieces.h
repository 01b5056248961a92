// A file that is read in pieces, because it may be too large for memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace orvane {

class Descriptor;

/// A regular file, open for reading. It stays the same file if it is renamed or removed.
class FilePieces {
  public:
    /// nullopt if there is no such file, it cannot be read, or it is not a regular file (links are
    /// followed; a FIFO does not block).
    static std::optional<FilePieces> open(const std::filesystem::path& path);

    FilePieces(FilePieces&& other) noexcept;
    FilePieces& operator=(FilePieces&& other) noexcept;
    FilePieces(const FilePieces&) = delete;
    FilePieces& operator=(const FilePieces&) = delete;
    ~FilePieces();

    /// The file's size when it was opened.
    [[nodiscard]] std::uint64_t size() const { return size_; }

    /// The `size` bytes at `offset`, or fewer at the end of the file. nullopt on an error.
    [[nodiscard]] std::optional<std::string> read(std::uint64_t offset, std::size_t size) const;

  private:
    FilePieces(Descriptor file, std::uint64_t size);

    std::unique_ptr<Descriptor> file_;
    std::uint64_t size_;
};

}  // namespace orvane
