// Everything below one directory: ORVANE_ROOT, or what a test has set.
#include "platform/machine/paths.h"
#include "platform/process/environment.h"
#include "support/rooted_paths.h"

#include <cstdlib>

namespace orvane {

namespace {

std::filesystem::path& root() {
    static std::filesystem::path directory = environmentValue("ORVANE_ROOT");
    if (directory.empty()) {
        std::abort();  // without a root this program would touch the machine's own files
    }
    return directory;
}

}  // namespace

namespace rooted_paths {

void setRoot(const std::filesystem::path& directory) {
    (void)setenv("ORVANE_ROOT", directory.c_str(), 1);
    root() = directory;
}

}  // namespace rooted_paths

namespace paths {

std::filesystem::path homeDirectory() {
    return root() / "home";
}

std::filesystem::path setupDirectory() {
    return root() / "private/tmp/dev.orvane.setup";
}

std::filesystem::path systemRoot() {
    return root();
}

std::filesystem::path registryTool() {
    return root() / "usr/sbin/ioreg";
}

std::filesystem::path machineIdFile() {
    return root() / "etc/machine-id";
}

std::filesystem::path certificateDirectory() {
    return root() / "etc/ssl/certs";
}

}  // namespace paths

}  // namespace orvane
