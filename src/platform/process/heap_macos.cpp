#include "platform/process/heap.h"

namespace orvane {

// The system's own heap gives large pieces back as they are freed.
void keepHeapSmall() {}

}  // namespace orvane
