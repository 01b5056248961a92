#include "platform/flush.h"

#include <unistd.h>

namespace orvane::files {

bool flushToDisk(int descriptor) {
    return fsync(descriptor) == 0;
}

}  // namespace orvane::files
