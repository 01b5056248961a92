// Flushing to stable storage: the one file operation that differs between systems.
#pragma once

namespace orvane::files {

/// Puts what was written to `descriptor` on stable storage. False with errno set on failure.
bool flushToDisk(int descriptor);

}  // namespace orvane::files
