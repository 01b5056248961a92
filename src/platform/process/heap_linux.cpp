#include "platform/process/heap.h"

#include <malloc.h>

namespace orvane {

void keepHeapSmall() {
    // Pieces of this size get a mapping of their own. Unless it is set, the limit grows with the
    // pieces that are freed (mallopt(3)), and the next large policy would stay in the heap.
    constexpr int largePiece = 128 * 1024;
    (void)mallopt(M_MMAP_THRESHOLD, largePiece);
    // Two threads that take turns do not need two heaps.
    (void)mallopt(M_ARENA_MAX, 1);
}

}  // namespace orvane
