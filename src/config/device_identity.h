// The machine's identity as a device, turned into working credentials at the control plane.
#pragma once

#include "platform/http/http_session.h"

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

struct DeviceIdentity {
    DeviceIdentity() = delete;

    /// What the control plane answered for one agent process. `uploadKey` is never empty, the
    /// others may be.
    struct Resolved {
        std::string apiUrl;  ///< base of the API to use from now on
        std::string uploadKey;
        std::string agentSlug;
        std::string agentType;

        bool operator==(const Resolved&) const = default;
    };

    /// Reads the device-identity file from the setup directory and asks the control plane that it
    /// names for the agent configuration of `process`.
    ///
    /// Blocks the calling thread, at most about 15 s; not to be called on a session's thread.
    /// Absent on any failure, the causes not told apart; writes nothing and logs nothing, the
    /// activity log included. Every call reads the file and asks anew; an answer that comes too
    /// late is dropped.
    static std::optional<Resolved> resolve(std::string_view process);

    /// What the device-identity file says.
    struct Enrollment {
        std::string deviceToken;
        std::string tenantSlug;
        std::string apiUrl;
    };

    /// What the device-identity file in the setup directory says; absent if it is not usable.
    static std::optional<Enrollment> storedEnrollment();

    /// Reads the content of the device-identity file; absent when the token or the tenant is
    /// missing or empty, or there is no text "api_url". Pure.
    static std::optional<Enrollment> readEnrollment(std::string_view content);

    /// The question for `process`; absent when `apiUrl` is not a URL. Pure.
    static std::optional<HttpRequest> requestFor(const Enrollment& enrollment,
                                                 std::string_view process);

    /// What an answer is worth: only a 200 whose body is an object with a non-empty text
    /// "upload_api_key". Without a text "api_url" in it, `fallbackApiUrl` counts. Pure.
    static std::optional<Resolved> readAnswer(const std::optional<HttpResponse>& response,
                                              const std::string& fallbackApiUrl);
};

}  // namespace orvane
