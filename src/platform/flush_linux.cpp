#include "platform/flush.h"
#include "platform/uninterrupted.h"

#include <unistd.h>

namespace orvane::files {

bool flushToDisk(int descriptor) {
    return uninterrupted([=] { return ::fsync(descriptor); }) == 0;
}

}  // namespace orvane::files
