// The daemon's process, from start to exit.
#pragma once

namespace orvane {

/// Prepares the process, logs the start, removes leftovers of a killed one, creates the one runner
/// and runs its loop on the calling thread. REQUIRES: no other threads yet.
///
/// Does not return in normal operation. If the loop ends, or any thread throws (for example
/// std::bad_alloc), that is logged and the process exits with status 1, so that its supervisor
/// restarts it. No cleanup: the system reclaims everything.
[[noreturn]] void runProcess() noexcept;

}  // namespace orvane
