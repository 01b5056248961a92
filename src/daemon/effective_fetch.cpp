#include "daemon/exchange.h"
#include "daemon/policy_runner.h"
#include "guard/effective_config.h"

#include <utility>

namespace orvane {

void PolicyRunner::fetchEffective(const Profile& profile) {
    const auto url = guard::effectiveUrl(profile.apiUrl);
    if (!url) {
        return;
    }
    const HttpRequest request =
        guard::effectiveRequest(*url, profile.apiKey, profile.agentSlug, hardwareUUID());
    const ExchangeResult answer =
        exchange(session, request, [](HttpResult result, ExchangeResult& cells) {
            cells.error = std::move(result.error);
            if (result.response) {
                cells.status = result.response->status;
                cells.body = std::move(result.response->body);
            }
        });
    switch (guard::judgeEffective(answer.status, answer.body)) {
        case guard::EffectiveOutcome::store:
            atomicWrite(*answer.body, effectivePath);
            logger.log("effective config updated (%{public}ld bytes)",
                       static_cast<std::int64_t>(answer.body->size()));
            break;
        case guard::EffectiveOutcome::endpointAbsent:
            logger.debug("guard/effective endpoint not present yet (older controlplane)");
            break;
        case guard::EffectiveOutcome::ignore:
            logger.debug("guard/effective HTTP %{public}ld", answer.status);
            break;
    }
}

}  // namespace orvane
