// Runs a fuzz target once on every file of the directories that it is given: the corpus as a test,
// with any compiler.
#include "fuzz.h"
#include "support/test_files.h"

#include <cstdio>
#include <exception>

namespace {

std::size_t replay(const std::filesystem::path& corpus) {
    std::size_t count = 0;
    for (const std::string& name : orvane::test::namesIn(corpus)) {
        const std::string content = orvane::test::readFile(corpus / name);
        // Of just this size, so that a read beyond the end is seen.
        const std::vector<std::uint8_t> input(content.begin(), content.end());
        // On standard output, so that the last name is the culprit's when a check ends the process.
        (void)std::printf("%s\n", name.c_str());
        (void)std::fflush(stdout);
        (void)LLVMFuzzerTestOneInput(input.data(), input.size());
        ++count;
    }
    return count;
}

}  // namespace

int main(int count, char** arguments) try {
    std::size_t inputs = 0;
    for (int i = 1; i < count; ++i) {
        inputs += replay(arguments[i]);
    }
    (void)std::printf("%zu inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
} catch (const std::exception& error) {
    (void)std::printf("%s\n", error.what());
    return 1;
}
