// The hardware registry tool's output: the UUID in it is the one that a second reading, by
// characters, finds; and in a line of the usual form it is found again.
#include "fuzz.h"
#include "platform/machine/hardware_uuid.h"
#include "utf8_model.h"

namespace orvane::fuzz {

namespace {

std::optional<std::string> uuidIn(std::u32string_view listing) {
    const std::u32string whitespace = std::u32string(spaces) + U"\n\v\f\r\u0085\u2028\u2029";
    while (!listing.empty()) {
        const auto line = listing.substr(0, listing.find(U'\n'));
        listing.remove_prefix(std::min(listing.size(), line.size() + 1));
        if (line.find(U"IOPlatformUUID") != std::u32string_view::npos &&
            line.find(U'=') != std::u32string_view::npos) {
            const auto value = trimmedOf(line.substr(line.find(U'=') + 1), whitespace);
            return encoded(trimmedOf(value, U"\""));
        }
    }
    return std::nullopt;
}

}  // namespace

void tryInput(std::string_view input) {
    const auto characters = decoded(input);
    const auto uuid = hardwareUuidIn(input);
    check(uuid == (characters ? uuidIn(*characters) : std::nullopt));
    check(!uuid || hardwareUuidIn("  |   \"IOPlatformUUID\" = \"" + *uuid + "\"\n") == uuid);
}

}  // namespace orvane::fuzz
