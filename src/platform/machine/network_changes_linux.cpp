#include "platform/machine/network_changes.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace orvane {

namespace {

/// Has the kernel pass on only removals of addresses; rtnetlink(7). Otherwise it also reports new
/// ones, in IPv6 with every router advertisement.
bool passOnlyLostAddresses(int socket) {
    constexpr std::uint32_t wholeMessage = 0xFFFFFFFF;
    std::array<sock_filter, 4> steps{{
        {BPF_LD | BPF_H | BPF_ABS, 0, 0, offsetof(nlmsghdr, nlmsg_type)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, htons(RTM_DELADDR)},
        {BPF_RET | BPF_K, 0, 0, wholeMessage},
        {BPF_RET | BPF_K, 0, 0, 0},
    }};
    const sock_fprog filter{steps.size(), steps.data()};
    return ::setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

bool watch(int socket) {
    constexpr int yes = 1;
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    // Of more changes than fit into the buffer the first are enough.
    return ::setsockopt(socket, SOL_NETLINK, NETLINK_NO_ENOBUFS, &yes, sizeof yes) == 0 &&
           passOnlyLostAddresses(socket) &&
           ::bind(socket, reinterpret_cast<const sockaddr*>(&groups), sizeof groups) == 0;
}

}  // namespace

NetworkChanges::NetworkChanges()
    : descriptor_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
    if (descriptor_ >= 0 && !watch(descriptor_)) {
        (void)::close(std::exchange(descriptor_, -1));
    }
}

NetworkChanges::~NetworkChanges() {
    if (descriptor_ >= 0) {
        (void)::close(descriptor_);
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const): what it changes is in the kernel
void NetworkChanges::clear() {
    char start = 0;  // which address it was does not matter
    while (::recv(descriptor_, &start, sizeof start, 0) >= 0) {
    }
}

}  // namespace orvane
