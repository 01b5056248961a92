#include "platform/files/file_pieces.h"

#include "platform/files/descriptor.h"
#include "platform/files/uninterrupted.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvane {

std::optional<FilePieces> FilePieces::open(const std::filesystem::path& path) {
    Descriptor file(
        uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    struct stat status {};
    if (!file.isOpen() || uninterrupted([&] { return ::fstat(file.number(), &status); }) != 0 ||
        !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FilePieces(std::move(file), static_cast<std::uint64_t>(status.st_size));
}

FilePieces::FilePieces(Descriptor file, std::uint64_t size)
    : file_(std::make_unique<Descriptor>(std::move(file))), size_(size) {}

FilePieces::FilePieces(FilePieces&& other) noexcept = default;
FilePieces& FilePieces::operator=(FilePieces&& other) noexcept = default;
FilePieces::~FilePieces() = default;

std::optional<std::string> FilePieces::read(std::uint64_t offset, std::size_t size) const {
    std::string piece(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = uninterrupted([&] {
            return ::pread(file_->number(), piece.data() + done, size - done,
                           static_cast<off_t>(offset + done));
        });
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    piece.resize(done);
    return piece;
}

}  // namespace orvane
