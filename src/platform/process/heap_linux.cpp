#include "platform/process/heap.h"

#include <malloc.h>

namespace orvane {

void keepHeapSmall() {
    // Allocations this large are mmapped. Left alone, the threshold grows dynamically (mallopt(3)),
    // and after one large policy the next one would stay in the heap.
    constexpr int mmapThreshold = 128 * 1024;
    (void)mallopt(M_MMAP_THRESHOLD, mmapThreshold);
    // Our two threads hardly ever run at the same time.
    (void)mallopt(M_ARENA_MAX, 1);
}

}  // namespace orvane
