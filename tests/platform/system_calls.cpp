#include "platform/system_calls.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <list>
#include <utility>

namespace orvane::test {

namespace {

std::atomic<SystemCallHooks*> inPlace = nullptr;

}  // namespace

SystemCallHooks* hooksInPlace() {
    return inPlace;
}

WithSystemCallHooks::WithSystemCallHooks(SystemCallHooks wanted) {
    // Never destroyed: a thread may be in one of them when they are taken away, and libcurl's
    // threads that look up names may outlive main().
    static auto* const all = new std::list<SystemCallHooks>;
    inPlace = &all->emplace_back(std::move(wanted));
}

WithSystemCallHooks::~WithSystemCallHooks() {
    inPlace = nullptr;
}

int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace orvane::test

// These take the place of the C library's in this program alone.
extern "C" {

using orvane::test::hooksInPlace;
using orvane::test::realCall;

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = static_cast<mode_t>(va_arg(rest, int));
        va_end(rest);
    }
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->open) {
        if (const auto result = hooks->open(path)) {
            return *result;
        }
    }
    static auto* const real = realCall<int(const char*, int, ...)>("open");
    return real(path, flags, mode);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->read) {
        if (const auto result = hooks->read(descriptor, size)) {
            return *result;
        }
    }
    static auto* const real = realCall<ssize_t(int, void*, std::size_t)>("read");
    return real(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, std::size_t size) {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->write) {
        if (const auto result = hooks->write(descriptor, size)) {
            return *result;
        }
    }
    static auto* const real = realCall<ssize_t(int, const void*, std::size_t)>("write");
    return real(descriptor, buffer, size);
}

ssize_t send(int descriptor, const void* buffer, std::size_t size, int flags) {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->send) {
        if (const auto result = hooks->send(descriptor)) {
            return *result;
        }
    }
    static auto* const real = realCall<ssize_t(int, const void*, std::size_t, int)>("send");
    return real(descriptor, buffer, size, flags);
}

int close(int descriptor) {
    std::optional<int> result;
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->close) {
        result = hooks->close(descriptor);
    }
    const int error = errno;
    static auto* const real = realCall<int(int)>("close");
    const int closed = real(descriptor);
    if (result) {
        errno = error;
    }
    return result.value_or(closed);
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->waitpid) {
        if (const auto result = hooks->waitpid()) {
            return *result;
        }
    }
    static auto* const real = realCall<pid_t(pid_t, int*, int)>("waitpid");
    return real(pid, status, options);
}

}  // extern "C"
