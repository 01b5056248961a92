// The machine's hardware UUID.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Asks the system's hardware registry tool or, if that cannot be launched, derives it from the
/// system's machine id. nullopt if neither yields a value; the value may be empty. Blocks while the
/// tool runs; caches nothing.
[[nodiscard]] std::optional<std::string> readHardwareUuid();

/// The UUID in the registry tool's `listing`: of the first line that contains "IOPlatformUUID" and
/// a "=", what follows the first "=", trimmed of whitespace and then of double quotes. nullopt if
/// there is no such line or the listing is not UTF-8. Pure.
[[nodiscard]] std::optional<std::string> hardwareUuidIn(std::string_view listing);

}  // namespace orvane
