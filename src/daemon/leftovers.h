// Files left over by earlier processes.
#pragma once

namespace orvane {

/// Removes the scratch files that processes of this account left when they were killed during a
/// write. Call once per process, before it writes anything.
void removeLeftovers();

}  // namespace orvane
