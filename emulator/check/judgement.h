// What is wrong with the answer to each of the requests that a control plane is tried with. Pure
// functions; docs/wire-protocol.md says what is expected.
#pragma once

#include "emulator/check/finding.h"
#include "emulator/check/outcome.h"
#include "emulator/check/trial.h"

#include <chrono>
#include <string>

namespace orvane::emulator {

/// A poll that is answered 304 sooner was not held: a daemon would send six and more a minute.
inline constexpr std::chrono::seconds shortestHold{10};

/// With the device's token and tenant.
Findings judgeLookup(const Outcome& outcome);
/// With a token that nobody has.
Findings judgeLookupWithWrongToken(const Outcome& outcome);

/// Without If-None-Match: the policy has to come at once.
Findings judgeFirstPoll(const Outcome& outcome);
/// The ETag in a policy: what a daemon stores, and sends back.
Findings judgeTag(const Outcome& outcome);

Findings judgeEffective(const Outcome& outcome);

/// With a key that nobody has.
Findings judgePollWithWrongKey(const Outcome& outcome);
Findings judgeEffectiveWithWrongKey(const Outcome& outcome);

/// With an ETag that no policy has, in `trial`: the policy has to come at once.
Findings judgeUnknownTag(const Trial& trial, const Outcome& outcome);
/// With one that is too long for many servers: that, or one of the refusals that a daemon
/// understands.
Findings judgeLongTag(const Outcome& outcome);

/// With the live ETag, to be held for a second.
Findings judgeShortPoll(const Outcome& outcome);
/// With the live ETag, to be held for as long as daemons want it.
Findings judgeHold(const Outcome& outcome, const std::string& liveTag);

}  // namespace orvane::emulator
