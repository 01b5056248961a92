#include "platform/flush.h"

#include <fcntl.h>
#include <unistd.h>

namespace orvane::files {

bool flushToDisk(int descriptor) {
    // fsync(2) on macOS stops at the drive's own cache; F_FULLFSYNC does not, but not every file
    // system knows it.
    return fcntl(descriptor, F_FULLFSYNC) == 0 || fsync(descriptor) == 0;
}

}  // namespace orvane::files
