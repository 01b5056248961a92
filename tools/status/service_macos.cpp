#include "status/service.h"

#include "platform/machine/accounts.h"
#include "platform/machine/paths.h"
#include "platform/process/child_process.h"

#include <string>

namespace orvane::status {

const ServiceCommands serviceCommands{
    "launchctl kickstart gui/$(id -u)/dev.orvane.policy-daemon",
    "launchctl kickstart -k gui/$(id -u)/dev.orvane.policy-daemon",
    "log show --last 1h --predicate 'subsystem == \"dev.orvane.setup\"'"};

const std::uint32_t firstOrdinaryUser = 501;

Service askServiceManager() {
    if (ownUser() < firstOrdinaryUser) {
        return {.state = ServiceState::systemAccount};
    }
    const std::string session = "gui/" + std::to_string(ownUser());
    const auto tool = paths::systemRoot() / "bin/launchctl";
    const auto own = outputOf(tool, {"print", session});
    if (!own) {
        return {};
    }
    if (own->empty()) {
        return {.state = ServiceState::notLoggedIn};
    }
    // The second one is Homebrew's.
    for (const char* label : {"/dev.orvane.policy-daemon", "/homebrew.mxcl.orvane-policy-daemon"}) {
        const auto listing = outputOf(tool, {"print", session + label}).value_or("");
        if (!listing.empty()) {
            return serviceInLaunchd(listing);
        }
    }
    return serviceInLaunchd("");
}

}  // namespace orvane::status
