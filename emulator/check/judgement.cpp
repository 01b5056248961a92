#include "emulator/check/judgement.h"

#include "control_plane/agent_config.h"
#include "control_plane/poll_request.h"
#include "daemon/policy_store.h"
#include "emulator/check/general_judgement.h"
#include "platform/text/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view pollsAtOnce =
    "A daemon polls again at once, as fast as the answers come";
constexpr std::string_view loops =
    "A daemon stores it, fetches the effective configuration and polls again at once, at full "
    "speed";
constexpr std::string_view missesPolicies = "A daemon with an older policy does not get this one";

/// What every device takes in any header.
constexpr std::size_t longestGoodTag = 1000;

Findings one(std::string_view request, std::string came, std::string_view daemon,
             std::string_view advice) {
    return {{std::string(request), std::move(came), std::string(daemon), std::string(advice)}};
}

Findings judgeObject(const Trial& trial, const Outcome& outcome) {
    if (auto failure = failureOf(trial, outcome)) {
        return {std::move(*failure)};
    }
    if (auto failure = bodyFailureOf(trial, outcome)) {
        return {std::move(*failure)};
    }
    return {};
}

/// For the first answer of an endpoint.
Findings judgeCacheableObject(const Trial& trial, const Outcome& outcome) {
    Findings findings = judgeObject(trial, outcome);
    return findings.empty() ? judgeCaching(trial, outcome) : findings;
}

Findings& append(Findings& findings, Findings more) {
    findings.insert(findings.end(), more.begin(), more.end());
    return findings;
}

/// Why the daemon stores no ETag from `policy`, a JSON object.
std::string missingTag(const Outcome& outcome) {
    const auto policy = nlohmann::json::parse(*outcome.body, nullptr, /*allow_exceptions=*/false);
    const auto found = policy.is_object() ? policy.find("etag") : policy.end();
    std::string why = "a policy without the member \"etag\"";
    if (found != policy.end()) {
        why = found->is_string() ? "a policy whose \"etag\" is empty"
                                 : "a policy whose \"etag\" is not a string: " +
                                       excerptOf(found->dump(-1, ' ', true));
    }
    return why + (outcome.headers.contains("etag") ? "; the header ETag is not read" : "");
}

bool breaksHeader(char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) > 0x7e;
}

/// Whether the answer shows that a wrong key is as good as the right one.
Findings judgeRefusal(const Trial& trial, const Outcome& outcome) {
    if (outcome.status == 401 || outcome.status == 403) {
        return {};
    }
    if (outcome.status == 200) {
        return one(trial.request, cameOf(outcome),
                   "A daemon takes the answer; so does everybody else, whatever key they send",
                   "Answer 401 to keys that are not valid");
    }
    return one(trial.request, cameOf(outcome),
               "A daemon does not say that its key is rejected, which is what people look for",
               "Answer 401 to keys that are not valid, at once");
}

bool isCutHold(const Outcome& outcome) {
    const bool isGatewayTimeout = outcome.status == 502 || outcome.status == 504;
    return (outcome.error || isGatewayTimeout) && outcome.took >= 1s;
}

}  // namespace

Findings judgeLookup(const Outcome& outcome) {
    Findings findings = judgeCacheableObject(trials::lookup, outcome);
    if (outcome.status != 200 || !outcome.body || bodyFailureOf(trials::lookup, outcome)) {
        return findings;
    }
    const auto config =
        readAgentConfig(HttpResponse{.status = 200, .body = outcome.body}, "http://fallback");
    if (!config) {
        return append(findings,
                      one(trials::lookup.request, "no \"upload_api_key\" with a key in it",
                          trials::lookup.afterFailure, "Send the key for the other requests"));
    }
    if (config->agentSlug.empty()) {
        append(findings, one(trials::lookup.request, "no \"agent_slug\" with a name in it",
                             trials::lookup.afterFailure, "Send the slug of the device's agent"));
    }
    const auto url = Url::parse(config->apiUrl);
    if (!url || !url->isFetchable()) {
        append(findings, one(trials::lookup.request,
                             "an \"api_url\" that is none: " + excerptOf(config->apiUrl),
                             "A daemon sends its polls there and nowhere else",
                             "Send where the other requests go, or leave it out if that is here"));
    }
    return findings;
}

Findings judgeLookupWithWrongToken(const Outcome& outcome) {
    if (outcome.status != 200 || !outcome.body ||
        !readAgentConfig(HttpResponse{.status = 200, .body = outcome.body}, "")) {
        return {};
    }
    return one(trials::lookupWithWrongToken.request, cameOf(outcome) + ", with a key",
               "A daemon uses the key, and so does everybody else, whatever token they send",
               "Answer 401 to tokens that are not valid");
}

Findings judgeFirstPoll(const Outcome& outcome) {
    if (outcome.isOutstanding) {
        return one(trials::firstPoll.request, cameOf(outcome),
                   "A daemon has no policy until one comes",
                   "Send the policy at once, and see that there is one for these credentials; "
                   "--wait SECONDS has this check wait longer");
    }
    if (outcome.status == 304) {
        return one(trials::firstPoll.request, cameOf(outcome), pollsAtOnce,
                   "Send the policy, or hold the poll as long as there is none");
    }
    return judgeCacheableObject(trials::firstPoll, outcome);
}

Findings judgeTag(const Outcome& outcome) {
    const auto policy = orvane::readPolicy(outcome.body.value_or(""));
    if (!policy || !policy->etag) {
        return one(trials::firstPoll.request, missingTag(outcome),
                   "A daemon stores the policy, keeps the ETag it had, and polls again at once: at "
                   "full speed if it is answered the same way",
                   "Give each policy a member \"etag\", a string that is another one for each");
    }
    const std::string& tag = *policy->etag;
    if (text::hasControlCharacter(tag)) {
        return one(
            trials::firstPoll.request, "an \"etag\" with a control character: " + excerptOf(tag),
            "A daemon never sends it, is sent the same policy each time, and loops at full speed",
            "Use letters, digits, '.', '-' and '_'");
    }
    Findings findings;
    if (tag.size() > longestGoodTag) {
        append(findings,
               one(trials::firstPoll.request,
                   "an \"etag\" of " + std::to_string(tag.size()) + " bytes",
                   "A daemon sends it, and where a server or proxy refuses such a header, each "
                   "second poll is lost",
                   "Keep it within 1,000 bytes; a hash of the policy will do"));
    }
    if (std::any_of(tag.begin(), tag.end(), breaksHeader)) {
        append(findings,
               one(trials::firstPoll.request,
                   "an \"etag\" with quotes or other such characters: " + excerptOf(tag),
                   "A daemon sends it between double quotes, unchanged, and not all servers read "
                   "it back",
                   "Use letters, digits, '.', '-' and '_', without the quotes of a header"));
    }
    return findings;
}

Findings judgeEffective(const Outcome& outcome) {
    return outcome.status == 404 ? Findings{} : judgeCacheableObject(trials::effective, outcome);
}

Findings judgePollWithWrongKey(const Outcome& outcome) {
    return judgeRefusal(trials::pollWithWrongKey, outcome);
}

Findings judgeEffectiveWithWrongKey(const Outcome& outcome) {
    return outcome.status == 404 ? Findings{}
                                 : judgeRefusal(trials::effectiveWithWrongKey, outcome);
}

Findings judgeUnknownTag(const Trial& trial, const Outcome& outcome) {
    if (outcome.isOutstanding || outcome.status == 304) {
        return one(trial.request, cameOf(outcome), missesPolicies,
                   "Answer at once with the policy unless If-None-Match has exactly its ETag, in "
                   "double quotes");
    }
    return judgeObject(trial, outcome);
}

Findings judgeLongTag(const Outcome& outcome) {
    if (!outcome.isOutstanding && outcome.status != 200 && outcome.status != 304) {
        return mayRefuseEtag(outcome.status)
                   ? Findings{}
                   : one(trials::pollWithLongTag.request, cameOf(outcome),
                         "A daemon sends such an ETag again after 60 s, and never gets past it",
                         "Refuse a header that is too long with 431, or 400, 413 or 414");
    }
    return judgeUnknownTag(trials::pollWithLongTag, outcome);
}

Findings judgeShortPoll(const Outcome& outcome) {
    if (outcome.status == 304) {
        return {};
    }
    if (outcome.isOutstanding) {
        return one(trials::shortPoll.request, cameOf(outcome),
                   "A daemon gives up a poll that is not answered for 330 s",
                   "Answer 304 when the seconds in wait are over");
    }
    if (outcome.status == 200) {
        return one(trials::shortPoll.request, cameOf(outcome), loops,
                   "Hold the poll while If-None-Match has the ETag of the policy, and then answer "
                   "304");
    }
    return judgeObject(trials::shortPoll, outcome);
}

Findings judgeHold(const Outcome& outcome, const std::string& liveTag) {
    if (outcome.isOutstanding || (outcome.status == 304 && outcome.took >= shortestHold)) {
        return {};
    }
    if (outcome.status == 304) {
        return one(trials::heldPoll.request, cameOf(outcome), pollsAtOnce,
                   "Hold it until there is another policy, or for up to the 300 s in wait");
    }
    if (outcome.status == 200 && outcome.body) {
        const auto policy = orvane::readPolicy(*outcome.body);
        const bool isSame = policy && policy->etag == liveTag;
        return one(trials::heldPoll.request,
                   cameOf(outcome) + (isSame ? ", with the same ETag" : ", without the same ETag"),
                   loops,
                   isSame ? "Compare If-None-Match with the member \"etag\" of the policy"
                          : "Change the ETag only when the policy changes");
    }
    if (outcome.took >= std::chrono::seconds(longPollSeconds)) {
        return one(
            trials::heldPoll.request, cameOf(outcome), trials::heldPoll.afterFailure,
            "Answer 304 within the 300 s in wait: after 330 s without a byte a daemon gives up");
    }
    if (isCutHold(outcome)) {
        return one(trials::heldPoll.request, cameOf(outcome), trials::heldPoll.afterFailure,
                   "Hold polls for less time than what is in between allows, or give that an idle "
                   "timeout of more than 300 s");
    }
    return judgeObject(trials::heldPoll, outcome);
}

}  // namespace orvane::emulator
