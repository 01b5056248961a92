// A stable id of this installation, for systems without a hardware registry tool.
#pragma once

#include <optional>
#include <string>

namespace orvane {

/// An id that this program alone has for this machine, as a UUID in lower case: derived from the
/// machine's own stable id, which cannot be found from it. Absent where the system has none or its
/// file is not what it should be. Read anew on every call.
std::optional<std::string> machineId();

}  // namespace orvane
