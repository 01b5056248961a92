#include "platform/process/child_descriptors.h"

#include <unistd.h>

namespace orvane {

bool closeAllOthersInChild(posix_spawn_file_actions_t& actions, posix_spawnattr_t& /*attributes*/) {
    // Libraries do not open all of their descriptors close-on-exec.
    return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0;
}

}  // namespace orvane
