// Which characters count as white space around names and values.
#pragma once

#include <string_view>

namespace orvane {

/// `text` without the horizontal white space at its ends: tab and Unicode's category Zs. Line
/// breaks stay. REQUIRES: valid UTF-8.
std::string_view withoutOuterBlanks(std::string_view text);

/// As `withoutOuterBlanks`, line breaks removed as well: LF, VT, FF, CR, NEL, U+2028 and U+2029.
std::string_view withoutOuterBlanksAndBreaks(std::string_view text);

}  // namespace orvane
