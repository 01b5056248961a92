// What any answer may have wrong. Pure functions.
#pragma once

#include "emulator/check/finding.h"
#include "emulator/check/outcome.h"
#include "emulator/check/trial.h"

#include <optional>
#include <string>

namespace orvane::emulator {

/// "304 after 0.0 s", and the like for all that can come of a request.
std::string cameOf(const Outcome& outcome);

/// Why `outcome` is of no use where a 200 with a body is needed; absent if it is one.
std::optional<Finding> failureOf(const Trial& trial, const Outcome& outcome);

/// Why the body of a 200 is not a JSON object in the daemon's sense; absent if it is one.
std::optional<Finding> bodyFailureOf(const Trial& trial, const Outcome& outcome);

/// A missing "Cache-Control: no-store".
Findings judgeCaching(const Trial& trial, const Outcome& outcome);

}  // namespace orvane::emulator
