#include "platform/files/flush.h"

#include "platform/files/uninterrupted.h"

#include <unistd.h>

namespace orvane::files {

bool flushToDisk(int descriptor) {
    return uninterrupted([=] { return ::fsync(descriptor); }) == 0;
}

}  // namespace orvane::files
