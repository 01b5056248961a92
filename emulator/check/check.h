// Tries a control plane with the requests that a daemon makes.
#pragma once

#include "control_plane/agent_config.h"
#include "control_plane/profile.h"
#include "emulator/check/finding.h"
#include "emulator/check/outcome.h"
#include "platform/http/http_session.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace orvane::emulator {

/// Whom to be when a control plane is checked.
struct Subject {
    Profile profile;  ///< Counts if there is no enrollment.
    std::optional<DeviceEnrollment> enrollment;
    std::chrono::seconds wait{5};  ///< How long an answer is waited for, and a hold watched.
};

/// What has been found out.
struct Report {
    Findings findings;
    unsigned requests = 0;    ///< How many were sent.
    bool isComplete = false;  ///< All was tried that can be: there was a policy with an ETag.
};

/// Sends a request and waits for its end, up to a time.
using Ask = std::function<Outcome(const HttpRequest&, std::chrono::milliseconds patience)>;

/// Tries the control plane that `ask` reaches. `onFinding` is called with each finding as it comes.
/// REQUIRES: the subject's addresses are http or https URLs
Report check(const Subject& subject, const Ask& ask,
             const std::function<void(const Finding&)>& onFinding);

/// The report in a line, without a line feed.
std::string summaryOf(const Report& report, const Subject& subject);

}  // namespace orvane::emulator
