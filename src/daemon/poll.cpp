#include "daemon/exchange.h"
#include "daemon/policy_runner.h"
#include "daemon/poll_request.h"
#include "platform/machine/clock.h"

#include <utility>

namespace orvane {

void PolicyRunner::pollOnce(const Profile& profile) {
    const auto etag = loadEtag();
    const bool hasLongTag = etag && isLongTag(*etag);
    // A process that was killed while it replaced the policy left none, and "unchanged" would bring
    // none. What this process itself could not replace has been logged, and is not asked for again
    // and again.
    const bool isWithoutPolicy = !hasReceivedPolicy_ && wasCutOff(policyPath);
    const bool leavesTagOut = isWithoutPolicy || (hasLongTag && leavesLongTagOut_);
    const auto request = pollRequest(profile, leavesTagOut ? std::nullopt : etag, waitSeconds);
    if (!request) {
        logger.error("Bad apiUrl in config: %{public}s", profile.apiUrl);
        clock::sleep(pollInterval);
        return;
    }
    ExchangeResult answer =
        exchange(session, *request, [this](HttpResult result, ExchangeResult& cells) {
            cells.error = std::move(result.error);
            if (cells.error) {
                logger.error("Poll error: %{public}s", *cells.error);
            } else {
                cells.status = result.response->status;
                cells.body = std::move(result.response->body);
            }
        });
    leavesLongTagOut_ = hasLongTag && !leavesTagOut && mayRefuseTag(answer.status);
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

}  // namespace orvane
