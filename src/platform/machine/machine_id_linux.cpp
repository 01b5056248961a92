#include "platform/machine/machine_id.h"

#include "platform/files/files.h"
#include "platform/machine/hmac.h"
#include "platform/machine/paths.h"
#include "platform/text/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace orvane {

namespace {

using Id = std::array<std::uint8_t, 16>;

/// This program's own id, generated once. It must never change, or every machine would get a new
/// id.
constexpr Id applicationId{0xbc, 0x95, 0xcd, 0x8e, 0xd8, 0x8e, 0x4c, 0xf1,
                           0x9c, 0x75, 0x72, 0x74, 0x18, 0xb6, 0x3a, 0x56};

bool isLowerHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

/// machine-id(5): one line of 32 lower-case hexadecimal digits; "uninitialized" in an image that
/// has never booted.
std::optional<Id> idIn(std::string_view content) {
    const std::string_view digits = text::trimmed(content, '\n');
    Id id{};
    if (digits.size() != 2 * id.size() ||
        !std::all_of(digits.begin(), digits.end(), isLowerHexDigit)) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < id.size(); ++i) {
        const std::string_view byte = digits.substr(2 * i, 2);
        (void)std::from_chars(byte.data(), byte.data() + byte.size(), id.at(i), 16);
    }
    return id;
}

/// In the usual notation, marked as random (RFC 9562, version 4).
std::string uuidOf(const Sha256& digest) {
    std::string uuid;
    for (std::size_t i = 0; i < Id().size(); ++i) {
        unsigned byte = digest.at(i);
        if (i == 6) {
            byte = (byte & 0x0FU) | 0x40U;
        } else if (i == 8) {
            byte = (byte & 0x3FU) | 0x80U;
        }
        std::array<char, 4> text{};
        const bool startsGroup = i == 4 || i == 6 || i == 8 || i == 10;
        (void)std::snprintf(text.data(), text.size(), "%s%02x", startsGroup ? "-" : "", byte);
        uuid += text.data();
    }
    return uuid;
}

}  // namespace

std::optional<std::string> machineId() {
    const auto content = files::read(paths::machineIdFile(), files::foreignSizeLimit);
    const auto id = content ? idIn(*content) : std::nullopt;
    // machine-id(5) forbids sending the id itself, from which other programs derive secrets, too.
    // sd_id128_get_machine_app_specific(3) yields the same.
    return id ? std::optional(uuidOf(hmacSha256(*id, applicationId))) : std::nullopt;
}

}  // namespace orvane
