#include "platform/http/proxy.h"

namespace orvane {

// On Linux, such settings are in the environment.
std::optional<std::string> systemProxyFor(const std::string& /*origin*/) {
    return std::nullopt;
}

}  // namespace orvane
