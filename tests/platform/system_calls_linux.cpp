#include "platform/system_calls.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <sstream>
#include <string>

namespace orvane::test {

namespace {

int refusalOf(const char* name) {
    auto* const hooks = hooksInPlace();
    return hooks != nullptr && hooks->refuse ? hooks->refuse(name) : 0;
}

/// Makes the call unless it is refused; then the error is in errno and the result -1.
template <typename Function, typename... Arguments>
int unlessRefused(const char* name, Arguments... arguments) {
    const int error = refusalOf(name);
    return error != 0 ? failWith(error) : realCall<Function>(name)(arguments...);
}

/// As `unlessRefused`, if there is no other answer.
template <typename Function, typename... Arguments>
int unlessAnswered(const char* name, int socket, int which, Arguments... arguments) {
    auto* const hooks = hooksInPlace();
    const auto answer =
        hooks != nullptr && hooks->network ? hooks->network(name, socket, which) : std::nullopt;
    return answer ? *answer : unlessRefused<Function>(name, arguments...);
}

/// As `unlessRefused`, for calls whose result is the error.
template <typename Function, typename... Arguments>
int errorUnlessAccepted(const char* name, Arguments... arguments) {
    const int error = refusalOf(name);
    return error != 0 ? error : realCall<Function>(name)(arguments...);
}

}  // namespace

std::function<int(std::string_view)> refuseNth(std::string_view name, int number, int error) {
    return [=, count = 0](std::string_view call) mutable {
        return call == name && ++count == number ? error : 0;
    };
}

std::string pathOf(int descriptor) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
}

}  // namespace orvane::test

extern "C" int fsync(int descriptor) {
    using orvane::test::hooksInPlace;
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->flush) {
        if (const auto result = hooks->flush(descriptor)) {
            return *result;
        }
    }
    static auto* const real = orvane::test::realCall<int(int)>("fsync");
    return real(descriptor);
}

extern "C" {

using orvane::test::errorUnlessAccepted;
using orvane::test::failWith;
using orvane::test::hooksInPlace;
using orvane::test::realCall;
using orvane::test::refusalOf;
using orvane::test::unlessAnswered;
using orvane::test::unlessRefused;

int fchmod(int descriptor, mode_t mode) noexcept {
    return unlessRefused<int(int, mode_t)>("fchmod", descriptor, mode);
}

int fcntl(int descriptor, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return unlessRefused<int(int, int, ...)>("fcntl", descriptor, command, argument);
}

int lstat(const char* path, struct stat* status) noexcept {
    return unlessRefused<int(const char*, struct stat*)>("lstat", path, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return unlessRefused<int(const char*, mode_t)>("mkdir", path, mode);
}

int unlink(const char* path) noexcept {
    return unlessRefused<int(const char*)>("unlink", path);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return unlessRefused<int(int, struct stat*)>("fstat", descriptor, status);
}

int pipe(int* ends) noexcept {
    return unlessRefused<int(int*)>("pipe", ends);
}

pid_t fork() noexcept {
    return unlessRefused<pid_t()>("fork");
}

int timerfd_create(int clock, int flags) noexcept {
    return unlessRefused<int(int, int)>("timerfd_create", clock, flags);
}

int poll(struct pollfd* waiting, nfds_t count, int limit) {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->pollLimit) {
        limit = hooks->pollLimit(waiting, count, limit);
    }
    return unlessRefused<int(struct pollfd*, nfds_t, int)>("poll", waiting, count, limit);
}

int socket(int family, int type, int protocol) noexcept {
    return unlessAnswered<int(int, int, int)>("socket", -1, family, family, type, protocol);
}

int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
    return unlessAnswered<int(int, const sockaddr*, socklen_t)>("bind", socket, address->sa_family,
                                                                socket, address, size);
}

int connect(int socket, const sockaddr* address, socklen_t size) {
    return unlessAnswered<int(int, const sockaddr*, socklen_t)>(
        "connect", socket, address->sa_family, socket, address, size);
}

int setsockopt(int socket, int level, int option, const void* value, socklen_t size) noexcept {
    return unlessAnswered<int(int, int, int, const void*, socklen_t)>(
        "setsockopt", socket, level, socket, level, option, value, size);
}

ssize_t recv(int socket, void* buffer, std::size_t size, int flags) {
    const int error = refusalOf("recv");
    return error != 0 ? failWith(error)
                      : realCall<ssize_t(int, void*, std::size_t, int)>("recv")(socket, buffer,
                                                                                size, flags);
}

int shutdown(int socket, int how) noexcept {
    if (auto* const hooks = hooksInPlace(); hooks != nullptr && hooks->shutdown) {
        hooks->shutdown(socket);
    }
    return realCall<int(int, int)>("shutdown")(socket, how);
}

int getaddrinfo(const char* host, const char* service, const addrinfo* wanted, addrinfo** found) {
    auto* const real = realCall<decltype(getaddrinfo)>("getaddrinfo");
    auto* const hooks = hooksInPlace();
    const auto addresses =
        hooks != nullptr && hooks->resolve && host != nullptr ? hooks->resolve(host) : std::nullopt;
    if (!addresses) {
        return real(host, service, wanted, found);
    }
    int error = 0;
    addrinfo** next = found;
    std::istringstream list(*addresses);
    for (std::string address; error == 0 && list >> address;) {
        error = real(address.c_str(), service, wanted, next);
        while (error == 0 && *next != nullptr) {
            next = &(*next)->ai_next;
        }
    }
    return error;
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[],
                char* const environment[]) {
    return errorUnlessAccepted<int(pid_t*, const char*, const posix_spawn_file_actions_t*,
                                   const posix_spawnattr_t*, char* const*, char* const*)>(
        "posix_spawn", pid, path, actions, attributes, argv, environment);
}

int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from,
                                     int to) noexcept {
    return errorUnlessAccepted<int(posix_spawn_file_actions_t*, int, int)>(
        "posix_spawn_file_actions_adddup2", actions, from, to);
}

int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions,
                                             int from) noexcept {
    return errorUnlessAccepted<int(posix_spawn_file_actions_t*, int)>(
        "posix_spawn_file_actions_addclosefrom_np", actions, from);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    return errorUnlessAccepted<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
        "pthread_create", thread, attributes, start, argument);
}

}  // extern "C"
