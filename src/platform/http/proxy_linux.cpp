#include "platform/http/proxy.h"

namespace orvane {

// The environment is where Linux has such settings.
std::optional<std::string> systemProxyFor(const std::string& /*origin*/) {
    return std::nullopt;
}

}  // namespace orvane
