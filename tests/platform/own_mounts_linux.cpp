#include "platform/own_mounts_linux.h"

#include "support/test_files.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace orvane::test {

std::string useOwnMounts() {
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            return "no mounts of one's own permitted: " + std::generic_category().message(errno);
        }
        // Files can be made there by users and groups that it knows only.
        writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return "no mounts permitted: " + std::generic_category().message(errno);
    }
    return "";
}

void mountOver(const std::filesystem::path& source, const std::filesystem::path& target) {
    if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        throw std::runtime_error("cannot mount over " + target.string());
    }
}

}  // namespace orvane::test
