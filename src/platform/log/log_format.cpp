#include "platform/log/log_format.h"

#include "platform/text/text.h"

#include <cstdio>

namespace orvane {

namespace {

std::string escapeOf(unsigned char byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default: {
            std::array<char, 8> buffer{};
            (void)std::snprintf(buffer.data(), buffer.size(), "\\u%04x",
                                static_cast<unsigned>(byte));
            return buffer.data();
        }
    }
}

/// Whether a C1 control character (U+0080 to U+009F, in UTF-8 C2 80 to C2 9F) starts at `index`.
bool isC1ControlAt(std::string_view text, std::size_t index) {
    const std::string_view two = text.substr(index, 2);
    return two >= "\xC2\x80" && two < "\xC2\xA0";
}

std::string shown(const LogConversion& conversion, const LogArgument& argument) {
    if (const auto* text = std::get_if<std::string_view>(&argument)) {
        return conversion.isPublic ? printable(*text) : "<private>";
    }
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
        return std::to_string(*number);
    }
    return std::get<bool>(argument) ? "true" : "false";
}

}  // namespace

std::string printable(std::string_view text) {
    const std::string repaired = text::repairedUtf8(text);
    std::string safe;
    safe.reserve(repaired.size());
    for (std::size_t i = 0; i < repaired.size(); ++i) {
        const auto byte = static_cast<unsigned char>(repaired[i]);
        if (byte < 0x20 || byte == 0x7F) {
            safe += escapeOf(byte);
        } else if (isC1ControlAt(repaired, i)) {
            safe += escapeOf(static_cast<unsigned char>(repaired[++i]));
        } else {
            safe += repaired[i];
        }
    }
    return safe;
}

std::string renderMessage(std::string_view format, std::span<const LogArgument> arguments) {
    std::string message;
    std::size_t from = 0;
    for (const LogArgument& argument : arguments) {
        const LogConversion conversion = nextConversion(format, from);
        message += format.substr(from, conversion.begin - from);
        message += shown(conversion, argument);
        from = conversion.end;
    }
    message += format.substr(from);
    return message;
}

}  // namespace orvane
