#include "daemon/policy_runner.h"

#include "config/orvane_config.h"
#include "control_plane/effective_config.h"
#include "control_plane/poll_request.h"
#include "daemon/atomic_write.h"
#include "daemon/daemon_logger.h"
#include "daemon/exchange.h"
#include "daemon/policy_store.h"
#include "guard/capture_policy.h"
#include "platform/machine/clock.h"
#include "platform/machine/hardware_uuid.h"
#include "platform/machine/paths.h"

#include <utility>

namespace orvane {

namespace {

// One request a minute notices soon that a key works again or a server is back, and costs neither
// side anything.
constexpr double backOffSeconds = 60.0;
// Someone who has just enrolled may be waiting for it, and checking costs a few file reads and at
// most one request.
constexpr double noProfileSeconds = 30.0;

}  // namespace

std::optional<std::string> PolicyRunner::cachedHardwareUuid;

PolicyRunner::PolicyRunner()
    : logger(daemonLogger()),
      session(pollLimits),
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

void PolicyRunner::pollOnce(const Profile& profile) {
    const auto etag = loadEtag();
    const bool hasLongEtag = etag && isLongEtag(*etag);
    // If a process was killed while it replaced the policy, there is none, and a 304 would leave it
    // missing. What this process itself could not store has been logged, and is not requested again
    // with every poll.
    const bool isWithoutPolicy = !hasReceivedPolicy_ && wasReplacementCutOff(policyPath);
    const bool omitsEtag = isWithoutPolicy || (hasLongEtag && omitsLongEtag_);
    const auto request = pollRequest(profile, omitsEtag ? std::nullopt : etag, waitSeconds);
    if (!request) {
        logger.error("Bad apiUrl in config: %{public}s", profile.apiUrl);
        clock::sleep(pollInterval);
        return;
    }
    ExchangeResult answer = exchange(
        session, *request, PartialResponse::discard,
        [this](const std::string& error) { logger.error("Poll error: %{public}s", error); });
    omitsLongEtag_ = hasLongEtag && !omitsEtag && mayRefuseEtag(answer.status);
    switch (outcomeOf(answer.status)) {
        case PollOutcome::unchanged:
            logger.debug("policy unchanged (etag=%{public}s)", etag.value_or("-"));
            break;
        case PollOutcome::updated:
            handleUpdated(std::move(answer.body), profile);
            break;
        case PollOutcome::rejected:
            logger.error("Auth rejected: HTTP %ld. Re-sign in via the Mac app's Setup tab.",
                         answer.status);
            clock::sleep(pollInterval);
            break;
        case PollOutcome::unexpected:
            logger.error("Unexpected HTTP %{public}ld", answer.status);
            clock::sleep(pollInterval);
            break;
    }
    applyCaptureFromLocalPolicy();
}

void PolicyRunner::handleUpdated(std::optional<std::string> data, const Profile& profile) {
    if (!data || data->empty()) {
        logger.error("200 with no body — skipping write");
        return;
    }
    const auto policy = readPolicy(*data);
    if (!policy) {
        logger.error("Couldn't parse policy JSON — skipping write");
        return;
    }
    hasReceivedPolicy_ = true;
    // The policy first: a crash in between leaves the old ETag, which at worst fetches the same
    // policy again.
    atomicWrite(*data, policyPath);
    if (policy->etag) {
        atomicWrite(etagFileText(*policy->etag), etagPath);
    }
    logger.log("policy updated (%{public}ld bytes)", static_cast<std::int64_t>(data->size()));
    data.reset();  // it may be large, and the next response may be a long time coming
    fetchEffective(profile);
}

std::optional<std::string> PolicyRunner::loadEtag() const {
    return readEtagFile(etagPath);
}

void PolicyRunner::atomicWrite(std::string_view data,
                               const std::filesystem::path& destination) const {
    if (const auto error = replaceFile(data, destination)) {
        logger.error("atomic write to %{public}s failed: %{public}s", destination.string(),
                     error.message());
    }
}

void PolicyRunner::fetchEffective(const Profile& profile) {
    const auto url = effectiveUrl(profile.apiUrl);
    if (!url) {
        return;
    }
    const HttpRequest request = effectiveRequest(*url, profile, hardwareUUID());
    const ExchangeResult answer = exchange(session, request, PartialResponse::keep);
    switch (judgeEffective(answer.status, answer.body)) {
        case EffectiveOutcome::store:
            atomicWrite(*answer.body, effectivePath);
            logger.log("effective config updated (%{public}ld bytes)",
                       static_cast<std::int64_t>(answer.body->size()));
            break;
        case EffectiveOutcome::endpointAbsent:
            logger.debug("guard/effective endpoint not present yet (older controlplane)");
            break;
        case EffectiveOutcome::ignore:
            logger.debug("guard/effective HTTP %{public}ld", answer.status);
            break;
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
