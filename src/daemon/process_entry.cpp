#include "daemon/process_entry.h"

#include "daemon/daemon_logger.h"
#include "daemon/leftovers.h"
#include "daemon/policy_runner.h"
#include "platform/environment.h"
#include "platform/heap.h"

#include <cstdlib>
#include <exception>
#include <memory>

namespace orvane {

namespace {

// Held for the life of the process.
std::unique_ptr<const Logger> logger;
std::unique_ptr<PolicyRunner> runner;

/// A fresh process is the remedy, whatever ended the loop and on whatever thread.
[[noreturn]] void endProcess() {
    try {
        if (logger != nullptr) {
            logger->error("OrvanePolicyDaemon main loop returned — exiting for launchd respawn");
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is no memory for words
    }
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

void runProcess() noexcept {
    std::set_terminate(endProcess);
    keepHeapSmall();
    occupyStandardDescriptors();
    ignoreBrokenPipes();
    try {
        removeLeftovers();
        logger = std::make_unique<const Logger>(daemonLogger());
        logger->log("OrvanePolicyDaemon starting (pid=%{public}d)", processId());
        runner = std::make_unique<PolicyRunner>();
        runner->run();
    } catch (...) {  // NOLINT(bugprone-empty-catch): the end is the same
        // Not left to `noexcept`: GCC 16.2 hands on a bad address there, which ends it by a signal.
    }
    endProcess();
}

}  // namespace orvane
