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

    bool operator==(const CapturePolicy&) const = default;  // artificial branch: defaulted
};

/// The capture policy in the text of a guard policy: the object "capture" in the object
/// "guard_config" or, only if there is no such object, in the object "config". A member that is
/// missing or of another type counts as false or as no hosts. nullopt without such an object. Pure.
[[nodiscard]] std::optional<CapturePolicy> deriveCapturePolicy(std::string_view guardPolicy);

/// Compares the text of a capture-policy file with `wanted`, which must outlive it. "enabled" and
/// "intercept_hosts" are required; a missing "suppress_ech" counts as false. Pure.
std::unique_ptr<json::Comparison> comparisonWith(const CapturePolicy& wanted);

/// How long comparing an existing capture-policy file may take: about as long as a gigabyte does
/// under the service's CPU limit. A file that takes longer counts as different.
inline constexpr std::chrono::seconds comparisonLimit(5);

/// Whether the capture-policy file at `file` is readable and already says `wanted`. Uses a fixed
/// amount of memory, whatever the file's size, and takes no longer than `comparisonLimit`.
[[nodiscard]] bool isUpToDate(const std::filesystem::path& file, const CapturePolicy& wanted);

/// The capture-policy file's text. Pure.
[[nodiscard]] std::string captureFileText(const CapturePolicy& policy);

/// Derives capture-policy.json in the setup directory from the guard policy stored at `policyPath`.
///
/// The file is written, atomically and with mode 0644 from the start, only if its content would
/// change; then one message is logged. Without a usable policy nothing happens: the file is never
/// removed or reset. Not thread-safe.
void applyCapturePolicy(const std::filesystem::path& policyPath, const Logger& logger);

}  // namespace orvane::guard
