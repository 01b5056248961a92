#include "platform/process/private_memory.h"

#include <sys/prctl.h>

namespace orvane {

void keepMemoryPrivate() {
    // RLIMIT_CORE does not prevent a core dump that is piped to a program (core(5)). This does, and
    // it makes /proc/PID/mem and environ inaccessible to the account. A child is dumpable again
    // once it runs another program.
    (void)::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

}  // namespace orvane
