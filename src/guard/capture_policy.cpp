#include "guard/capture_policy.h"

#include "platform/files/files.h"
#include "platform/json/json_reader.h"
#include "platform/json/json_writer.h"
#include "platform/machine/clock.h"
#include "platform/machine/paths.h"

#include <cstdint>
#include <initializer_list>
#include <tuple>
#include <vector>

namespace orvane::guard {

namespace {

CapturePolicy captureIn(json::PickedMembers& policy, const std::string& capture) {
    return {policy.boolean(capture + "/enabled").value_or(false),
            policy.takeStrings(capture + "/hosts").value_or(StringList()),
            policy.boolean(capture + "/suppress_ech").value_or(false)};
}

/// The capture policy in the policy stored at `file`. Frees its text, which may be large, on
/// return.
std::optional<CapturePolicy> storedCapturePolicy(const std::filesystem::path& file) {
    const auto policy = files::read(file);
    return policy ? deriveCapturePolicy(*policy) : std::nullopt;
}

}  // namespace

bool isUpToDate(const std::filesystem::path& file, const CapturePolicy& wanted) {
    // Any account may have created the file. Its size does not matter, since it is never held in
    // memory, but it must not keep the daemon from its polls: where a file system shares blocks
    // between files, terabytes of JSON cost nothing.
    const auto deadline = clock::monotonicNow() + comparisonLimit;
    const auto comparison = comparisonWith(wanted);
    const bool isRead = files::readInPieces(file, [&](std::string_view piece) {
        return comparison->add(piece) && clock::monotonicNow() < deadline;
    });
    return isRead && comparison->isSame();
}

std::optional<CapturePolicy> deriveCapturePolicy(std::string_view guardPolicy) {
    auto policy = json::readObject(guardPolicy,
                                   {"guard_config/capture/enabled", "guard_config/capture/hosts",
                                    "guard_config/capture/suppress_ech", "config/capture/enabled",
                                    "config/capture/hosts", "config/capture/suppress_ech"});
    if (!policy) {
        return std::nullopt;
    }
    const std::string capture =
        policy->isObject("guard_config") ? "guard_config/capture" : "config/capture";
    if (!policy->isObject(capture)) {
        return std::nullopt;
    }
    return captureIn(*policy, capture);
}

std::unique_ptr<json::Comparison> comparisonWith(const CapturePolicy& wanted) {
    constexpr bool defaultsToFalse = true;
    return std::make_unique<json::Comparison>(
        std::vector<json::ExpectedMember>{{"enabled", wanted.enabled},
                                          {"intercept_hosts", &wanted.interceptHosts},
                                          {"suppress_ech", wanted.suppressEch, defaultsToFalse}});
}

std::string captureFileText(const CapturePolicy& policy) {
    return json::writeObject(
        std::initializer_list<json::Field>{{"enabled", policy.enabled},
                                           {"intercept_hosts", &policy.interceptHosts},
                                           {"suppress_ech", policy.suppressEch}});
}

void applyCapturePolicy(const std::filesystem::path& policyPath, const Logger& logger) {
    constexpr unsigned readableByAll = 0644;
    const auto capture = storedCapturePolicy(policyPath);
    const auto directory = paths::setupDirectory();
    const auto file = directory / "capture-policy.json";
    if (!capture || isUpToDate(file, *capture)) {
        return;
    }
    std::ignore = files::createDirectories(directory);
    if (const auto error = files::writeAtomically(file, captureFileText(*capture), readableByAll)) {
        logger.error("capture-policy write failed: %{public}s", error.message());
        return;
    }
    // For file systems that refuse to change the mode of a file that is open.
    std::ignore = files::setMode(file, readableByAll);
    logger.log(
        "capture-policy applied from guard cascade: enabled=%{bool,public}d hosts=%{public}ld "
        "suppress_ech=%{bool,public}d",
        capture->enabled, static_cast<std::int64_t>(capture->interceptHosts.size()),
        capture->suppressEch);
}

}  // namespace orvane::guard
