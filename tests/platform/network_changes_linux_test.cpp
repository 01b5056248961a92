// A machine that goes to another network in the middle of a request.
#include "platform/machine/network_changes.h"

#include "platform/files/descriptor.h"
#include "platform/http/http_session.h"
#include "platform/http_exchange.h"
#include "platform/system_calls.h"
#include "support/scripted_server.h"
#include "support/test_files.h"
#include "support/virtual_clock.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::Optional;
using ::testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

int typeOf(int socket) {
    int type = 0;
    socklen_t size = sizeof type;
    return ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 ? type : 0;
}

/// A machine whose addresses and routes are what the test says. What the kernel reports about
/// changes comes from the test, too, by a socket that knows filters as the kernel's does.
class OtherNetworkTest : public HttpTest {
  protected:
    OtherNetworkTest() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends.data()) != 0) {
            throw std::runtime_error("no sockets");
        }
        kernel_ = Descriptor(ends[0]);
        daemons_ = ends[1];
        hooks.network = [this](std::string_view name, int socket, int which) {
            return reply(name, socket, which);
        };
    }

    void report(unsigned short type) const {
        nlmsghdr message{};
        message.nlmsg_len = sizeof message;
        message.nlmsg_type = type;
        if (::send(kernel_.number(), &message, sizeof message, 0) != sizeof message) {
            throw std::runtime_error("cannot report a change");
        }
    }

    /// Moves the clock and lets the session see it.
    void advance(std::chrono::milliseconds by) {
        letWorkerIterate(session);
        virtual_clock::advance(by);
        letWorkerIterate(session);
    }

    /// Sends a request that is held.
    void start() {
        server.on("/p", {held.step(), answer(200, "second")});
        exchange.emplace(session, requestFor(server.url() + "/p"));
        held.waitForRequest();
    }

    SystemCallHooks hooks;
    std::atomic<bool> hasAddress = true;
    std::atomic<bool> mayProbe = true;
    std::atomic<bool> hasRoute = true;
    ScriptedServer server;
    ManualServerStep held;
    HttpSession session{limits};
    std::optional<Exchange> exchange;

  private:
    std::optional<int> reply(std::string_view name, int socket, int which) {
        if (name == "socket" && which == AF_NETLINK) {
            return daemons_;
        }
        if ((name == "bind" && which == AF_NETLINK) ||
            (name == "setsockopt" && which == SOL_NETLINK)) {
            return 0;
        }
        const bool isProbe = typeOf(socket) == SOCK_DGRAM && which == AF_INET;
        if (name == "bind" && isProbe && !hasAddress) {
            return failWith(EADDRNOTAVAIL);
        }
        if (name == "bind" && isProbe && !mayProbe) {
            return failWith(ENOBUFS);
        }
        if (name == "connect" && isProbe && !hasRoute) {
            return failWith(ENETUNREACH);
        }
        return std::nullopt;
    }

    Descriptor kernel_;
    int daemons_ = -1;
};

TEST_F(OtherNetworkTest, ARequestFromAnAddressThatIsGoneIsSentAgain) {
    const WithSystemCallHooks installed(hooks);
    start();
    hasAddress = false;
    report(RTM_DELADDR);
    advance(1s);
    EXPECT_THAT(exchange->result().response().value().body, Optional("second"s));
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(OtherNetworkTest, ButNotAThirdTime) {
    const WithSystemCallHooks installed(hooks);
    ManualServerStep again;
    server.on("/p", {held.step(), again.step(), answer(200)});
    Exchange lost(session, requestFor(server.url() + "/p"));
    hasAddress = false;
    for (const ManualServerStep* manualStep : {&held, &again}) {
        manualStep->waitForRequest();
        report(RTM_DELADDR);
        advance(1s);
    }
    EXPECT_THAT(lost.result().error(), Optional("The network connection was lost."s));
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(OtherNetworkTest, OneFromAnAddressThatIsStillThereStays) {
    const WithSystemCallHooks installed(hooks);
    start();
    report(RTM_DELADDR);
    advance(1s);
    hasAddress = false;  // nobody looks again
    advance(60s);
    EXPECT_FALSE(exchange->isComplete());
    EXPECT_THAT(server.requests(), SizeIs(1));
    held.close();
}

TEST_F(OtherNetworkTest, OneWithoutAKnownAddressStays) {
    const WithSystemCallHooks installed(hooks);
    start();
    mayProbe = false;
    report(RTM_DELADDR);
    advance(1s);
    held.close();
    EXPECT_THAT(exchange->result().error(), Optional("The network connection was lost."s));
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(OtherNetworkTest, UntilThereIsAWayToTheServerNothingIsDone) {
    const WithSystemCallHooks installed(hooks);
    start();
    hasAddress = false;
    hasRoute = false;
    report(RTM_DELADDR);
    for (int i = 0; i < 5; ++i) {
        advance(1s);
    }
    EXPECT_FALSE(exchange->isComplete());
    EXPECT_THAT(server.requests(), SizeIs(1));
    hasRoute = true;
    advance(1s);
    EXPECT_EQ(exchange->result().error(), std::nullopt);
}

TEST_F(OtherNetworkTest, WhatIsConnectingIsLeftAlone) {
    const WithSystemCallHooks installed(hooks);
    server.startDroppingPackets();
    Exchange connecting(session, requestFor(server.url() + "/p"));
    hasAddress = false;
    report(RTM_DELADDR);
    advance(1s);
    EXPECT_FALSE(connecting.isComplete());
    server.stopDroppingPackets();
}

TEST_F(OtherNetworkTest, NewAddressesWakeNobody) {
    const WithSystemCallHooks installed(hooks);
    start();
    hasAddress = false;
    for (const unsigned short type : {RTM_NEWADDR, RTM_NEWROUTE, RTM_DELROUTE}) {
        report(type);
    }
    advance(60s);
    EXPECT_FALSE(exchange->isComplete());
    held.close();
}

TEST_F(OtherNetworkTest, WithoutWordOfChangesARequestIsHeldAllTheSame) {
    const std::vector<std::pair<std::string_view, int>> calls{{"socket", AF_NETLINK},
                                                              {"setsockopt", SOL_NETLINK},
                                                              {"setsockopt", SOL_SOCKET},
                                                              {"bind", AF_NETLINK}};
    for (const auto& refused : calls) {
        hooks.network = [=](std::string_view name, int socket, int which) -> std::optional<int> {
            const bool isOurs = which != SOL_SOCKET || typeOf(socket) == SOCK_RAW;
            return refused == std::pair(name, which) && isOurs
                       ? std::optional(failWith(EAFNOSUPPORT))
                       : std::nullopt;
        };
        const WithSystemCallHooks installed(hooks);
        const NetworkChanges changes;
        EXPECT_EQ(changes.descriptor(), -1) << refused.first << refused.second;
        HttpSession unaware(limits);
        EXPECT_EQ(fetch(unaware, server.url() + "/p").response().value().status, 404);
    }
}

// --- The kernel's own messages

/// Gives `name`, another name of the loopback interface, an address.
void addAddress(const char* name) {
    ifreq request{};
    std::copy_n(name, std::string_view(name).size(), static_cast<char*>(request.ifr_name));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(0x0A090909);
    std::copy_n(reinterpret_cast<const char*>(&address), sizeof address,
                reinterpret_cast<char*>(&request.ifr_addr));
    const Descriptor any(::socket(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(::ioctl(any.number(), SIOCSIFADDR, &request), 0);
}

/// Takes the address from it.
void removeAddress(const char* name) {
    ifreq request{};
    std::copy_n(name, std::string_view(name).size(), static_cast<char*>(request.ifr_name));
    const Descriptor any(::socket(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(::ioctl(any.number(), SIOCSIFFLAGS, &request), 0);
}

bool isReadable(int descriptor) {
    pollfd waited{descriptor, POLLIN, 0};
    return ::poll(&waited, 1, 0) == 1;
}

TEST(NetworkChangesTest, AnAddressThatGoesIsAChange) {
    if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        GTEST_SKIP() << "no network of one's own: " << std::generic_category().message(errno);
    }
    NetworkChanges changes;
    addAddress("lo:1");
    EXPECT_FALSE(isReadable(changes.descriptor()));
    removeAddress("lo:1");
    EXPECT_TRUE(isReadable(changes.descriptor()));
    changes.clear();
    EXPECT_FALSE(isReadable(changes.descriptor()));
}

}  // namespace

}  // namespace orvane::test
