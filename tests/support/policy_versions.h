// Successive versions of a guard policy: what the control plane says at each, and what is on disk
// when the daemon has it.
#pragma once

#include "support/scripted_server.h"

#include <filesystem>
#include <map>
#include <string>

namespace orvane::test {

struct PolicyVersion {
    std::string etag;
    std::string policy;
    std::string effective;

    /// What the daemon has on disk, by path below the root, but for the activity log.
    [[nodiscard]] std::map<std::string, std::string> files() const;
};

/// The version `number`.
PolicyVersion policyVersion(int number);

/// Lets `server` be a control plane that is at `version`. A poll that says it has that one already
/// is given to `whenUnchanged`.
void serve(ScriptedServer& server, const PolicyVersion& version,
           const Step& whenUnchanged = answer(304));

inline constexpr const char* policyFile = "home/.orvane/policy.json";
inline constexpr const char* etagFile = "home/.orvane/policy-etag.json";
inline constexpr const char* effectiveFile = "home/.orvane/guard-effective.json";
inline constexpr const char* capturePolicyFile = "private/tmp/dev.orvane.setup/capture-policy.json";

}  // namespace orvane::test
