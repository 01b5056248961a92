#include "platform/machine/accounts.h"

#include "platform/files/descriptor.h"
#include "platform/files/uninterrupted.h"
#include "platform/machine/clock.h"

#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace orvane {

namespace {

/// initgroups(3), whose group has another type on each system.
template <typename Group>
int initializeGroups(int (*call)(const char*, Group), const Account& account) {
    return call(account.name.c_str(), static_cast<Group>(account.group));
}

/// Gives up root's rights for good. In this order, because each step needs them.
bool become(const Account& account) {
    int failed = initializeGroups(&::initgroups, account);
    failed |= ::setgid(account.group);
    failed |= ::setuid(account.user);
    return failed == 0;
}

[[noreturn]] void runBody(const Account& account, const std::function<std::string()>& body,
                          int output) {
    try {
        std::string result;
        if (become(account)) {
            result = body();
        }
        std::FILE* const file = ::fdopen(output, "w");
        (void)std::fwrite(result.data(), 1, result.size(), file);
        (void)std::fflush(file);
    } catch (...) {  // NOLINT(bugprone-empty-catch): an empty result means failure
    }
    std::_Exit(EXIT_SUCCESS);
}

/// Reads `input` to its end; empty if that does not come before `deadline`.
std::string readUntil(clock::TimePoint deadline, int input) {
    std::string result;
    std::array<char, 4096> buffer{};
    for (;;) {
        pollfd waiting{input, POLLIN, 0};
        const auto limit = clock::blockLimit(deadline);
        const int ready =
            uninterrupted([&] { return ::poll(&waiting, 1, static_cast<int>(limit.count())); });
        if (ready == 0 && limit.count() > 0) {
            continue;
        }
        if (ready <= 0) {
            return "";
        }
        const ssize_t count =
            uninterrupted([&] { return ::read(input, buffer.data(), buffer.size()); });
        if (count <= 0) {
            return result;
        }
        result.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

std::vector<Account> allAccounts() {
    std::vector<Account> accounts;
    ::setpwent();
    while (const passwd* entry = ::getpwent()) {
        accounts.push_back({.name = entry->pw_name,
                            .user = entry->pw_uid,
                            .group = entry->pw_gid,
                            .home = entry->pw_dir});
    }
    ::endpwent();
    return accounts;
}

std::string accountName(std::uint32_t user) {
    const passwd* entry = ::getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::uint32_t ownUser() {
    return ::geteuid();
}

std::optional<std::string> resultAs(const Account& account,
                                    const std::function<std::string()>& body,
                                    std::chrono::milliseconds limit) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return std::nullopt;
    }
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        runBody(account, body, writeEnd.number());
    }
    (void)writeEnd.close();
    if (child < 0) {
        return std::nullopt;
    }
    std::string result = readUntil(clock::monotonicNow() + limit, readEnd.number());
    // The account could stop this child, which runs as it; that must not block us.
    (void)::kill(child, SIGKILL);
    int status = 0;
    (void)uninterrupted([&] { return ::waitpid(child, &status, 0); });
    return result.empty() ? std::nullopt : std::optional(std::move(result));
}

}  // namespace orvane
