// The page's files, which the build puts into the program.
#pragma once

#include <string_view>

namespace orvane::emulator {

struct PageFile {
    std::string_view path;  ///< In a URL.
    std::string_view type;  ///< For Content-Type.
    std::string_view content;
};

/// The file at `path`; null when there is none.
const PageFile* findPageFile(std::string_view path);

}  // namespace orvane::emulator
