// The common base of the fuzz targets. A target defines LLVMFuzzerTestOneInput, which runs the
// daemon's code on one input and checks what came out against a reference implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

/// libFuzzer's way in: hands the input to `tryInput`.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace orvane::fuzz {

/// The target: runs the daemon's code on `input` and checks what came out against a reference
/// implementation. Every target defines it.
void tryInput(std::string_view input);

/// Ends the process, which makes the input a finding, unless `holds`. Says where on standard
/// output, because a target may have the log in place of standard error.
void check(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// The parts of `input` between its NUL bytes, at most `most`; the last one keeps the rest.
std::vector<std::string_view> partsOf(std::string_view input, std::size_t most);

/// The directory that holds all of the daemon's paths. It belongs to this process, exists from the
/// first call to the end of the process, and is empty at first.
const std::filesystem::path& rootDirectory();

}  // namespace orvane::fuzz
