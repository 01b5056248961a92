#include "platform/process/child_descriptors.h"

#include <unistd.h>

namespace orvane {

bool closeAllOthersInChild(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes) {
    short flags = 0;
    return posix_spawnattr_getflags(&attributes, &flags) == 0 &&
           posix_spawnattr_setflags(&attributes,
                                    static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT)) == 0 &&
           posix_spawn_file_actions_addinherit_np(&actions, STDIN_FILENO) == 0;
}

}  // namespace orvane
