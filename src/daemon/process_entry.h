// The daemon's process from its start to its end.
#pragma once

namespace orvane {

/// Prepares the process, removes what a killed one left, logs the start, creates the one runner and
/// runs its loop on the calling thread. Only for a process that has no other threads yet.
///
/// Does not return in normal operation. When the loop returns or an exception ends it, on any
/// thread (out of memory, say), that is logged and the process exits with status 1, which makes its
/// supervisor start it again. Nothing is torn down: the system takes everything back.
[[noreturn]] void runProcess() noexcept;

}  // namespace orvane
