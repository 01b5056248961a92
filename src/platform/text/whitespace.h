// Trimming whitespace. Pure, and safe on any thread.
#pragma once

#include <string_view>

namespace orvane::text {

/// `text` without the horizontal whitespace at its ends: tab and Unicode category Zs. Line breaks
/// stay. REQUIRES: valid UTF-8.
std::string_view withoutOuterSpaces(std::string_view text);

/// As `withoutOuterSpaces`, but trims line breaks as well: LF, VT, FF, CR, NEL, U+2028 and U+2029.
std::string_view withoutOuterWhitespace(std::string_view text);

}  // namespace orvane::text
