#include "platform/process/private_memory.h"

#include <sys/resource.h>

namespace orvane {

void keepMemoryPrivate() {
    // The limit is all there is: macOS writes core files itself and has nothing like Linux's
    // PR_SET_DUMPABLE. ptrace(PT_DENY_ATTACH) stops debuggers, but not a process that gets our task
    // port. Signing with the hardened runtime prevents that.
    constexpr rlimit none{0, 0};
    (void)::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace orvane
