#include "platform/machine/machine_id.h"

namespace orvane {

// On macOS the hardware registry is the only source.
std::optional<std::string> machineId() {
    return std::nullopt;
}

}  // namespace orvane
