// The device-identity file and the control plane's answer to it, one after the other with a NUL
// between them: both as another JSON library reads them; the question goes to the file's address
// and asks for the process and nothing else; an identity never lacks its key.
#include "config/device_identity.h"

#include "fuzz.h"
#include "json_model.h"

namespace orvane::fuzz {

namespace {

using Enrollment = DeviceIdentity::Enrollment;
using Resolved = DeviceIdentity::Resolved;

void checkEnrollment(const std::optional<Enrollment>& enrollment, const JsonModel& file) {
    check(!enrollment || (!enrollment->deviceToken.empty() && !enrollment->tenantSlug.empty()));
    check(!enrollment || !file.isDecided() || file.isUsable());
    if (!file.knowsMembers()) {
        return;
    }
    const auto token = file.nonEmptyString("device_token");
    const auto tenant = file.nonEmptyString("tenant_slug");
    const auto apiUrl = file.string("api_url");
    check(enrollment.has_value() == (token && tenant && apiUrl));
    check(!enrollment || (enrollment->deviceToken == token && enrollment->tenantSlug == tenant &&
                          enrollment->apiUrl == apiUrl));
}

void checkRequest(const Enrollment& enrollment) {
    const auto request = agentConfigRequest(enrollment, "a b&c");
    const auto base = Url::parse(enrollment.apiUrl);
    check(request.has_value() == (base && !enrollment.apiUrl.empty()));
    if (!request) {
        return;
    }
    const std::string before = enrollment.apiUrl.substr(0, enrollment.apiUrl.find_first_of("?#"));
    const auto fragment = enrollment.apiUrl.find('#');
    check(request->url.text() ==
          before + (before.ends_with('/') ? "" : "/") +
              "api/orvane/v1/endpoint/agent-config/?process=a%20b%26c" +
              (fragment == std::string::npos ? "" : enrollment.apiUrl.substr(fragment)));
    check(request->url.host() == base->host());
    check(request->headers.size() == 2);
    check(request->headers[0].name == "X-Orv-Device" &&
          request->headers[0].value == enrollment.deviceToken);
    check(request->headers[1].name == "X-Orv-Tenant" &&
          request->headers[1].value == enrollment.tenantSlug);
}

void checkAnswer(const std::string& body, const std::string& fallback) {
    for (const int status : {0, 199, 201, 204, 304, 401, 500}) {
        check(!readAgentConfig(HttpResponse{status, body}, fallback));
    }
    const auto resolved = readAgentConfig(HttpResponse{200, body}, fallback);
    const JsonModel model(body);
    check(!resolved || !resolved->uploadKey.empty());
    check(!resolved || !model.isDecided() || model.isUsable());
    if (model.knowsMembers()) {
        const auto key = model.nonEmptyString("upload_api_key");
        check(resolved.has_value() == key.has_value());
        check(!resolved || *resolved == Resolved{model.string("api_url").value_or(fallback), *key,
                                                 model.string("agent_slug").value_or(""),
                                                 model.string("agent_type").value_or("")});
    }
}

}  // namespace

void tryInput(std::string_view input) {
    const auto parts = partsOf(input, 2);
    const auto enrollment = DeviceIdentity::readEnrollment(parts.front());
    checkEnrollment(enrollment, JsonModel(parts.front()));
    if (enrollment) {
        checkRequest(*enrollment);
    }
    checkAnswer(std::string(parts.back()), enrollment ? enrollment->apiUrl : "https://fallback");
}

}  // namespace orvane::fuzz
