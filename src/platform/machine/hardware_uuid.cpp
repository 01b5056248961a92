#include "platform/machine/hardware_uuid.h"

#include "platform/machine/machine_id.h"
#include "platform/machine/paths.h"
#include "platform/process/child_process.h"
#include "platform/text/text.h"
#include "platform/text/whitespace.h"

#include <algorithm>

namespace orvane {

namespace {

std::optional<std::string> uuidInLine(std::string_view line) {
    const auto equals = line.find('=');
    if (line.find("IOPlatformUUID") == std::string_view::npos || equals == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view value = text::withoutOuterWhitespace(line.substr(equals + 1));
    return std::string(text::trimmed(value, '"'));
}

}  // namespace

std::optional<std::string> hardwareUuidIn(std::string_view listing) {
    if (!text::isUtf8(listing)) {
        return std::nullopt;
    }
    while (!listing.empty()) {
        const std::string_view line = listing.substr(0, listing.find('\n'));
        if (auto uuid = uuidInLine(line)) {
            return uuid;
        }
        listing.remove_prefix(std::min(listing.size(), line.size() + 1));
    }
    return std::nullopt;
}

std::optional<std::string> readHardwareUuid() {
    const auto listing = outputOf(paths::registryTool(), {"-rd1", "-c", "IOPlatformExpertDevice"});
    return listing ? hardwareUuidIn(*listing) : machineId();
}

}  // namespace orvane
