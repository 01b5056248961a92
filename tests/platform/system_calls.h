// The C library's calls that the platform layer makes, open to a test: it can watch them, and let
// them fail in ways that no file system here would.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace orvane::test {

/// What to do instead of the call. An absent result lets the call through; a result of -1 comes
/// with errno set by the hook. Hooks are called on the thread that makes the call.
struct SystemCallHooks {
    std::function<std::optional<int>(const char* path)> open;
    std::function<std::optional<ssize_t>(int descriptor, std::size_t size)> read;
    /// May shorten `size` and let the call through.
    std::function<std::optional<ssize_t>(int descriptor, std::size_t& size)> write;
    std::function<std::optional<ssize_t>(int descriptor)> send;
    std::function<std::optional<int>(int descriptor)> fsync;
    /// Called before the descriptor is closed; a result of -1 is returned behind that.
    std::function<std::optional<int>(int descriptor)> close;
    std::function<std::optional<int>()> waitpid;
};

/// Puts hooks in place for its lifetime, one at a time.
class WithSystemCallHooks {
  public:
    explicit WithSystemCallHooks(SystemCallHooks hooks);
    WithSystemCallHooks(const WithSystemCallHooks&) = delete;
    WithSystemCallHooks& operator=(const WithSystemCallHooks&) = delete;
    ~WithSystemCallHooks();
};

/// -1 with errno set to `error`.
int failWith(int error);

/// The path that `descriptor` was opened at.
std::string pathOf(int descriptor);

}  // namespace orvane::test
