#include "config/white_space.h"

#include <algorithm>
#include <array>
#include <span>

namespace orvane {

namespace {

// In valid UTF-8 no character's bytes end with those of another, so looking at the ends of a text
// by bytes is exact.
constexpr std::array<std::string_view, 18> blanks{
    "\t",           " ",
    "\xC2\xA0",      // U+0009, U+0020, U+00A0
    "\xE1\x9A\x80",  // U+1680
    "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82",  // U+2000 to U+200A
    "\xE2\x80\x83", "\xE2\x80\x84",
    "\xE2\x80\x85",  //
    "\xE2\x80\x86", "\xE2\x80\x87",
    "\xE2\x80\x88",  //
    "\xE2\x80\x89", "\xE2\x80\x8A",
    "\xE2\x80\xAF",  // U+202F
    "\xE2\x81\x9F",  // U+205F
    "\xE3\x80\x80",  // U+3000
};
constexpr std::array<std::string_view, 7> lineBreaks{
    "\n",       "\v",           "\f",           "\r",  // U+000A to U+000D
    "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9",        // U+0085, U+2028, U+2029
};

enum class Breaks { keep, trim };

template <typename Matches>
std::size_t lengthOfMatch(Breaks breaks, Matches matches) {
    const auto lengthAmong = [&](std::span<const std::string_view> characters) {
        const auto found = std::find_if(characters.begin(), characters.end(), matches);
        return found == characters.end() ? 0 : found->size();
    };
    const std::size_t blank = lengthAmong(blanks);
    return blank != 0 || breaks == Breaks::keep ? blank : lengthAmong(lineBreaks);
}

std::string_view trimmedOf(std::string_view text, Breaks breaks) {
    const auto starts = [&](std::string_view c) { return text.starts_with(c); };
    const auto ends = [&](std::string_view c) { return text.ends_with(c); };
    while (const std::size_t length = lengthOfMatch(breaks, starts)) {
        text.remove_prefix(length);
    }
    while (const std::size_t length = lengthOfMatch(breaks, ends)) {
        text.remove_suffix(length);
    }
    return text;
}

}  // namespace

std::string_view withoutOuterBlanks(std::string_view text) {
    return trimmedOf(text, Breaks::keep);
}

std::string_view withoutOuterBlanksAndBreaks(std::string_view text) {
    return trimmedOf(text, Breaks::trim);
}

}  // namespace orvane
