#include "platform/machine/network_changes.h"

#include <fcntl.h>
#include <notify.h>
#include <unistd.h>

#include <array>

namespace orvane {

NetworkChanges::NetworkChanges() {
    // Posted when addresses, routers, name servers or proxies have changed; notify(3).
    if (::notify_register_file_descriptor("com.apple.system.config.network_change", &descriptor_, 0,
                                          &registration_) != NOTIFY_STATUS_OK) {
        descriptor_ = -1;
        return;
    }
    (void)::fcntl(descriptor_, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(descriptor_, F_SETFL, O_NONBLOCK);
}

NetworkChanges::~NetworkChanges() {
    if (descriptor_ >= 0) {
        (void)::notify_cancel(registration_);  // closes the descriptor
    }
}

void NetworkChanges::clear() {
    std::array<char, 64> registrations{};  // one number for each time
    while (::read(descriptor_, registrations.data(), registrations.size()) > 0) {
    }
}

}  // namespace orvane
