#include "emulator/page_requests.h"

#include "emulator/agent_requests.h"
#include "emulator/bad_input.h"
#include "emulator/json_text.h"
#include "emulator/page_files.h"
#include "guard/capture_policy.h"

#include <arpa/inet.h>

#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::emulator {
namespace {

/// The host in a Host header, without port and brackets.
std::string hostOf(std::string_view header) {
    if (header.starts_with('[')) {
        return std::string(header.substr(1, header.find(']') - 1));
    }
    return std::string(header.substr(0, header.find(':')));
}

bool isAddress(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return ::inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

std::optional<Reply> refusedAsForeign(const Request& request) {
    const std::string host = hostOf(request.host);
    if (host != "localhost" && !isAddress(host)) {
        return refusal(403, "ask by the address or as localhost, not as \"" + host + '"');
    }
    if (!request.origin.empty() && request.origin != "http://" + request.host &&
        request.origin != "https://" + request.host) {
        return refusal(403, "requests from other sites are refused");
    }
    return std::nullopt;
}

Decision policyRead(const Request& /*request*/, const View& view) {
    return view.policy ? Reply{200, view.policy->text} : refusal(404, "no policy yet");
}

Decision policyWritten(const Request& request, const View& /*view*/) {
    return Accept{readPolicy(request.body)};
}

Decision faultsRead(const Request& /*request*/, const View& view) {
    return Reply{200, faultsText(view.faults)};
}

Decision faultsWritten(const Request& request, const View& /*view*/) {
    return Misbehave{readFaults(request.body)};
}

Decision faultKindsRead(const Request& /*request*/, const View& /*view*/) {
    return Reply{200, faultKindsText()};
}

/// What agents would be sent if the body became the policy, and what they would make of it.
Decision preview(const Request& request, const View& /*view*/) {
    const Policy policy = readPolicy(request.body);
    const auto capture = guard::deriveCapturePolicy(policy.text);
    const std::string file = capture ? guard::captureFileText(*capture) : "null";
    return Reply{200, "{\"tag\":" + jsonText(policy.etag) + ",\"capture\":" + file + '}'};
}

Decision timeline(const Request& request, const View& view) {
    return Reply{200, view.devices.timeline(queryItem(request, "device"))};
}

Decision events(const Request& /*request*/, const View& /*view*/) {
    return Stream{};
}

Decision pageFile(const Request& request, const View& /*view*/) {
    const PageFile& file = *findPageFile(request.path);
    return Reply{.status = 200,
                 .body = std::string(file.content),
                 .contentType = std::string(file.type),
                 .headers = {{"Content-Security-Policy",
                              "default-src 'none'; script-src 'self'; style-src 'self'; "
                              "img-src 'self'; connect-src 'self'; base-uri 'none'; "
                              "form-action 'none'; frame-ancestors 'none'"},
                             {"X-Frame-Options", "DENY"}}};
}

struct Route {
    std::string_view path;
    std::string_view method;
    Decision (*decide)(const Request&, const View&);
};

constexpr std::array<Route, 8> routes{{
    {"/policy", "GET", policyRead},
    {"/policy", "PUT", policyWritten},
    {"/faults", "GET", faultsRead},
    {"/faults", "PUT", faultsWritten},
    {"/fault-kinds", "GET", faultKindsRead},
    {"/preview", "POST", preview},
    {"/timeline", "GET", timeline},
    {"/events", "GET", events},
}};

Decision routed(const Request& request, const View& view) {
    std::string allowed;
    for (const Route& route : routes) {
        if (route.path == request.path && route.method == request.method) {
            return route.decide(request, view);
        }
        if (route.path == request.path) {
            allowed.append(allowed.empty() ? "" : ", ").append(route.method);
        }
    }
    if (findPageFile(request.path) != nullptr) {
        if (request.method == "GET") {
            return pageFile(request, view);
        }
        allowed = "GET";
    }
    if (allowed.empty()) {
        return refusal(404, "no such path");
    }
    Reply reply = refusal(405, "the method must be one of: " + allowed);
    reply.headers.emplace_back("Allow", allowed);
    return reply;
}

}  // namespace

Decision decideForPeople(const Request& request, const View& view) {
    if (auto refused = refusedAsForeign(request)) {
        return std::move(*refused);
    }
    if (request.bodyTooLong) {
        return refusal(413, "the policy is larger than 64 MiB");
    }
    try {
        return routed(request, view);
    } catch (const BadInput& mistake) {
        return refusal(400, mistake.what());
    }
}

bool changesSomething(const Request& request) {
    return request.method == "PUT";
}

}  // namespace orvane::emulator
