// A stable id of this installation, for systems without a hardware registry tool.
#pragma once

#include <optional>
#include <string>

namespace orvane {

/// The machine's own stable id in the form of a UUID, lower case as the system keeps it; absent
/// where the system has none or its file is not what it should be. Read anew on every call.
std::optional<std::string> machineId();

}  // namespace orvane
