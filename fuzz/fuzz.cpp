#include "fuzz.h"

#include "support/rooted_paths.h"
#include "support/test_files.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvane::fuzz::tryInput({reinterpret_cast<const char*>(data), size});
    return 0;
}

namespace orvane::fuzz {

void check(bool holds, const char* file, int line) {
    if (!holds) {
        (void)std::printf("%s:%d: this does not hold\n", file, line);
        (void)std::fflush(stdout);
        std::abort();
    }
}

std::vector<std::string_view> partsOf(std::string_view input, std::size_t most) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = parts.size() + 1 < most ? input.find('\0') : std::string_view::npos;
        parts.push_back(input.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        input.remove_prefix(end + 1);
    }
}

const std::filesystem::path& rootDirectory() {
    static const test::TempDirectory directory;
    static const bool isSet = (rooted_paths::setRoot(directory.path()), true);
    (void)isSet;
    return directory.path();
}

}  // namespace orvane::fuzz
