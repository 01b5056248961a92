// What the state of the service alone says about a daemon.
#pragma once

#include "status/facts.h"
#include "status/verdict.h"

#include <optional>

namespace orvane::status {

/// Absent if the service runs, or if there is no service manager to ask. Pure.
std::optional<Verdict> judgeService(const Facts& facts);

}  // namespace orvane::status
