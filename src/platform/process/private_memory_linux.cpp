#include "platform/process/private_memory.h"

#include <sys/prctl.h>

namespace orvane {

void keepMemoryPrivate() {
    // RLIMIT_CORE does not stop a core file that the kernel pipes to a program (core(5)). This
    // does, and it closes /proc/PID/mem and environ to the account. A child that runs another
    // program is dumpable again.
    (void)::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

}  // namespace orvane
