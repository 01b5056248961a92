// The C library's calls that the platform layer makes, open to a test: it can watch them, and let
// them fail in ways that no file system here would.
#pragma once

#include <dlfcn.h>
#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::test {

/// What to do instead of the call. An absent result lets the call through; a result of -1 comes
/// with errno set by the hook. Hooks are called on the thread that makes the call.
struct SystemCallHooks {
    std::function<std::optional<int>(const char* path)> open;
    std::function<std::optional<ssize_t>(int descriptor, std::size_t size)> read;
    /// May shorten `size` and let the call through.
    std::function<std::optional<ssize_t>(int descriptor, std::size_t& size)> write;
    std::function<std::optional<ssize_t>(int descriptor)> send;
    /// Whatever the system puts a file on stable storage with.
    std::function<std::optional<int>(int descriptor)> flush;
    /// Called before the descriptor is closed; a result of -1 is returned after that.
    std::function<std::optional<int>(int descriptor)> close;
    std::function<std::optional<int>()> waitpid;
    /// Called before the socket is shut down.
    std::function<void(int socket)> shutdown;
    /// The addresses to take for a host name, with spaces between them (Linux only), on any thread
    /// of the HTTP library's. An absent result lets the system find them.
    std::function<std::optional<std::string>(const std::string& host)> resolve;
    /// The limit in milliseconds for poll(2) in place of `limit` (Linux only), on any thread.
    std::function<int(const pollfd* descriptors, std::size_t count, int limit)> pollLimit;
    /// For socket, bind, connect and setsockopt (Linux only), on any thread. `which` is the address
    /// family, or the level of the option; `socket` is -1 for socket(2).
    std::function<std::optional<int>(std::string_view name, int socket, int which)> network;
    /// For calls without a hook of their own (Linux only): the error that the one of this name
    /// fails with, or 0.
    std::function<int(std::string_view name)> refuse;
};

/// Puts hooks in place for its lifetime, one at a time.
class WithSystemCallHooks {
  public:
    explicit WithSystemCallHooks(SystemCallHooks hooks);
    WithSystemCallHooks(const WithSystemCallHooks&) = delete;
    WithSystemCallHooks& operator=(const WithSystemCallHooks&) = delete;
    ~WithSystemCallHooks();
};

/// A hook that refuses the call of this name when it is made for the `number`th time, with `error`.
std::function<int(std::string_view)> refuseNth(std::string_view name, int number, int error);

/// -1 with errno set to `error`.
int failWith(int error);

/// The hooks in place, or null. Any thread may make a call while a test puts hooks in place or
/// takes them away, so a call asks once.
SystemCallHooks* hooksInPlace();

/// The C library's definition of a call that ours replaces.
template <typename Function>
Function* realCall(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// The path that `descriptor` was opened at.
std::string pathOf(int descriptor);

}  // namespace orvane::test
