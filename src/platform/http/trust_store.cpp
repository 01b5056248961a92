#include "platform/http/trust_store.h"

#include "platform/machine/paths.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace orvane {

namespace {

/// Whether `directory` contains certificates under their hashed names ("5ed36f99.0").
/// Per-certificate lookup avoids loading the whole bundle; with an empty directory no peer would
/// verify.
bool hasHashedCertificates(const std::filesystem::path& directory) {
    constexpr std::size_t hashLength = 8;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.size() == hashLength + 2 && name[hashLength] == '.' &&
            name.find_first_not_of("0123456789abcdef") == hashLength) {
            return true;
        }
    }
    return false;
}

}  // namespace

const std::string& TrustStore::directory() {
    if (!directory_) {
        const auto directory = paths::certificateDirectory();
        directory_ = hasHashedCertificates(directory) ? directory.string() : std::string();
    }
    return *directory_;
}

void TrustStore::forget() {
    directory_.reset();
    bundleIsWanted_ = false;
}

bool TrustStore::hasBundle(CURL* easy) {
    const char* path = nullptr;
    (void)curl_easy_getinfo(easy, CURLINFO_CAINFO, &path);
    return path != nullptr && ::access(path, R_OK) == 0;
}

}  // namespace orvane
