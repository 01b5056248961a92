// What the tests of the local control plane ask for, and for whom.
#pragma once

#include "emulator/decision.h"

#include <string>

namespace orvane::emulator {

constexpr const char* pollPath = "/api/orvane/v1/connect/guard-config/";
constexpr const char* effectivePath = "/api/orvane/v1/guard/effective/";
constexpr const char* agentConfigPath = "/api/orvane/v1/endpoint/agent-config/";

inline const std::string firstText = R"({ "etag": "a/1", "guard_config": {"capture": {}} })";
inline const std::string secondText = R"({"etag":"a/2"})";

inline Account anAccount() {
    return {.apiKey = "key",
            .deviceToken = "device",
            .tenantSlug = "tenant",
            .agentSlug = "slug",
            .agentType = "type",
            .apiUrl = "http://base"};
}

}  // namespace orvane::emulator
