#include "daemon/policy_runner.h"

#include "config/hardware_uuid.h"
#include "daemon/daemon_logger.h"
#include "daemon/poll_request.h"
#include "guard/capture_policy.h"
#include "platform/machine/clock.h"
#include "platform/machine/paths.h"

namespace orvane {

namespace {

constexpr double backOffSeconds = 60.0;
constexpr double noProfileSeconds = 30.0;

/// Longer than the server holds a poll, so that a held one is never cut off from this side.
constexpr HttpLimits sessionLimits{std::chrono::seconds(longPollSeconds + 30),
                                   std::chrono::seconds(longPollSeconds + 60)};

}  // namespace

std::optional<std::string> PolicyRunner::cachedHardwareUuid;

PolicyRunner::PolicyRunner()
    : logger(daemonLogger()),
      session(sessionLimits),
      policyPath(paths::orvaneDirectory() / "policy.json"),
      etagPath(paths::orvaneDirectory() / "policy-etag.json"),
      effectivePath(paths::orvaneDirectory() / "guard-effective.json"),
      waitSeconds(longPollSeconds),
      pollInterval(backOffSeconds) {}

void PolicyRunner::run() {
    logger.log("Resolving credentials from ~/.orvane/config…");
    std::optional<std::string> lastProfileName;
    for (;;) {
        const auto profile = OrvaneConfig::currentProfile();
        if (!profile) {
            logger.log("No usable profile — sleeping 30s and retrying");
            clock::sleep(noProfileSeconds);
            continue;
        }
        if (lastProfileName != profile->name) {
            logger.log("Using profile [%{public}s] api=%{public}s", profile->name, profile->apiUrl);
        }
        pollOnce(*profile);
        lastProfileName = profile->name;
    }
}

std::string PolicyRunner::hardwareUUID() {
    if (!cachedHardwareUuid) {
        cachedHardwareUuid = readHardwareUuid();
    }
    return cachedHardwareUuid.value_or("");
}

void PolicyRunner::applyCaptureFromLocalPolicy() const {
    guard::applyCapturePolicy(policyPath, logger);
}

}  // namespace orvane
