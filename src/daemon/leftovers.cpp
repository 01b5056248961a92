#include "daemon/leftovers.h"

#include "platform/files.h"
#include "platform/paths.h"

#include <initializer_list>

namespace orvane {

void removeLeftovers() {
    for (const auto& directory :
         {paths::orvaneDirectory(), paths::logDirectory(), paths::setupDirectory()}) {
        files::removeScratchFiles(directory);
    }
}

}  // namespace orvane
