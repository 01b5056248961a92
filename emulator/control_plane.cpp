#include "emulator/control_plane.h"

#include "emulator/server.h"

#include <utility>

namespace orvane::emulator {

ControlPlane::ControlPlane(Options options)
    : server_(std::make_unique<Server>(std::move(options))) {}

ControlPlane::~ControlPlane() = default;

std::uint16_t ControlPlane::port() const {
    return server_->port();
}

std::string ControlPlane::baseUrl() const {
    return server_->baseUrl();
}

void ControlPlane::setPolicy(std::string_view json) {
    server_->setPolicy(readPolicy(json));
}

void ControlPlane::setFaults(std::vector<Fault> faults) {
    server_->setFaults(std::move(faults));
}

std::size_t ControlPlane::heldPolls() const {
    return server_->heldPolls();
}

}  // namespace orvane::emulator
