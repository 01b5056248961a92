// What happens when the HTTP library, the threads or the memory refuse.
#include "platform/http/http_session.h"
#include "platform/http/semaphore.h"
#include "platform/http_exchange.h"
#include "platform/http_library_calls.h"
#include "platform/machine/paths.h"
#include "platform/system_calls.h"
#include "support/allocation_limit.h"
#include "support/http_session_internals.h"
#include "support/sanitizers.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

constexpr const char* failedInitialisation = "Failed initialization";

/// Whether the library has known `option` only since after 7.84.
bool isLate(CURLoption option) {
    constexpr int firstLate = 318;
    constexpr int typeUnit = 10000;
    return option % typeUnit >= firstLate;
}

class HttpLibraryTest : public HttpTest {
  protected:
    /// Refuses `name` the first `times` it is called.
    static HttpLibraryHooks refusing(std::string_view name, int times) {
        HttpLibraryHooks hooks;
        hooks.refuseCall = [=, left = times](std::string_view call) mutable {
            return call == name && left-- > 0;
        };
        return hooks;
    }

    /// The first exchange of `session` fails for want of resources, the next one does not.
    void expectOneFailure(HttpSession& session) {
        const auto result = fetch(session, server.url() + "/p");
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(), Optional(std::string(failedInitialisation)));
        EXPECT_EQ(server.connectionCount(), 0U);
        EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    }

    ScriptedServer server;
};

TEST_F(HttpLibraryTest, NothingIsSentWhenAnyOptionIsRefused) {
    TestCa().trustIn(paths::certificateDirectory());
    std::set<CURLoption> options;
    {
        HttpLibraryHooks hooks;
        hooks.refuseOption = [&](CURLoption option) {
            options.insert(option);
            return false;
        };
        const WithHttpLibraryHooks installed(hooks);
        HttpSession session(limits);
        ASSERT_FALSE(fetch(session, server.url() + "/p").error());
    }
    EXPECT_GT(std::erase_if(options, isLate), 0U);
    EXPECT_GE(options.size(), 25U);
    const std::size_t requests = server.requests().size();
    for (const CURLoption refused : options) {
        HttpLibraryHooks hooks;
        hooks.refuseOption = [=](CURLoption option) { return option == refused; };
        const WithHttpLibraryHooks installed(hooks);
        HttpSession session(limits);
        const auto result = fetch(session, server.url() + "/p");
        EXPECT_TRUE(result.error()) << refused;
        EXPECT_FALSE(result.response()) << refused;
    }
    EXPECT_EQ(server.requests().size(), requests);
}

TEST_F(HttpLibraryTest, ALibraryThatDoesNotKnowTheLatestOptionsWillDo) {
    HttpLibraryHooks hooks;
    hooks.refuseOption = isLate;
    const WithHttpLibraryHooks installed(hooks);
    server.on("/p", {answer(200, "body")});
    HttpSession session(limits);
    const auto result = fetch(session, server.url() + "/p");
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_EQ(result.response().value().body, "body");
}

TEST_F(HttpLibraryTest, WithoutAHandleForTheExchangeItFails) {
    HttpLibraryHooks hooks;
    // The library calls it too, when it makes the session's own handle on this thread.
    hooks.refuseCall = [maker = std::this_thread::get_id(),
                        left = 1](std::string_view call) mutable {
        return call == "curl_easy_init" && std::this_thread::get_id() != maker && left-- > 0;
    };
    const WithHttpLibraryHooks installed(hooks);
    HttpSession session(limits);
    expectOneFailure(session);
}

TEST_F(HttpLibraryTest, AnExchangeThatTheLibraryDoesNotTakeFails) {
    const WithHttpLibraryHooks installed(refusing("curl_multi_add_handle", 1));
    HttpSession session(limits);
    expectOneFailure(session);
}

TEST_F(HttpLibraryTest, WithoutAHandleForTheSessionItIsRequestedAgain) {
    const WithHttpLibraryHooks installed(refusing("curl_multi_init", 1));
    HttpSession session(limits);
    expectOneFailure(session);
}

TEST_F(HttpLibraryTest, WithoutAHandleTwiceInARowTheProcessIsToEnd) {
    const WithHttpLibraryHooks installed(refusing("curl_multi_init", 2));
    HttpSession session(limits);
    EXPECT_TRUE(fetch(session, server.url() + "/p").error());
    EXPECT_THROW((void)fetch(session, server.url() + "/p"), std::bad_alloc);
}

TEST_F(HttpLibraryTest, ConnectionsThatCouldNotBeDroppedAtOnceAreDroppedLater) {
    server.on("/broken", {closeAtOnce()});
    std::atomic<int> made = 0;
    HttpLibraryHooks hooks;
    hooks.refuseCall = [&](std::string_view name) {
        const bool isReplacement = name == "curl_multi_init" && ++made > 1;
        return isReplacement && made < 5;
    };
    const WithHttpLibraryHooks installed(hooks);
    {
        HttpSession session(limits);
        EXPECT_TRUE(fetch(session, server.url() + "/broken").error());
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_LE(made, 2) << "it tries again without a pause";
        EXPECT_FALSE(fetch(session, server.url() + "/p").error());
        // It tries once in each iteration.
        for (int i = 0; i < 5; ++i) {
            letWorkerIterate(session);
        }
    }
    EXPECT_EQ(made, 5);
}

TEST_F(HttpLibraryTest, ASessionWithoutARequestDoesNotCallTheLibrary) {
    int calls = 0;
    HttpLibraryHooks hooks;
    hooks.refuseCall = [&](std::string_view) {
        ++calls;
        return false;
    };
    const WithHttpLibraryHooks installed(hooks);
    { const HttpSession session(limits); }
    EXPECT_EQ(calls, 0);
}

/// While it is there, nobody in this process can open anything.
class NoDescriptors {
  public:
    NoDescriptors() {
        (void)::getrlimit(RLIMIT_NOFILE, &original_);
        const rlimit few{200, original_.rlim_max};
        (void)::setrlimit(RLIMIT_NOFILE, &few);
        for (int taken = ::open("/", O_RDONLY); taken >= 0; taken = ::open("/", O_RDONLY)) {
            taken_.push_back(taken);
        }
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    ~NoDescriptors() {
        for (const int taken : taken_) {
            (void)::close(taken);
        }
        (void)::setrlimit(RLIMIT_NOFILE, &original_);
    }

  private:
    rlimit original_{};
    std::vector<int> taken_;
};

class DescriptorTest : public HttpLibraryTest {
  protected:
    void SetUp() override {
        ORVANE_SKIP_UNDER_SANITIZERS("sanitizers need descriptors of their own");
    }

    static void expectToldAsSuch(HttpSession& session, const std::string& url) {
        const auto result = fetch(session, url);
        EXPECT_FALSE(result.response());
        EXPECT_THAT(result.error(),
                    Optional(std::string("No file descriptor is left. (Too many open files)")));
    }
};

TEST_F(DescriptorTest, WithoutAnyExchangesFailAndTheNextOneSucceeds) {
    HttpSession session(limits);
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
    for (const char* url : {"http://127.0.0.1:1/", "http://server.test/", "https://127.0.0.1:1/"}) {
        {
            const NoDescriptors exhausted;
            expectToldAsSuch(session, url);
            expectToldAsSuch(session, url);
        }
        EXPECT_FALSE(fetch(session, server.url() + "/p").error()) << url;
    }
}

TEST_F(DescriptorTest, WithoutAnyNoSessionStarts) {
    HttpSession session(limits);
    {
        const NoDescriptors exhausted;
        expectToldAsSuch(session, server.url() + "/p");
    }
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
}

/// A session whose library does not return from a call while `/held` is being answered.
class HttpFloodTest : public HttpTest {
  protected:
    HttpFloodTest() {
        server.on("/held", {[&](Connection& connection, const ReceivedRequest&) {
                      hold_ = true;
                      while (!connection.receive(1).empty()) {
                      }
                      isGone.signal();
                      return false;
                  }});
    }

    HttpLibraryHooks libraryHooks() {
        HttpLibraryHooks hooks;
        hooks.refuseCall = [this](std::string_view name) {
            if (name == "curl_multi_perform" && hold_.exchange(false)) {
                held.signal();
                release.wait();
            }
            return false;
        };
        return hooks;
    }

    SystemCallHooks systemHooks() {
        SystemCallHooks hooks;
        hooks.shutdown = [this, caller = std::this_thread::get_id()](int socket) {
            if (std::this_thread::get_id() == caller) {
                linger atClose{};
                socklen_t size = sizeof atClose;
                (void)::getsockopt(socket, SOL_SOCKET, SO_LINGER, &atClose, &size);
                cutOff.push_back(atClose.l_onoff != 0 && atClose.l_linger == 0 ? "reset" : "end");
            }
        };
        return hooks;
    }

  private:
    std::atomic<bool> hold_ = false;

  protected:
    Semaphore held{0};
    Semaphore release{0};
    Semaphore isGone{0};
    /// What the server of each connection that was cut off by this thread gets to see.
    std::vector<std::string> cutOff;
    const WithHttpLibraryHooks withLibraryHooks{libraryHooks()};
    const WithSystemCallHooks withSystemHooks{systemHooks()};
    ScriptedServer server;
    HttpSession session{limits};
};

TEST_F(HttpFloodTest, ACallThatDoesNotReturnIsCutOffFromItsServerWhenItsGraceIsOver) {
    Exchange exchange(session, requestFor(server.url() + "/held"));
    held.wait();
    virtual_clock::advance(HttpSessionInternals::grace - std::chrono::seconds(1));
    HttpSessionInternals::endFlood(session);
    EXPECT_FALSE(isGone.waitFor(std::chrono::milliseconds(50)));
    virtual_clock::advance(std::chrono::seconds(1));
    HttpSessionInternals::endFlood(session);
    EXPECT_TRUE(isGone.waitFor(std::chrono::seconds(20)));
    release.signal();
    EXPECT_THAT(exchange.result().error(),
                Optional(std::string("The network connection was lost.")));
}

TEST_F(HttpFloodTest, OnlyConnectionsThatAreStillOpenAreCutOff) {
    for (int i = 0; i < 3; ++i) {
        server.on("/closed", {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")});
        EXPECT_FALSE(fetch(session, server.url() + "/closed").error());
    }
    Exchange exchange(session, requestFor(server.url() + "/held"));
    held.wait();
    virtual_clock::advance(HttpSessionInternals::grace);
    HttpSessionInternals::endFlood(session);
    release.signal();
    EXPECT_TRUE(exchange.result().error());
    EXPECT_THAT(cutOff, ElementsAre("reset"));
}

TEST_F(HttpLibraryTest, ABodyThatMemoryHasNoRoomForEndsTheExchange) {
    constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
    server.on("/large", {sendAndStall("HTTP/1.1 200 OK\r\nContent-Length: 41943040\r\n\r\nx")});
    HttpSession session(limits);
    {
        const AllocationLimit limit(32 * mebibyte);
        const auto result = fetch(session, server.url() + "/large");
        EXPECT_TRUE(result.error());
        ASSERT_TRUE(result.response());
        EXPECT_EQ(result.response()->status, 200);
        EXPECT_FALSE(result.response()->body);
    }
    EXPECT_FALSE(fetch(session, server.url() + "/p").error());
}

// Without the server's threads.
class HttpLibraryDeathTest : public HttpTest {
  protected:
    static constexpr const char* refusedAtOnce = "http://127.0.0.1:1/";
};

TEST_F(HttpLibraryDeathTest, WithoutMemoryForAHeaderTheProcessEnds) {
    EXPECT_EXIT(
        {
            HttpLibraryHooks hooks;
            hooks.refuseCall = [](std::string_view name) { return name == "curl_slist_append"; };
            const WithHttpLibraryHooks installed(hooks);
            HttpSession session(limits);
            (void)fetch(session, requestFor(refusedAtOnce, {{"X-Orv-Key", "k"}}));
        },
        ::testing::KilledBySignal(SIGABRT), "bad_alloc");
}

}  // namespace

}  // namespace orvane::test
