#include "platform/scratch_name.h"

#include "platform/files/files.h"
#include "platform/system_calls.h"
#include "support/test_files.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvane::test {

namespace fs = std::filesystem;

std::string scratchNameOfAWriteTo(const fs::path& path) {
    std::string name;
    SystemCallHooks watching;
    watching.flush = [&](int descriptor) -> std::optional<int> {
        const fs::path flushed = pathOf(descriptor);
        if (!fs::is_directory(flushed)) {
            name = flushed.filename();
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(watching);
    EXPECT_FALSE(files::writeAtomically(path, "new"));
    return name;
}

std::string scratchNameOf(const std::string& name) {
    static const std::string ending = [] {
        const TempDirectory directory;
        return scratchNameOfAWriteTo(directory.path() / "x").substr(2);  // after ".x"
    }();
    return "." + name + ending;
}

}  // namespace orvane::test
