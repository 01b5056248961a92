// The process's memory, which holds credentials.
#pragma once

namespace orvane {

/// Keeps the process's memory out of core files. On Linux also keeps other processes of the account
/// from reading it, unless they have the privilege to trace any process. Call once, at startup.
void keepMemoryPrivate();

}  // namespace orvane
