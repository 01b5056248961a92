#include "status/service.h"

#include "platform/files/files.h"
#include "platform/machine/accounts.h"
#include "platform/machine/paths.h"
#include "platform/process/child_process.h"

#include <chrono>
#include <cstdlib>

namespace orvane::status {

const ServiceCommands serviceCommands{"systemctl --user start orvane-policy-daemon",
                                      "systemctl --user restart orvane-policy-daemon",
                                      "journalctl --user -t OrvanePolicyDaemon"};

/// As systemd has it (ConditionUser=@system).
const std::uint32_t firstOrdinaryUser = 1000;

Service askServiceManager() {
    const auto root = paths::systemRoot();
    if (!files::exists(root / "run/systemd/system")) {
        return {};
    }
    const auto runtime = "/run/user/" + std::to_string(ownUser());
    if (!files::exists(root / runtime.substr(1) / "systemd/private")) {
        const auto lingering = root / "var/lib/systemd/linger" / accountName(ownUser());
        return {.state = stateWithoutManager(ownUser(), files::exists(lingering))};
    }
    // Not set in cron jobs and after su(1).
    (void)setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    const auto properties = outputOf(
        root / "usr/bin/systemctl",
        {"--user", "show",
         "--property=LoadState,ActiveState,MainPID,NRestarts,ActiveEnterTimestampMonotonic",
         "orvane-policy-daemon.service"});
    // systemd's clock stands still while the machine sleeps, unlike ours.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return serviceFor(ownUser(), serviceInSystemd(properties.value_or(""), now));
}

}  // namespace orvane::status
