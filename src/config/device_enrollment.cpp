// Separate from device_identity.cpp, so that a program can read the file without linking libcurl.
#include "config/device_identity.h"
#include "platform/files/files.h"
#include "platform/json/json_reader.h"
#include "platform/machine/paths.h"

#include <utility>

namespace orvane {

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
    return Enrollment{.deviceToken = std::move(*deviceToken),
                      .tenantSlug = std::move(*tenantSlug),
                      .apiUrl = std::move(*apiUrl)};
}

}  // namespace orvane
