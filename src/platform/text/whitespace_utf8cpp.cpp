#include "platform/text/whitespace.h"

#include <utf8.h>

namespace orvane::text {

namespace {

bool isSpace(char32_t c) {
    return c == U'\t' || c == U' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
           c == 0x202F || c == 0x205F || c == 0x3000;
}

bool isLineBreak(char32_t c) {
    return (c >= U'\n' && c <= U'\r') || c == 0x85 || c == 0x2028 || c == 0x2029;
}

template <typename Predicate>
std::string_view trimmedOf(std::string_view text, Predicate isTrimmed) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    for (const char* next = begin; begin != end && isTrimmed(utf8::unchecked::next(next));) {
        begin = next;
    }
    for (const char* last = end; begin != end && isTrimmed(utf8::unchecked::prior(last));) {
        end = last;
    }
    return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace

std::string_view withoutOuterSpaces(std::string_view text) {
    return trimmedOf(text, isSpace);
}

std::string_view withoutOuterWhitespace(std::string_view text) {
    return trimmedOf(text, [](char32_t c) { return isSpace(c) || isLineBreak(c); });
}

}  // namespace orvane::text
