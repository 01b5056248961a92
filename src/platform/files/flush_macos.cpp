#include "platform/files/flush.h"

#include "platform/files/uninterrupted.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace orvane::files {

bool flushToDisk(int descriptor) {
    // fsync(2) on macOS stops at the drive's own cache. F_FULLFSYNC does not, but not every file
    // system supports it. The kernel reports a write error only once, so after EIO or ENOSPC a
    // following fsync would wrongly succeed.
    if (uninterrupted([=] { return ::fcntl(descriptor, F_FULLFSYNC); }) == 0) {
        return true;
    }
    return errno != EIO && errno != ENOSPC &&
           uninterrupted([=] { return ::fsync(descriptor); }) == 0;
}

}  // namespace orvane::files
