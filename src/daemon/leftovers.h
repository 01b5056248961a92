// What earlier processes left.
#pragma once

namespace orvane {

/// Removes the scratch files that processes of this account left when they were killed in a write.
/// Once per process, before it writes anything.
void removeLeftovers();

}  // namespace orvane
