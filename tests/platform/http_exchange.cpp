#include "platform/http_exchange.h"

#include "platform/http/semaphore.h"
#include "support/rooted_paths.h"
#include "support/virtual_clock.h"

#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace orvane::test {

namespace {

using namespace std::chrono_literals;

/// Far beyond what anything here takes, for a machine with much else to do.
constexpr std::chrono::milliseconds timeLimit = 60s;

}  // namespace

struct Exchange::State {
    std::mutex mutex;
    std::optional<HttpResult> result;
    int completions = 0;
    std::thread::id thread;
    Semaphore complete{0};
};

Exchange::Exchange(HttpSession& session, HttpRequest request) : state_(std::make_shared<State>()) {
    session.send(std::move(request), [state = state_](HttpResult result) {
        {
            const std::lock_guard lock(state->mutex);
            state->result = std::move(result);
            state->thread = std::this_thread::get_id();
            ++state->completions;
        }
        state->complete.signal();
    });
}

HttpResult Exchange::result() {
    if (!state_->complete.waitFor(timeLimit)) {
        throw std::runtime_error("the exchange does not end");
    }
    const std::lock_guard lock(state_->mutex);
    return std::exchange(state_->result, std::nullopt).value();
}

int Exchange::completions() const {
    const std::lock_guard lock(state_->mutex);
    return state_->completions;
}

std::thread::id Exchange::thread() const {
    const std::lock_guard lock(state_->mutex);
    return state_->thread;
}

HttpRequest requestFor(const std::string& url, std::vector<HttpHeader> headers) {
    return {Url::parse(url).value(), std::move(headers), std::nullopt};
}

HttpResult fetch(HttpSession& session, HttpRequest request) {
    return Exchange(session, std::move(request)).result();
}

HttpResult fetch(HttpSession& session, const std::string& url) {
    return fetch(session, requestFor(url));
}

void letWorkerIterate(HttpSession& session) {
    // A refused request completes at the start of an iteration; between two of them is a whole one.
    for (int i = 0; i < 2; ++i) {
        (void)fetch(session, "refused:");
    }
}

void letWorkerTakeIn(HttpSession& session) {
    for (int i = 0; i < 3; ++i) {
        letWorkerIterate(session);  // the library may take more than one to hand it all out
    }
}

Step zeros(std::size_t size) {
    return [size](Connection& connection, const ReceivedRequest&) {
        constexpr std::size_t chunkSize = std::size_t{4} * 1024 * 1024;
        static const std::string chunk = "400000\r\n" + std::string(chunkSize, '\0') + "\r\n";
        bool going = connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (std::size_t sent = 0; going && sent + chunkSize <= size; sent += chunkSize) {
            going = connection.send(chunk);
        }
        if (going && size % chunkSize == 1) {
            going = connection.send("1\r\nx\r\n");
        }
        return going && connection.send("0\r\n\r\n");
    };
}

struct ManualServerStep::State {
    std::mutex mutex;
    std::deque<std::optional<std::string>> moves;  ///< what to send; absent to close
    Semaphore arrived{0};
    Semaphore done{0};

    void make(std::optional<std::string> move) {
        {
            const std::lock_guard lock(mutex);
            moves.push_back(std::move(move));
        }
        if (!done.waitFor(timeLimit)) {
            throw std::runtime_error("the server does not move");
        }
    }

    /// The next move; absent when there is none yet.
    std::optional<std::optional<std::string>> take() {
        const std::lock_guard lock(mutex);
        if (moves.empty()) {
            return std::nullopt;
        }
        auto move = std::move(moves.front());
        moves.pop_front();
        return move;
    }
};

ManualServerStep::ManualServerStep() : state_(std::make_shared<State>()) {}

Step ManualServerStep::step() const {
    return [state = state_](Connection& connection, const ReceivedRequest&) {
        state->arrived.signal();
        while (connection.pause(1ms)) {
            const auto move = state->take();
            if (!move) {
                continue;
            }
            if (*move) {
                (void)connection.send(**move);
            }
            state->done.signal();
            if (!*move) {
                break;
            }
        }
        return false;
    };
}

void ManualServerStep::waitForRequest() const {
    if (!state_->arrived.waitFor(timeLimit)) {
        throw std::runtime_error("no request comes");
    }
}

void ManualServerStep::send(std::string_view bytes) const {
    state_->make(std::string(bytes));
}

void ManualServerStep::close() const {
    state_->make(std::nullopt);
}

HttpTest::HttpTest() {
    rooted_paths::setRoot(root_.path());
    virtual_clock::reset();
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                             "no_proxy", "NO_PROXY"}) {
        (void)::unsetenv(name);
    }
}

HttpTest::~HttpTest() {
    virtual_clock::reset();
}

}  // namespace orvane::test
