// How the daemon of a memory test ends unless the fault ends it.
#pragma once

namespace orvane::test {

inline constexpr int wentOn = 42;     ///< an allocation failed, and it came to its last back-off
inline constexpr int untouched = 43;  ///< it came there before any allocation failed
inline constexpr int stackFull = 44;  ///< the main thread's calls went deeper than its stack

}  // namespace orvane::test
