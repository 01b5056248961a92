#include "emulator/decision.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

namespace orvane::emulator {
namespace {

using nlohmann::json;

constexpr unsigned longestWait = 300;

std::string textOf(const json& value) {
    // Query values may hold any bytes; JSON may not.
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

Reply failure(unsigned status, std::string_view why) {
    return {status, textOf({{"error", why}}), {}};
}

/// Looks at every byte whatever the first difference is.
bool isSecret(std::string_view given, std::string_view secret) {
    if (secret.empty() || given.size() != secret.size()) {
        return false;
    }
    unsigned difference = 0;
    for (std::size_t i = 0; i < secret.size(); ++i) {
        difference |= static_cast<unsigned>(given[i] ^ secret[i]);
    }
    return difference == 0;
}

std::string item(const Request& request, const std::string& name) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? std::string() : found->second;
}

std::chrono::seconds waitOf(const Request& request) {
    const std::string text = item(request, "wait");
    const char* const end = text.data() + text.size();
    unsigned seconds = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    if (rest != end || error == std::errc::invalid_argument) {
        return std::chrono::seconds(0);
    }
    const bool tooLarge = error == std::errc::result_out_of_range;
    return std::chrono::seconds(tooLarge ? longestWait : std::min(seconds, longestWait));
}

Decision pollAnswer(const Request& request, const Account& account,
                    const std::optional<Policy>& policy) {
    if (!isSecret(request.apiKey, account.apiKey)) {
        return failure(401, "wrong key");
    }
    if (policy && request.ifNoneMatch != '"' + policy->etag + '"') {
        return Reply{200, policy->text, {}};
    }
    return Hold{waitOf(request)};
}

Decision effectiveAnswer(const Request& request, const Account& account,
                         const std::optional<Policy>& policy) {
    if (!isSecret(request.apiKey, account.apiKey)) {
        return failure(401, "wrong key");
    }
    if (!policy) {
        return failure(404, "no policy yet");
    }
    std::string body = textOf({{"agent_slug", item(request, "agent_slug")},
                               {"etag", policy->etag},
                               {"hardware_uuid", item(request, "hardware_uuid")}});
    body.back() = ',';
    return Reply{200, body + R"("guard_config":)" + policy->guardConfig + '}', {}};
}

Decision agentConfigAnswer(const Request& request, const Account& account,
                           const std::optional<Policy>& /*policy*/) {
    const bool deviceKnown = isSecret(request.device, account.deviceToken);
    const bool tenantKnown = isSecret(request.tenant, account.tenantSlug);
    if (!deviceKnown || !tenantKnown) {
        return failure(401, "unknown device");
    }
    return Reply{200,
                 textOf({{"agent_slug", account.agentSlug},
                         {"agent_type", account.agentType},
                         {"api_url", account.apiUrl},
                         {"upload_api_key", account.apiKey}}),
                 {}};
}

Decision policyRead(const Request& /*request*/, const Account& /*account*/,
                    const std::optional<Policy>& policy) {
    return policy ? Reply{200, policy->text, {}} : failure(404, "no policy yet");
}

Decision policyWritten(const Request& request, const Account& /*account*/,
                       const std::optional<Policy>& /*policy*/) {
    if (request.bodyTooLong) {
        return failure(413, "the policy is too long");
    }
    auto policy = readPolicy(request.body);
    if (!policy) {
        return failure(400, "the policy is not a JSON object");
    }
    return Accept{std::move(*policy)};
}

constexpr std::string_view pollPath = "/api/orvane/v1/connect/guard-config/";

struct Route {
    std::string_view path;
    std::string_view method;
    Decision (*decide)(const Request&, const Account&, const std::optional<Policy>&);
};

constexpr std::array<Route, 5> routes{{
    {pollPath, "GET", pollAnswer},
    {"/api/orvane/v1/guard/effective/", "GET", effectiveAnswer},
    {"/api/orvane/v1/endpoint/agent-config/", "GET", agentConfigAnswer},
    {"/policy", "GET", policyRead},
    {"/policy", "PUT", policyWritten},
}};

}  // namespace

bool isPoll(const Request& request) {
    return request.method == "GET" && request.path == pollPath;
}

Decision decide(const Request& request, const Account& account,
                const std::optional<Policy>& policy) {
    std::string allowed;
    for (const Route& route : routes) {
        if (route.path == request.path && route.method == request.method) {
            return route.decide(request, account, policy);
        }
        if (route.path == request.path) {
            allowed.append(allowed.empty() ? "" : ", ").append(route.method);
        }
    }
    if (allowed.empty()) {
        return failure(404, "no such path");
    }
    return Reply{405, textOf({{"error", "the method must be one of: " + allowed}}), allowed};
}

}  // namespace orvane::emulator
