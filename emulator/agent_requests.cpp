#include "emulator/agent_requests.h"

#include "emulator/json_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

namespace orvane::emulator {
namespace {

constexpr unsigned longestWait = 300;

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

Decision pollAnswer(const Request& request, const Account& account,
                    const std::optional<Policy>& policy) {
    if (!isSecret(request.apiKey, account.apiKey)) {
        return refusal(401, "wrong key");
    }
    if (policy && request.ifNoneMatch != '"' + policy->etag + '"') {
        return Reply{200, policy->text};
    }
    return Hold{waitOf(request)};
}

Decision effectiveAnswer(const Request& request, const Account& account,
                         const std::optional<Policy>& policy) {
    if (!isSecret(request.apiKey, account.apiKey)) {
        return refusal(401, "wrong key");
    }
    if (!policy) {
        return refusal(404, "no policy yet");
    }
    std::string body = jsonText({{"agent_slug", queryItem(request, "agent_slug")},
                                 {"etag", policy->etag},
                                 {"hardware_uuid", queryItem(request, "hardware_uuid")}});
    body.back() = ',';
    return Reply{200, body + R"("guard_config":)" + policy->guardConfig + '}'};
}

Decision agentConfigAnswer(const Request& request, const Account& account,
                           const std::optional<Policy>& /*policy*/) {
    const bool deviceKnown = isSecret(request.device, account.deviceToken);
    const bool tenantKnown = isSecret(request.tenant, account.tenantSlug);
    if (!deviceKnown || !tenantKnown) {
        return refusal(401, "unknown device");
    }
    return Reply{200, jsonText({{"agent_slug", account.agentSlug},
                                {"agent_type", account.agentType},
                                {"api_url", account.apiUrl},
                                {"upload_api_key", account.apiKey}})};
}

struct Endpoint {
    std::string_view path;
    Decision (*decide)(const Request&, const Account&, const std::optional<Policy>&);
};

constexpr std::array<Endpoint, 3> endpoints{{
    {"/api/orvane/v1/connect/guard-config/", pollAnswer},
    {"/api/orvane/v1/guard/effective/", effectiveAnswer},
    {"/api/orvane/v1/endpoint/agent-config/", agentConfigAnswer},
}};
constexpr std::string_view pollPath = endpoints[0].path;
constexpr std::string_view agentConfigPath = endpoints[2].path;

const Endpoint* endpointOf(const Request& request) {
    const auto* const found =
        std::find_if(endpoints.begin(), endpoints.end(),
                     [&](const Endpoint& each) { return each.path == request.path; });
    return found == endpoints.end() ? nullptr : found;
}

}  // namespace

std::string queryItem(const Request& request, const std::string& name) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? std::string() : found->second;
}

Reply refusal(unsigned status, const std::string& why) {
    return {status, jsonText({{"error", why}})};
}

bool isFromAgent(const Request& request) {
    return endpointOf(request) != nullptr;
}

bool isPoll(const Request& request) {
    return request.method == "GET" && request.path == pollPath;
}

std::string deviceOf(const Request& request, const Account& account) {
    const std::string slug =
        request.path == agentConfigPath ? account.agentSlug : queryItem(request, "agent_slug");
    return slug.empty() ? "-" : slug;
}

std::chrono::seconds waitOf(const Request& request) {
    const std::string text = queryItem(request, "wait");
    const char* const end = text.data() + text.size();
    unsigned seconds = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    if (rest != end || error == std::errc::invalid_argument) {
        return std::chrono::seconds(0);
    }
    const bool tooLarge = error == std::errc::result_out_of_range;
    return std::chrono::seconds(tooLarge ? longestWait : std::min(seconds, longestWait));
}

Decision decide(const Request& request, const Account& account,
                const std::optional<Policy>& policy) {
    if (request.method != "GET") {
        Reply reply = refusal(405, "the method must be GET");
        reply.headers.emplace_back("Allow", "GET");
        return reply;
    }
    return endpointOf(request)->decide(request, account, policy);
}

}  // namespace orvane::emulator
