#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace orvane::emulator {

/// The decimal number that is all of `text`; absent when it is none, or not in the range.
template <typename Number>
std::optional<Number> numberIn(std::string_view text, Number least, Number most) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most) {
        return std::nullopt;
    }
    return number;
}

}  // namespace orvane::emulator
