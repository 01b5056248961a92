#include "daemon/leftovers.h"

#include "platform/files/files.h"
#include "platform/machine/paths.h"

namespace orvane {

void removeLeftovers() {
    files::removeScratchFiles(paths::orvaneDirectory());
    files::removeScratchFiles(paths::logDirectory());
    files::removeScratchFiles(paths::setupDirectory());
}

}  // namespace orvane
