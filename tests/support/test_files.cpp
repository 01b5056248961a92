#include "support/test_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace orvane::test {

namespace fs = std::filesystem;

TempDirectory::TempDirectory() {
    std::string name = fs::temp_directory_path() / "orvane-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = fs::canonical(name);
}

TempDirectory::~TempDirectory() {
    std::error_code error;
    fs::remove_all(path_, error);
}

void TempDirectory::clear() const {
    for (const auto& entry : fs::directory_iterator(path_)) {
        fs::remove_all(entry.path());
    }
}

void writeFile(const fs::path& path, std::string_view content) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const fs::path& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string leftoverNameOf(const std::string& name) {
    return "." + name + "." + std::to_string(::geteuid()) + ".0123456789abcdef.tmp";
}

unsigned modeOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::runtime_error("no such file " + path.string());
    }
    return status.st_mode & 07777U;
}

std::vector<int> openDescriptors() {
    std::vector<int> descriptors;
    for (const std::string& name : namesIn("/dev/fd")) {
        descriptors.push_back(std::stoi(name));
    }
    return descriptors;
}

}  // namespace orvane::test
