// Code run without the privileges that tests may have, root's above all.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace orvane::test {

/// Runs `action` in a child process, as "nobody" where this one is root's. What it returned; false
/// as well when the child did not come to its end. Expectations do not count in there.
inline bool asOrdinaryUser(const std::function<bool()>& action) {
    constexpr unsigned nobody = 65534;
    (void)std::fflush(nullptr);  // or the child might write what is buffered once more
    const pid_t child = ::fork();
    if (child == 0) {
        const bool dropped = ::geteuid() != 0 || (::setgid(nobody) == 0 && ::setuid(nobody) == 0);
        ::_exit(dropped && action() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

}  // namespace orvane::test
