// The machine's identity as a device, exchanged for working credentials at the control plane.
#pragma once

#include "control_plane/agent_config.h"

#include <optional>
#include <string_view>

namespace orvane {

struct DeviceIdentity {
    DeviceIdentity() = delete;

    using Enrollment = DeviceEnrollment;
    using Resolved = AgentConfig;

    /// Reads the device-identity file from the setup directory and asks the control plane that it
    /// names for the agent configuration of `process`.
    ///
    /// Blocks the calling thread for at most about 15 s; not to be called on a session's thread.
    /// nullopt on any failure, without distinguishing causes. Writes nothing and logs nothing, not
    /// even to the activity log. Every call reads the file and sends a request; a response that
    /// arrives too late is dropped.
    [[nodiscard]] static std::optional<Resolved> resolve(std::string_view process);

    /// The content of the device-identity file in the setup directory; absent if it is not usable.
    [[nodiscard]] static std::optional<Enrollment> storedEnrollment();

    /// Reads the content of the device-identity file; absent if the token or the tenant is missing
    /// or empty, or there is no string "api_url". Pure.
    [[nodiscard]] static std::optional<Enrollment> readEnrollment(std::string_view content);
};

}  // namespace orvane
