// The three requests that agents make.
#pragma once

#include "emulator/decision.h"

#include <optional>
#include <string>

namespace orvane::emulator {

/// Whether `request` is for one of the addresses that agents use.
bool isFromAgent(const Request& request);

/// Whether `request` asks for the policy, as agents do.
bool isPoll(const Request& request);

/// What the agent that sends `request` is called here: its agent slug, or "-" if it has none. A
/// lookup of a device's identity counts as from the agent whose slug will be the answer.
std::string deviceOf(const Request& request, const Account& account);

/// How long a poll wants to be held, 300 s at most.
std::chrono::seconds waitOf(const Request& request);

/// What to do about a request of an agent, given whom we serve and the policy in force (if any).
/// Pure. REQUIRES: isFromAgent(request)
Decision decide(const Request& request, const Account& account,
                const std::optional<Policy>& policy);

/// The same, with a fault. That an answer is slow is the caller's business. Pure.
Decision decideWithFault(const Fault& fault, const Request& request, const Account& account,
                         const std::optional<Policy>& policy);

}  // namespace orvane::emulator
