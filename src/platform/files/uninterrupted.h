// Retries system calls interrupted by a signal. For the sources of src/platform only.
#pragma once

#include <cerrno>

namespace orvane {

/// Calls `call` until it is not interrupted, and returns its result. For calls that return -1 and
/// set errno on failure; not for close(2), which has closed the descriptor even so.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace orvane
