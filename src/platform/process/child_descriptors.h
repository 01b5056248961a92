// Keeping the daemon's descriptors out of a child; differs between systems.
#pragma once

#include <spawn.h>

namespace orvane {

/// Makes a spawned child inherit standard input and the descriptors set up in `actions`, nothing
/// else. Call it after everything else has been set. False on failure.
bool closeAllOthersInChild(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes);

}  // namespace orvane
