// A disk that may lose what was not flushed, by the rules that POSIX leaves a file system free to
// follow: what was written to a file is safe once that file was flushed, and what happened to names
// once their directory was. Until then each change of a name may be there or not, whatever became
// of those before it (a rename is there as a whole or not at all), and a file's new bytes may be
// there up to any one of them, or be zeros.
#pragma once

#include "power/file_operations.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvane::test {

/// By path, the content of a file, or nothing for a directory.
using Tree = std::map<std::string, std::optional<std::string>>;

class Disk {
  public:
    /// How many of a file's possible lengths are looked at: some (the ends of writes, none, one
    /// byte, half, all but one), or every one unless the file has lots of new bytes.
    enum class Detail { some, all };

    /// All of `start` is safe.
    explicit Disk(const Tree& start);

    void apply(const FileOperation& operation);

    /// What there is while the power is on.
    [[nodiscard]] Tree now() const;
    /// Everything that there may be when the power fails now.
    [[nodiscard]] std::set<Tree> afterPowerLoss(Detail detail) const;
    /// The modes that a file which was made since the start may have at `path`, if there is one,
    /// now or when the power fails now.
    [[nodiscard]] std::set<unsigned> possibleModes(const std::string& path) const;

  private:
    struct File {
        std::string bytes;
        std::size_t safe = 0;             ///< how many of them are flushed
        std::set<std::size_t> writeEnds;  ///< lengths that it had since
        std::vector<unsigned> modes;      ///< the last one that was flushed, and those it had since
    };
    using Node = std::optional<std::size_t>;  ///< a file, or nothing for a directory
    using Names = std::map<std::string, Node>;
    /// One step in one directory: a name goes, a name comes, or both at once.
    struct Change {
        std::string goes;
        std::string comes;
        Node node;
    };

    void change(const Change& change);
    void flush(const std::string& path);
    [[nodiscard]] static std::vector<std::string> possibleContents(const File& file, Detail detail);
    /// Adds to `trees` what `names` show with every content that their files may have.
    void addTrees(const Names& names, Detail detail, std::set<Tree>& trees) const;

    std::vector<File> files_;
    Names safeNames_;
    Names names_;
    std::vector<Change> unsafe_;
    std::map<int, std::string> directoryHandles_;
    std::map<int, std::size_t> fileHandles_;
};

}  // namespace orvane::test
