// Where things are for the control plane's program: it uses the daemon's HTTP client and none of
// the daemon's files.
#include "emulator/check/trusted_authority.h"
#include "platform/machine/paths.h"

namespace orvane::paths {

namespace {

constexpr const char* nowhere = "/nonexistent";

}  // namespace

std::filesystem::path homeDirectory() {
    return nowhere;
}

std::filesystem::path setupDirectory() {
    return nowhere;
}

std::filesystem::path systemRoot() {
    return "/";
}

std::filesystem::path registryTool() {
    return nowhere;
}

std::filesystem::path machineIdFile() {
    return nowhere;
}

std::filesystem::path certificateDirectory() {
    return emulator::TrustedAuthority::directory();
}

}  // namespace orvane::paths
