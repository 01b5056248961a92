// The process's heap.
#pragma once

namespace orvane {

/// Returns large blocks to the system as soon as they are freed, and makes all threads share one
/// arena. Call once, before the process has threads.
void keepHeapSmall();

}  // namespace orvane
