// A name with more than one address, and what a connection costs that has been made.
#include "platform/files/descriptor.h"
#include "platform/http/http_session.h"
#include "platform/http/semaphore.h"
#include "platform/http_exchange.h"
#include "platform/http_library_calls.h"
#include "platform/machine/paths.h"
#include "platform/system_calls.h"
#include "support/scripted_server.h"
#include "support/sockets.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::Optional;
using ::testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr const char* neighbor = "127.0.0.2";
constexpr std::chrono::seconds waitLimit = 20s;

sockaddr_in at(const char* address, std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    if (::inet_pton(AF_INET, address, &name.sin_addr) != 1) {
        throw std::invalid_argument(address);
    }
    return name;
}

/// Listens on another loopback address. Connections are made, but nobody serves them.
class SilentNeighbor {
  public:
    explicit SilentNeighbor(std::uint16_t port, int backlog = 8) : name_(at(neighbor, port)) {
        if (::bind(socket_, address(), sizeof name_) != 0 || ::listen(socket_, backlog) != 0) {
            throw std::runtime_error("no neighbor");
        }
    }
    SilentNeighbor(const SilentNeighbor&) = delete;
    SilentNeighbor& operator=(const SilentNeighbor&) = delete;
    ~SilentNeighbor() {
        ::close(filler_);
        ::close(socket_);
    }

    /// Blocks until somebody has connected, and leaves that alone; false when nobody does.
    bool isConnectedTo(std::chrono::milliseconds limit = waitLimit) {
        pollfd waited{socket_, POLLIN, 0};
        if (::poll(&waited, 1, static_cast<int>(limit.count())) != 1) {
            return false;
        }
        accepted_.push_back(Descriptor(acceptFrom(socket_)));
        return true;
    }

    /// From now on the system drops the first packet of each connection, as the only place in the
    /// queue is taken.
    void fill() {
        if (::connect(filler_, address(), sizeof name_) != 0) {
            throw std::runtime_error("cannot fill the queue of connections");
        }
    }

  private:
    [[nodiscard]] const sockaddr* address() const {
        return reinterpret_cast<const sockaddr*>(&name_);
    }

    sockaddr_in name_;
    int socket_ = tcpSocket();
    int filler_ = tcpSocket();
    std::vector<Descriptor> accepted_;
};

class AddressesTest : public HttpTest {
  protected:
    AddressesTest() {
        ca.trustIn(paths::certificateDirectory());
        server.show(ca.issue("DNS:two.test"));
        hooks.resolve = [](const std::string&) { return neighbor + std::string(" 127.0.0.1"); };
        hooks.refuse = [this](std::string_view name) {
            if (name == "socket" && std::this_thread::get_id() == worker) {
                socketIsOpened.signal();
            }
            return 0;
        };
    }

    HttpRequest request() const {
        return requestFor("https://two.test:" + std::to_string(server.port()) + "/p");
    }

    /// The server ends the connection with each answer.
    void serve() { server.always("/p", sendAndClose("HTTP/1.1 204 No Content\r\n\r\n")); }

    TestCa ca;
    ScriptedServer server{ca.issueForLoopback()};
    HttpSession session{limits};
    SystemCallHooks hooks;
    std::thread::id worker;
    Semaphore socketIsOpened{0};
};

TEST_F(AddressesTest, AnAddressThatLetsNoHandshakeEndIsLeftForTheNext) {
    serve();
    SilentNeighbor silent(server.port());
    const WithSystemCallHooks installed(hooks);
    Exchange exchange(session, request());
    ASSERT_TRUE(silent.isConnectedTo());
    letWorkerIterate(session);
    virtual_clock::advance(9s);
    letWorkerIterate(session);
    EXPECT_THAT(server.requests(), SizeIs(0));
    virtual_clock::advance(2s);
    EXPECT_EQ(exchange.result().error(), std::nullopt);
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(AddressesTest, OneThatDropsPacketsToo) {
    Exchange refused(session, requestFor("refused:"));
    (void)refused.result();
    worker = refused.thread();
    serve();
    SilentNeighbor silent(server.port(), 0);
    silent.fill();
    const WithSystemCallHooks installed(hooks);
    Exchange exchange(session, request());
    ASSERT_TRUE(socketIsOpened.waitFor(waitLimit));
    letWorkerIterate(session);
    virtual_clock::advance(11s);
    EXPECT_EQ(exchange.result().error(), std::nullopt);
}

TEST_F(AddressesTest, WithAShorterLimitItIsLeftSooner) {
    serve();
    SilentNeighbor silent(server.port());
    const WithSystemCallHooks installed(hooks);
    HttpRequest lookup = request();
    lookup.inactivityLimit = 12s;
    Exchange exchange(session, lookup);
    ASSERT_TRUE(silent.isConnectedTo());
    letWorkerIterate(session);
    virtual_clock::advance(5s);
    EXPECT_EQ(exchange.result().error(), std::nullopt);
}

TEST_F(AddressesTest, WhatWasLeftIsSkippedForAnHour) {
    serve();
    SilentNeighbor silent(server.port());
    const WithSystemCallHooks installed(hooks);
    for (const bool isLong : {false, true}) {
        Exchange exchange(session, request());
        ASSERT_TRUE(silent.isConnectedTo());
        letWorkerIterate(session);
        virtual_clock::advance(11s);
        EXPECT_EQ(exchange.result().error(), std::nullopt);
        EXPECT_EQ(fetch(session, request()).error(), std::nullopt);
        EXPECT_FALSE(silent.isConnectedTo(0ms));
        virtual_clock::advance(isLong ? 0s : 1h);
    }
}

TEST_F(AddressesTest, OneThatHasServedIsNotSkipped) {
    server.show(ca.issue("DNS:two.test,DNS:kept.test"));
    server.always("/p", answer(204));
    SilentNeighbor silent(server.port());
    hooks.resolve = [](const std::string& host) {
        return host == "kept.test" ? "127.0.0.1"s : neighbor + " 127.0.0.1"s;
    };
    const WithSystemCallHooks installed(hooks);
    const std::string kept = "https://kept.test:" + std::to_string(server.port()) + "/p";
    EXPECT_EQ(fetch(session, kept).error(), std::nullopt);
    Exchange exchange(session, request());
    ASSERT_TRUE(silent.isConnectedTo());
    letWorkerIterate(session);
    virtual_clock::advance(11s);
    EXPECT_EQ(exchange.result().error(), std::nullopt);
}

TEST_F(AddressesTest, ItIsTriedAgainWhenTheOthersFail) {
    server.always("/p", closeAtOnce());
    SilentNeighbor silent(server.port());
    const WithSystemCallHooks installed(hooks);
    Exchange first(session, request());
    ASSERT_TRUE(silent.isConnectedTo());
    letWorkerIterate(session);
    virtual_clock::advance(11s);
    EXPECT_TRUE(first.result().error());
    server.startDroppingPackets();
    Exchange second(session, request());
    while (!silent.isConnectedTo(100ms)) {
        ASSERT_FALSE(second.isComplete());
        virtual_clock::advance(1s);
    }
    server.stopDroppingPackets();
}

TEST_F(AddressesTest, OneThatRefusesIsLeftAtOnce) {
    serve();
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(fetch(session, request()).error(), std::nullopt);
}

TEST_F(AddressesTest, WithoutMemoryToGoOnItIsAnError) {
    std::atomic<bool> isShort = false;
    HttpLibraryHooks library;
    library.refuseCall = [&](std::string_view name) {
        return isShort && name == "curl_multi_add_handle";
    };
    const WithHttpLibraryHooks installed(library);
    const WithSystemCallHooks installedToo(hooks);
    SilentNeighbor silent(server.port());
    HttpSession poor(limits);
    Exchange exchange(poor, request());
    ASSERT_TRUE(silent.isConnectedTo());
    letWorkerIterate(poor);
    isShort = true;
    virtual_clock::advance(11s);
    EXPECT_TRUE(exchange.result().error());
}

TEST_F(AddressesTest, WhatTheSystemTimesOutReadsLikeWhatWeDo) {
    hooks.refuse = [](std::string_view name) { return name == "connect" ? ETIMEDOUT : 0; };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(fetch(session, request()).error(), Optional("The request timed out."s));
}

TEST_F(AddressesTest, OnceConnectedTheLibraryHasNoMoreTimersForThat) {
    hooks.resolve = [](const std::string&) { return std::string("127.0.0.1 ") + neighbor; };
    const WithSystemCallHooks installed(hooks);
    std::atomic<bool> isHeld = false;
    Semaphore sleepsOn{0};
    HttpLibraryHooks library;
    library.wait = [&](CURLM* multi) {
        long next = 0;
        (void)curl_multi_timeout(multi, &next);
        const bool isNever = next < 0 || std::chrono::milliseconds(next) > limits.total;
        if (isHeld && isNever) {
            sleepsOn.signal();
        }
    };
    const WithHttpLibraryHooks installedToo(library);
    HttpSession held(limits);
    const ManualServerStep manualStep;
    server.on("/p", {manualStep.step()});
    Exchange exchange(held, request());
    manualStep.waitForRequest();
    isHeld = true;
    EXPECT_TRUE(sleepsOn.waitFor(waitLimit));
    manualStep.close();
}

}  // namespace

}  // namespace orvane::test
