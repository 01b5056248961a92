#include "config/device_identity.h"
#include "platform/files/files.h"
#include "platform/json/json.h"
#include "platform/machine/paths.h"

#include <utility>

namespace orvane {

namespace {

constexpr std::chrono::seconds inactivityLimit(12);

}  // namespace

std::optional<DeviceIdentity::Enrollment> DeviceIdentity::storedEnrollment() {
    const auto content =
        files::read(paths::setupDirectory() / "device-identity.json", files::foreignSizeLimit);
    return content ? readEnrollment(*content) : std::nullopt;
}

std::optional<DeviceIdentity::Enrollment> DeviceIdentity::readEnrollment(std::string_view content) {
    const auto members = json::readObject(content, {"device_token", "tenant_slug", "api_url"});
    if (!members) {
        return std::nullopt;
    }
    auto deviceToken = members->nonEmptyString("device_token");
    auto tenantSlug = members->nonEmptyString("tenant_slug");
    auto apiUrl = members->string("api_url");
    if (!deviceToken || !tenantSlug || !apiUrl) {
        return std::nullopt;
    }
    return Enrollment{std::move(*deviceToken), std::move(*tenantSlug), std::move(*apiUrl)};
}

std::optional<HttpRequest> DeviceIdentity::requestFor(const Enrollment& enrollment,
                                                      std::string_view process) {
    const auto base = enrollment.apiUrl.empty() ? std::nullopt : Url::parse(enrollment.apiUrl);
    if (!base) {
        return std::nullopt;
    }
    const QueryItem item{"process", std::string(process)};
    return HttpRequest{
        base->appendingPath("api/orvane/v1/endpoint/agent-config/").withQuery({&item, 1}),
        {{"X-Orv-Device", enrollment.deviceToken}, {"X-Orv-Tenant", enrollment.tenantSlug}},
        inactivityLimit};
}

}  // namespace orvane
