// Keeping the daemon's descriptors out of its child: systems spell it differently.
#pragma once

#include <spawn.h>

namespace orvane {

/// Makes a spawned child start with standard input and what `actions` connects, and nothing else.
/// Call it after everything else has been set. False when the system refused.
bool closeAllOthersInChild(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes);

}  // namespace orvane
