// The capture policy: the settings for the machine's interception component, derived from the
// stored guard policy.
#pragma once

#include "platform/json/json_comparison.h"
#include "platform/log/logger.h"
#include "platform/text/string_list.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::guard {

/// Whether to intercept, for which hosts, and whether to suppress TLS Encrypted Client Hello.
struct CapturePolicy {
    bool enabled = false;
    StringList interceptHosts;
    bool suppressEch = false;

    bool operator==(const CapturePolicy&) const = default;
};

/// The capture policy in the text of a guard policy: the object "capture" in the object
/// "guard_config" or, only when there is none, in the object "config". A member that is missing or
/// of another type counts as false or as no hosts. Absent without such an object. Pure.
std::optional<CapturePolicy> deriveCapturePolicy(std::string_view guardPolicy);

/// Compares the text of a capture-policy file with `wanted`, which has to outlive it. "enabled" and
/// "intercept_hosts" have to be there; a missing "suppress_ech" counts as false. Pure.
std::unique_ptr<json::Comparison> comparisonWith(const CapturePolicy& wanted);

/// How long an existing capture-policy file may take to compare: about a gigabyte's time under the
/// service's processor limit. One that takes longer counts as different.
inline constexpr std::chrono::seconds comparisonLimit(5);

/// Whether the capture-policy file at `file` can be read and already says `wanted`. Takes little
/// memory, whatever the file's size, and no more than `comparisonLimit`.
bool isUpToDate(const std::filesystem::path& file, const CapturePolicy& wanted);

/// The capture-policy file's text. Pure.
std::string captureFileText(const CapturePolicy& policy);

/// Derives capture-policy.json in the setup directory from the guard policy stored at `policyPath`.
///
/// The file is written, atomically and with mode 0644 from the start, only when it does not say the
/// same already; then one message is logged. Without a usable policy nothing happens: the file is
/// never removed or reset. Blocks for the file operations; one caller at a time.
void applyCapturePolicy(const std::filesystem::path& policyPath, const Logger& logger);

}  // namespace orvane::guard
