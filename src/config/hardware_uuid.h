// The machine's hardware UUID.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Asks the system's hardware registry tool or, where that cannot be launched, the system's own
/// stable machine id. Absent when neither yields a value; a value found may be the empty text.
/// Blocks while the tool runs; keeps nothing between calls.
std::optional<std::string> readHardwareUuid();

/// The UUID in the registry tool's `listing`: of the first line that holds "IOPlatformUUID" and a
/// "=", what is behind the first "=", without outer white space, then without outer double quotes.
/// Absent when there is no such line or the listing is not UTF-8. Pure.
std::optional<std::string> hardwareUuidIn(std::string_view listing);

}  // namespace orvane
