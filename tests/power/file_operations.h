// What a piece of code does to the files below a directory, in order.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace orvane::test {

struct FileOperation {
    enum class Kind { makeDirectory, open, write, changeMode, flush, rename, remove };

    Kind kind;
    std::string path;      ///< below the directory; empty for what goes by a handle
    std::string argument;  ///< the target of a rename, the bytes of a write
    int handle = -1;       ///< of an open file or directory, never used again
    bool creates = false;  ///< for `open`
    unsigned mode = 0;     ///< that a file has from then on, when it is created or changed
};

/// Runs `body` and gives the operations below `root` that succeeded in it, on any thread, but for
/// the reading ones. Nothing is really flushed in this program, which saves much time.
std::vector<FileOperation> recordFileOperations(const std::filesystem::path& root,
                                                const std::function<void()>& body);

}  // namespace orvane::test
