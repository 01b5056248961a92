// System calls that a signal interrupts are made again: for the sources of this directory only.
#pragma once

#include <cerrno>

namespace orvane {

/// What `call` returns once it is not interrupted. For calls that return -1 and set errno on
/// failure; not for close(2), which has closed even then.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace orvane
