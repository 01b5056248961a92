#include "platform/system_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <utility>

namespace orvane::test {

namespace {

/// Kept behind a pointer, so that calls from other threads see none unless a test set some.
SystemCallHooks* hooks = nullptr;

/// The definition that ours stands in front of.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

WithSystemCallHooks::WithSystemCallHooks(SystemCallHooks wanted) {
    hooks = new SystemCallHooks(std::move(wanted));
}

WithSystemCallHooks::~WithSystemCallHooks() {
    delete std::exchange(hooks, nullptr);
}

int failWith(int error) {
    errno = error;
    return -1;
}

std::string pathOf(int descriptor) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
}

}  // namespace orvane::test

// These take the place of the C library's in this program alone.
extern "C" {

using orvane::test::hooks;
using orvane::test::next;

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    if (hooks != nullptr && hooks->open) {
        if (const auto result = hooks->open(path)) {
            return *result;
        }
    }
    static auto* const real = next<int(const char*, int, ...)>("open");
    return real(path, flags, mode);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (hooks != nullptr && hooks->read) {
        if (const auto result = hooks->read(descriptor, size)) {
            return *result;
        }
    }
    static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
    return real(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, std::size_t size) {
    if (hooks != nullptr && hooks->write) {
        if (const auto result = hooks->write(descriptor, size)) {
            return *result;
        }
    }
    static auto* const real = next<ssize_t(int, const void*, std::size_t)>("write");
    return real(descriptor, buffer, size);
}

ssize_t send(int descriptor, const void* buffer, std::size_t size, int flags) {
    if (hooks != nullptr && hooks->send) {
        if (const auto result = hooks->send(descriptor)) {
            return *result;
        }
    }
    static auto* const real = next<ssize_t(int, const void*, std::size_t, int)>("send");
    return real(descriptor, buffer, size, flags);
}

int fsync(int descriptor) {
    if (hooks != nullptr && hooks->fsync) {
        if (const auto result = hooks->fsync(descriptor)) {
            return *result;
        }
    }
    static auto* const real = next<int(int)>("fsync");
    return real(descriptor);
}

int close(int descriptor) {
    std::optional<int> result;
    if (hooks != nullptr && hooks->close) {
        result = hooks->close(descriptor);
    }
    const int error = errno;
    static auto* const real = next<int(int)>("close");
    const int closed = real(descriptor);
    if (result) {
        errno = error;
    }
    return result.value_or(closed);
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (hooks != nullptr && hooks->waitpid) {
        if (const auto result = hooks->waitpid()) {
            return *result;
        }
    }
    static auto* const real = next<pid_t(pid_t, int*, int)>("waitpid");
    return real(pid, status, options);
}

}  // extern "C"
