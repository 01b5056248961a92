#include "daemon/arguments.h"

#include <string_view>

namespace orvane {

namespace {

constexpr std::string_view version = "OrvanePolicyDaemon " ORVANE_VERSION "\n";

constexpr std::string_view help =
    R"(Usage: OrvanePolicyDaemon [--version | --help]

Keeps this account's guard policy in step with its control plane, until it is
stopped. It is meant to be started by the service manager. Any other arguments
are ignored; there are no settings but these files:

  /private/tmp/dev.orvane.setup/enroll-config.json    managed enrollment
  /private/tmp/dev.orvane.setup/device-identity.json  device identity
  ~/.orvane/config                                    the account's own settings

  --version  print the version and exit
  --help     print this and exit
)";

}  // namespace

std::optional<std::string> answerTo(std::span<const char* const> arguments) {
    const std::string_view only = arguments.size() == 2 ? arguments[1] : "";
    if (only == "--version") {
        return std::string(version);
    }
    return only == "--help" ? std::optional(std::string(help)) : std::nullopt;
}

}  // namespace orvane
