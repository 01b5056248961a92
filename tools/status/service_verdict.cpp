#include "status/service_verdict.h"

#include "status/service.h"

namespace orvane::status {

std::optional<Verdict> judgeService(const Facts& facts) {
    switch (facts.service.state) {
        case ServiceState::stopped:
            return Verdict{.level = Level::notWorking,
                           .problem = "not-running",
                           .reason = "the service is not running",
                           .advice = std::string("start it: ").append(serviceCommands.start)};
        case ServiceState::restarting:
            return Verdict{
                .level = Level::notWorking,
                .problem = "restarting",
                .reason = "the service has ended and is about to be started again",
                .advice = std::string("look for the reason: ").append(serviceCommands.log)};
        case ServiceState::masked:
            return Verdict{
                .level = Level::notWorking,
                .problem = "masked",
                .reason = "the service is masked for this account",
                .advice = "unmask it: systemctl --user unmask orvane-policy-daemon; then start it"};
        case ServiceState::notInstalled:
            return Verdict{.level = Level::notWorking,
                           .problem = "not-installed",
                           .reason = "the service is not installed",
                           .advice = "install the package"};
        case ServiceState::notLoggedIn:
            return Verdict{.level = Level::unknown,
                           .problem = "not-logged-in",
                           .reason = "the account is not logged in, so it has no daemon now",
                           .advice = "nothing needs to be done"};
        case ServiceState::systemAccount:
            return Verdict{.level = Level::unknown,
                           .problem = "system-account",
                           .reason = "root and accounts of the system have no daemon",
                           .advice = "as root, --all shows the other accounts"};
        case ServiceState::running:
        case ServiceState::unknown:
            break;
    }
    return std::nullopt;
}

}  // namespace orvane::status
