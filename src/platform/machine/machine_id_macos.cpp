#include "platform/machine/machine_id.h"

namespace orvane {

// macOS identifies itself through its hardware registry alone.
std::optional<std::string> machineId() {
    return std::nullopt;
}

}  // namespace orvane
