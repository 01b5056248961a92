// Which source of credentials the daemon uses.
#pragma once

#include "status/facts.h"

#include <optional>

namespace orvane::status {

/// The source that counts now. The choice is the daemon's own code, except for the lookup of the
/// device identity, which is not made: a usable device-identity file counts, unless the last poll,
/// if there is one, went where the config file leads.
std::optional<Source> currentSource(const std::optional<Exchange>& lastPoll);

}  // namespace orvane::status
