// The process's heap.
#pragma once

namespace orvane {

/// Has large pieces of memory given back to the system as soon as they are freed, and one heap
/// serve all threads. To be called once, before the process has threads.
void keepHeapSmall();

}  // namespace orvane
