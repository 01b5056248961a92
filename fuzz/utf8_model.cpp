#include "utf8_model.h"

#include <bit>

namespace orvane::fuzz {

namespace {

/// The smallest code point that takes 1, 2, 3, 4 bytes.
constexpr char32_t smallest[] = {0, 0x80, 0x800, 0x10000};

}  // namespace

std::optional<std::u32string> decoded(std::string_view bytes) {
    std::u32string text;
    while (!bytes.empty()) {
        const auto lead = static_cast<unsigned char>(bytes.front());
        const auto ones = static_cast<std::size_t>(std::countl_one(lead));
        const std::size_t length = ones == 0 ? 1 : ones;
        if (ones == 1 || ones > 4 || bytes.size() < length) {
            return std::nullopt;
        }
        char32_t point = lead & (0xFFU >> (ones + (ones == 0 ? 1 : 0)));
        for (const char c : bytes.substr(1, length - 1)) {
            const auto byte = static_cast<unsigned char>(c);
            if ((byte & 0xC0U) != 0x80) {
                return std::nullopt;
            }
            point = point * 64 + (byte & 0x3FU);
        }
        if (point < smallest[length - 1] || point > 0x10FFFF ||
            (point >= 0xD800 && point <= 0xDFFF)) {
            return std::nullopt;
        }
        text += point;
        bytes.remove_prefix(length);
    }
    return text;
}

std::string encoded(std::u32string_view text) {
    std::string bytes;
    for (const char32_t point : text) {
        std::size_t length = 4;
        while (point < smallest[length - 1]) {
            --length;
        }
        const auto part = [point](std::size_t index) { return point >> (6 * index); };
        const unsigned mark = length == 1 ? 0 : 0xF00U >> length & 0xFFU;
        bytes += static_cast<char>(mark | part(length - 1));
        for (std::size_t i = length - 1; i > 0; --i) {
            bytes += static_cast<char>(0x80U | (part(i - 1) & 0x3FU));
        }
    }
    return bytes;
}

std::u32string_view trimmedOf(std::u32string_view text, std::u32string_view set) {
    const auto first = text.find_first_not_of(set);
    if (first == std::u32string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(set) - first + 1);
}

}  // namespace orvane::fuzz
