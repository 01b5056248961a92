// What each fault makes of a poll.
#include "emulator/agent_requests.h"
#include "emulator/front/front.h"

#include <array>
#include <string_view>

namespace orvane::emulator {
namespace {

constexpr std::size_t longTagLength = 9000;
constexpr std::uint64_t hugeLength = std::uint64_t{101} << 20U;

constexpr std::string_view portalPage =
    "<!DOCTYPE html><html><head><title>Sign in</title></head><body><h1>Welcome to the guest "
    "network</h1><form><input type=\"submit\" value=\"Sign in\"></form></body></html>\n";

std::string textOf(const std::optional<Policy>& policy) {
    return policy ? policy->text : R"({"etag":"no-policy-yet"})";
}

Decision droppedMidBody(const std::optional<Policy>& policy) {
    const std::string text = textOf(policy);
    return Reply{.status = 200,
                 .body = text.substr(0, text.size() / 2),
                 .rest = Rest::lost,
                 .promised = text.size()};
}

Decision truncated(const std::optional<Policy>& policy) {
    const std::string text = textOf(policy);
    return Reply{200, text.substr(0, text.size() / 2)};
}

Decision garbage() {
    return Drop{"\x16\x03 this is not HTTP \xff\xfe\r\n\r\n"};
}

Decision redirect(const Request& request, const Account& account) {
    return Reply{.status = 302,
                 .headers = {{"Location", account.apiUrl + "/moved" + request.path}}};
}

/// The ETag is accepted when it comes back: what a device does with it is what is to be seen.
Decision longEtag(const Request& request, const Account& account,
                  const std::optional<Policy>& policy) {
    if (!policy) {
        return decide(request, account, policy);
    }
    std::string tag = policy->etag + '-';
    tag.resize(longTagLength, 'x');
    return decide(request, account, withTag(*policy, tag));
}

Decision huge() {
    return Reply{
        .status = 200, .body = R"({"etag":"huge"})", .rest = Rest::spaces, .promised = hugeLength};
}

}  // namespace

Decision decideWithFault(const Fault& fault, const Request& request, const Account& account,
                         const std::optional<Policy>& policy) {
    switch (fault.kind) {
        case FaultKind::unauthorized:
            return refusal(401, "fault: unauthorized");
        case FaultKind::forbidden:
            return refusal(403, "fault: forbidden");
        case FaultKind::notFound:
            return refusal(404, "fault: not found");
        case FaultKind::tooLargeHeader:
            return refusal(431, "fault: headers too large");
        case FaultKind::serverError:
            return refusal(500, "fault: server error");
        case FaultKind::slow:  // The answer is as usual.
            return decide(request, account, policy);
        case FaultKind::neverAnswer:
            return Silence{};
        case FaultKind::dropMidBody:
            return droppedMidBody(policy);
        case FaultKind::truncate:
            return truncated(policy);
        case FaultKind::garbage:
            return garbage();
        case FaultKind::htmlPortal:
            return Reply{200, std::string(portalPage), "text/html"};
        case FaultKind::redirect:
            return redirect(request, account);
        case FaultKind::instant304:
            return Reply{304};
        case FaultKind::noEtag:
            return Reply{200, policy ? textWithoutTag(*policy) : "{}"};
        case FaultKind::longEtag:
            return longEtag(request, account, policy);
        case FaultKind::huge:
            return huge();
        case FaultKind::goAway:
            return Drop{request.isHttp2 ? std::string(front::goAway) : ""};
        case FaultKind::outage:
            break;
    }
    return Drop{};
}

}  // namespace orvane::emulator
