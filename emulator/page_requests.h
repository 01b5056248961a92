// What people ask for, by the page, curl or a script: the policy, the faults, what has happened.
#pragma once

#include "emulator/decision.h"
#include "emulator/devices.h"

#include <optional>
#include <span>

namespace orvane::emulator {

/// What an answer can depend on.
struct View {
    const std::optional<Policy>& policy;
    std::span<const Fault> faults;
    const Devices& devices;
};

/// What to do about a request that is not for one of the addresses that agents use. Pure.
///
/// Requests that other web sites make a browser send are refused: those whose Host is a name
/// other than localhost, which may be a foreign name that leads here, and those from another
/// origin.
Decision decideForPeople(const Request& request, const View& view);

/// Whether the request changes something, and is worth a line in the log.
bool changesSomething(const Request& request);

}  // namespace orvane::emulator
