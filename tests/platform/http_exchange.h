// HTTP exchanges as tests of the session see them.
#pragma once

#include "platform/http/http_session.h"
#include "support/scripted_server.h"
#include "support/test_files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::test {

/// A request on its way. May go before its completion comes.
class Exchange {
  public:
    Exchange(HttpSession& session, HttpRequest request);

    /// Blocks until it is complete; throws when that takes unreasonably long.
    HttpResult result();
    [[nodiscard]] bool isComplete() const { return completions() > 0; }
    /// How often the completion was called.
    [[nodiscard]] int completions() const;
    /// The thread that called it last.
    [[nodiscard]] std::thread::id thread() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

/// A request for `url`; throws when that does not parse.
HttpRequest requestFor(const std::string& url, std::vector<HttpHeader> headers = {});

/// How a whole exchange ended.
HttpResult fetch(HttpSession& session, HttpRequest request);
HttpResult fetch(HttpSession& session, const std::string& url);

/// Returns when the session's thread has looked at all sockets and deadlines after this was called.
void letWorkerIterate(HttpSession& session);

/// Returns when the session has taken in what was sent to it before this was called.
void letWorkerTakeIn(HttpSession& session);

/// Answers with `size` zero bytes, chunked.
Step zeros(std::size_t size);

/// A server's step that the test moves by hand.
class ManualServerStep {
  public:
    ManualServerStep();

    [[nodiscard]] Step step() const;
    /// Blocks until the request has come.
    void waitForRequest() const;
    /// Has the server send `bytes`, returns when it has.
    void send(std::string_view bytes) const;
    /// Has the server close the connection.
    void close() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

/// The ground of all tests of the session: no proxies, nobody trusted, the clock as it is.
class HttpTest : public ::testing::Test {
  protected:
    static constexpr HttpLimits limits{std::chrono::seconds(330), std::chrono::seconds(360)};

    HttpTest();
    ~HttpTest() override;

  private:
    TempDirectory root_;
};

}  // namespace orvane::test
