// A stable id of this installation, for systems without a hardware registry tool.
#pragma once

#include <optional>
#include <string>

namespace orvane {

/// This program's own id for this machine, a UUID in lower case. It is derived from the machine's
/// stable id, which cannot be computed from it. nullopt if there is none or its file is malformed.
/// Read on every call.
[[nodiscard]] std::optional<std::string> machineId();

}  // namespace orvane
