// The daemon's process from its start to its end.
#pragma once

namespace orvane {

/// Logs the start, creates the one runner and runs its loop on the calling thread.
///
/// Does not return in normal operation. Should the loop ever end, be it by an exception on any
/// thread (there is no memory left, say), that is logged and the process exits with status 1, which
/// makes its supervisor start it again. Nothing is torn down: the system takes everything back.
[[noreturn]] void runProcess() noexcept;

}  // namespace orvane
