#include "platform/machine/paths.h"

#include "platform/process/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

namespace orvane::paths {

namespace {

std::optional<std::string> accountHome() {
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    // getpwuid_r(3): ERANGE means that the buffer is too small.
    while (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (found == nullptr || found->pw_dir == nullptr || *found->pw_dir == '\0') {
        return std::nullopt;
    }
    return found->pw_dir;
}

}  // namespace

std::filesystem::path homeDirectory() {
    if (const auto home = accountHome()) {
        return *home;
    }
    const std::string home = environmentValue("HOME");
    return home.empty() ? "/var/empty" : home;
}

std::filesystem::path setupDirectory() {
    return "/private/tmp/dev.orvane.setup";
}

std::filesystem::path systemRoot() {
    return "/";
}

std::filesystem::path registryTool() {
    return "/usr/sbin/ioreg";
}

std::filesystem::path machineIdFile() {
    return "/etc/machine-id";
}

std::filesystem::path certificateDirectory() {
    return "/etc/ssl/certs";
}

}  // namespace orvane::paths
