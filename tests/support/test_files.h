// Small file helpers for tests.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

/// A directory of its own under the system's temporary directory, removed with all in it.
class TempDirectory {
  public:
    TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// Removes everything in it.
    void clear() const;

  private:
    std::filesystem::path path_;
};

/// Writes `content`, making the directories above; throws when it cannot.
void writeFile(const std::filesystem::path& path, std::string_view content);

/// The file's content; throws when it cannot be read.
std::string readFile(const std::filesystem::path& path);

/// The names of what is in `directory`, sorted; empty when there is no such directory.
std::vector<std::string> namesIn(const std::filesystem::path& directory);

/// The name of a scratch file that a killed process of this account may have left for the file
/// `name`.
std::string leftoverNameOf(const std::string& name);

/// The permission bits of `path`.
unsigned modeOf(const std::filesystem::path& path);

/// This process's open descriptors, and the one that it takes to list them.
std::vector<int> openDescriptors();

}  // namespace orvane::test
