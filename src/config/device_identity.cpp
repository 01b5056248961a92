#include "config/device_identity.h"

#include <utility>

namespace orvane {

namespace {

/// A little longer than the request's own inactivity limit.
constexpr std::chrono::seconds waitLimit(15);

}  // namespace

std::optional<DeviceIdentity::Resolved> DeviceIdentity::resolve(std::string_view process) {
    const auto enrollment = storedEnrollment();
    auto request = enrollment ? agentConfigRequest(*enrollment, process) : std::nullopt;
    if (!request) {
        return std::nullopt;
    }
    const auto result = HttpSession::shared().performWithin(std::move(*request), waitLimit);
    return result ? readAgentConfig(result->response(), enrollment->apiUrl) : std::nullopt;
}

}  // namespace orvane
