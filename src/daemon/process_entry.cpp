#include "daemon/process_entry.h"

#include "daemon/daemon_logger.h"
#include "daemon/leftovers.h"
#include "daemon/policy_runner.h"
#include "platform/process/environment.h"
#include "platform/process/heap.h"
#include "platform/process/private_memory.h"

#include <cstdlib>
#include <exception>
#include <memory>

namespace orvane {

namespace {

// Held for the life of the process.
std::unique_ptr<const Logger> logger;
std::unique_ptr<PolicyRunner> runner;

void logException() {
    try {
        if (logger != nullptr) {
            logger->error("OrvanePolicyDaemon cannot go on — exiting for launchd respawn");
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory for a message
    }
}

/// A fresh process is the remedy, whatever was thrown and on whatever thread.
[[noreturn]] void endAfterException() {
    logException();
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

void runProcess() noexcept {
    std::set_terminate(endAfterException);
    keepHeapSmall();
    keepMemoryPrivate();
    occupyStandardDescriptors();
    ignoreWriteSignals();
    // The HTTP library would write the keys of all TLS connections to that file.
    unsetVariable("SSLKEYLOGFILE");
    try {
        logger = std::make_unique<const Logger>(daemonLogger());
        removeLeftovers();
        logger->log("OrvanePolicyDaemon starting (pid=%{public}d)", processId());
        runner = std::make_unique<PolicyRunner>();
        runner->run();
        logger->error("OrvanePolicyDaemon main loop returned — exiting for launchd respawn");
    } catch (...) {
        // Not left to `noexcept`: GCC 16.2 passes on a bad address there, which ends the process by
        // a signal.
        logException();
    }
    std::_Exit(EXIT_FAILURE);
}

}  // namespace orvane
