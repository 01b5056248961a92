// The daemon's name in the log.
#pragma once

#include "platform/log/logger.h"

namespace orvane {

/// A logger under the daemon's subsystem and category.
inline Logger daemonLogger() {
    return {"dev.orvane.setup", "policy-daemon"};
}

}  // namespace orvane
