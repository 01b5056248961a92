#include "status/lines_backward.h"

#include "platform/files/file_pieces.h"

#include <algorithm>
#include <string>

namespace orvane::status {

namespace {

constexpr std::uint64_t pieceSize = 65536;
constexpr std::size_t longestLine = 65536;

/// Puts lines together from pieces of a file that come from its end.
class LineJoiner {
  public:
    explicit LineJoiner(const std::function<bool(std::string_view)>& take) : take_(take) {}

    /// Takes the piece before the previous one. Returns false if no more are wanted.
    bool add(std::string_view piece) {
        for (;;) {
            const auto lineFeed = piece.rfind('\n');
            if (lineFeed == std::string_view::npos) {
                prepend(piece);
                return true;
            }
            prepend(piece.substr(lineFeed + 1));
            if (!finishLine()) {
                return false;
            }
            piece = piece.substr(0, lineFeed);
        }
    }

    /// Ends the line that has been assembled so far. Returns false if no more are wanted.
    bool finishLine() {
        const bool isLine = !isTooLong_ && !line_.empty();
        const bool wantsMore = !isLine || take_(line_);
        line_.clear();
        isTooLong_ = false;
        return wantsMore;
    }

  private:
    void prepend(std::string_view part) {
        isTooLong_ = isTooLong_ || line_.size() + part.size() > longestLine;
        if (isTooLong_) {
            line_.clear();
        } else {
            line_.insert(0, part);
        }
    }

    const std::function<bool(std::string_view)>& take_;
    std::string line_;
    bool isTooLong_ = false;
};

}  // namespace

bool LinesBackward::read(const std::filesystem::path& file,
                         const std::function<bool(std::string_view)>& take) {
    const auto pieces = FilePieces::open(file);
    if (!pieces) {
        return false;
    }
    LineJoiner joiner(take);
    std::uint64_t position = pieces->size();
    while (position > 0) {
        const std::uint64_t size = std::min({pieceSize, position, bytesLeft_});
        if (size == 0) {
            isExhausted_ = true;
            return true;  // the beginning of this line was dropped
        }
        position -= size;
        bytesLeft_ -= size;
        // What cannot be read is like a torn line.
        if (!joiner.add(pieces->read(position, static_cast<std::size_t>(size)).value_or(""))) {
            return true;
        }
    }
    (void)joiner.finishLine();
    return true;
}

}  // namespace orvane::status
