#include "platform/text/text.h"

#include <utf8.h>

#include <algorithm>
#include <iterator>

namespace orvane::text {

bool isUtf8(std::string_view bytes) {
    // Most strings are pure ASCII, which is cheap to check.
    const auto* const first = std::find_if(
        bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
    return utf8::is_valid(first, bytes.end());
}

std::string repairedUtf8(std::string_view bytes) {
    std::string repaired;
    repaired.reserve(bytes.size());
    utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(repaired));
    return repaired;
}

std::string_view withoutByteOrderMark(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.starts_with(mark) ? text.substr(mark.size()) : text;
}

std::string_view trimmed(std::string_view text, char character) {
    const auto first = text.find_first_not_of(character);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(character) - first + 1);
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

}  // namespace orvane::text
