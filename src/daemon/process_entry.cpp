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

// Live as long as the process.
std::unique_ptr<const Logger> logger;
std::unique_ptr<PolicyRunner> runner;

void logException() {
    try {
        if (logger != nullptr) {
            logger->error("OrvanePolicyDaemon cannot go on — exiting for launchd respawn");
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): out of memory, nothing can be logged
    }
}

/// A new process is the remedy, whatever was thrown on whatever thread.
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
    // libcurl would write the keys of all TLS connections to the file it names.
    unsetVariable("SSLKEYLOGFILE");
    try {
        logger = std::make_unique<const Logger>(daemonLogger());
        logger->log("OrvanePolicyDaemon starting (pid=%{public}d)", processId());
        removeLeftovers();
        runner = std::make_unique<PolicyRunner>();
        runner->run();
        logger->error("OrvanePolicyDaemon main loop returned — exiting for launchd respawn");
    } catch (...) {
        // Not left to `noexcept` and std::terminate: GCC 16.2 passes a bad address there, and the
        // process would die of a signal instead of exiting with status 1.
        logException();
    }
    std::_Exit(EXIT_FAILURE);
}

}  // namespace orvane
