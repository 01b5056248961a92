// What the system's service manager says about the daemon of the account that runs this.
#pragma once

#include "status/facts.h"

#include <chrono>
#include <string_view>

namespace orvane::status {

/// Asks the service manager. The service is `unknown` where there is none.
Service askServiceManager();

/// The command that starts the daemon, the one that restarts it, and the one that shows its log,
/// for the account itself.
struct ServiceCommands {
    std::string_view start;
    std::string_view restart;
    std::string_view log;
};
extern const ServiceCommands serviceCommands;

/// The lowest user id that does not belong to a system account.
extern const std::uint32_t firstOrdinaryUser;

/// The state of an account that has no service manager now. One that lingers always has one, unless
/// something is wrong. Pure.
ServiceState stateWithoutManager(std::uint32_t user, bool lingers);

/// `service` as it is for `user`: for a system account, a stopped service is normal. Pure.
Service serviceFor(std::uint32_t user, Service service);

/// Interprets the output of `systemctl show`; `now` is the time on CLOCK_MONOTONIC. Pure.
Service serviceInSystemd(std::string_view properties, std::chrono::nanoseconds now);

/// Interprets the output of `launchctl print`, empty if launchd does not know the service. Pure.
Service serviceInLaunchd(std::string_view listing);

}  // namespace orvane::status
