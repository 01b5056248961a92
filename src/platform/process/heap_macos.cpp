#include "platform/process/heap.h"

namespace orvane {

// The system's allocator returns large blocks as they are freed.
void keepHeapSmall() {}

}  // namespace orvane
