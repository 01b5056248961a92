#include "platform/system_calls.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/socket.h>

#include <array>
#include <cstdarg>

namespace orvane::test {

std::string pathOf(int descriptor) {
    std::array<char, MAXPATHLEN> path{};
    return ::fcntl(descriptor, F_GETPATH, path.data()) == 0 ? path.data() : "";
}

}  // namespace orvane::test

extern "C" int fcntl(int descriptor, int command, ...) {
    using orvane::test::hooksInPlace;
    auto* const hooks = hooksInPlace();
    if (command == F_FULLFSYNC && hooks != nullptr && hooks->flush) {
        if (const auto result = hooks->flush(descriptor)) {
            return *result;
        }
    }
    // What is there, an int or a pointer, fits: every command takes at most one.
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    static auto* const real = orvane::test::realCall<int(int, int, ...)>("fcntl");
    return real(descriptor, command, argument);
}

extern "C" int shutdown(int socket, int how) {
    using orvane::test::hooksInPlace;
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->shutdown) {
        hooks->shutdown(socket);
    }
    static auto* const real = orvane::test::realCall<int(int, int)>("shutdown");
    return real(socket, how);
}
