#include "daemon/process_entry.h"

#include "daemon/daemon_logger.h"
#include "daemon/policy_runner.h"
#include "platform/environment.h"

#include <cstdlib>
#include <memory>

namespace orvane {

namespace {

// Held for the life of the process.
std::unique_ptr<const Logger> logger;
std::unique_ptr<PolicyRunner> runner;

}  // namespace

void runProcess() {
    occupyStandardDescriptors();
    ignoreBrokenPipes();
    logger = std::make_unique<const Logger>(daemonLogger());
    logger->log("OrvanePolicyDaemon starting (pid=%{public}d)", processId());
    try {
        runner = std::make_unique<PolicyRunner>();
        runner->run();
    } catch (...) {  // NOLINT(bugprone-empty-catch): told below; a fresh process is the remedy
    }
    logger->error("OrvanePolicyDaemon main loop returned — exiting for launchd respawn");
    std::_Exit(EXIT_FAILURE);
}

}  // namespace orvane
