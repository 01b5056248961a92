// What happens when the HTTP library, the threads or the memory refuse.
#include "platform/http_exchange.h"
#include "platform/http_library_calls.h"
#include "platform/http_session.h"
#include "platform/paths.h"
#include "platform/semaphore.h"
#include "support/allocation_limit.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace orvane::test {

namespace {

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
        EXPECT_FALSE(result.response);
        EXPECT_THAT(result.error, Optional(std::string(failedInitialisation)));
        EXPECT_EQ(server.connectionCount(), 0U);
        EXPECT_FALSE(fetch(session, server.url() + "/p").error);
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
        ASSERT_FALSE(fetch(session, server.url() + "/p").error);
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
        EXPECT_TRUE(result.error) << refused;
        EXPECT_FALSE(result.response) << refused;
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
    EXPECT_FALSE(result.error) << *result.error;
    EXPECT_EQ(result.response.value().body, "body");
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

TEST_F(HttpLibraryTest, WithoutAHandleForTheSessionItIsAskedForAgain) {
    const WithHttpLibraryHooks installed(refusing("curl_multi_init", 1));
    HttpSession session(limits);
    expectOneFailure(session);
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
        EXPECT_TRUE(fetch(session, server.url() + "/broken").error);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_LE(made, 2) << "it tries again without a pause";
        EXPECT_FALSE(fetch(session, server.url() + "/p").error);
        // It tries once a turn.
        for (int turns = 0; turns < 5; ++turns) {
            letWorkerTurn(session);
        }
    }
    EXPECT_EQ(made, 5);
}

TEST_F(HttpLibraryTest, ACallThatDoesNotReturnIsCutOffFromItsServerWhenItsGraceIsOver) {
    std::atomic<bool> hold = false;
    Semaphore held(0);
    Semaphore release(0);
    HttpLibraryHooks hooks;
    hooks.refuseCall = [&](std::string_view name) {
        if (name == "curl_multi_perform" && hold.exchange(false)) {
            held.signal();
            release.wait();
        }
        return false;
    };
    const WithHttpLibraryHooks installed(hooks);
    Semaphore isGone(0);
    server.on("/p", {[&](Connection& connection, const ReceivedRequest&) {
                  hold = true;
                  while (!connection.receive(1).empty()) {
                  }
                  isGone.signal();
                  return false;
              }});
    HttpSession session(limits);
    Exchange exchange(session, requestFor(server.url() + "/p"));
    held.wait();
    virtual_clock::advance(HttpSession::grace - std::chrono::seconds(1));
    session.endFlood();
    EXPECT_FALSE(isGone.waitFor(std::chrono::milliseconds(50)));
    virtual_clock::advance(std::chrono::seconds(1));
    session.endFlood();
    EXPECT_TRUE(isGone.waitFor(std::chrono::seconds(20)));
    release.signal();
    EXPECT_THAT(exchange.result().error, Optional(std::string("The network connection was lost.")));
}

TEST_F(HttpLibraryTest, ABodyThatMemoryHasNoRoomForEndsTheExchange) {
    constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
    server.on("/large", {sendAndStall("HTTP/1.1 200 OK\r\nContent-Length: 41943040\r\n\r\nx")});
    HttpSession session(limits);
    {
        const AllocationLimit limit(32 * mebibyte);
        const auto result = fetch(session, server.url() + "/large");
        EXPECT_TRUE(result.error);
        ASSERT_TRUE(result.response);
        EXPECT_EQ(result.response->status, 200);
        EXPECT_FALSE(result.response->body);
    }
    EXPECT_FALSE(fetch(session, server.url() + "/p").error);
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
