// An HTTP session and a server that answers with the input, over a socket of its own. The first
// byte says how the server behaves ("s" stalls after its answer, "r" resets the connection, "e"
// answers before it has read the request, others close), the second where it cuts its answer in
// two.
//
// However it behaves: one completion and no more, a status or an error or both, a body just when
// there was no error. A plain answer is understood to the byte. What would hang is for the one who
// runs this to notice: the fuzzer and the test both have a limit for one input.
#include "fuzz.h"
#include "platform/files/descriptor.h"
#include "platform/http/http_session.h"
#include "platform/http/semaphore.h"
#include "support/sockets.h"
#include "support/virtual_clock.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>

namespace orvane::fuzz {

namespace {

using namespace std::chrono_literals;

struct Script {
    char manner = '\0';
    std::string_view first;
    std::string_view second;
};

Script scriptIn(std::string_view input) {
    Script script;
    if (!input.empty()) {
        script.manner = input.front();
        input.remove_prefix(1);
    }
    if (!input.empty()) {
        const auto cut = static_cast<unsigned char>(input.front());
        input.remove_prefix(1);
        script.first = input.substr(0, cut);
        script.second = input.substr(script.first.size());
    }
    return script;
}

void awaitInput(const Descriptor& socket) {
    pollfd entry{socket.number(), POLLIN, 0};
    while (::poll(&entry, 1, -1) < 0) {
        check(errno == EINTR);  // the fuzzer's own clock
    }
}

sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

/// The server's end of a connection.
class Connection {
  public:
    explicit Connection(Descriptor socket) : socket_(std::move(socket)) {}

    void readRequest() const {
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos) {
            awaitInput(socket_);
            std::array<char, 1024> part{};
            const auto count = ::recv(socket_.number(), part.data(), part.size(), 0);
            if (count <= 0) {
                return;  // an answer that came too early has made the client go
            }
            request.append(part.data(), static_cast<std::size_t>(count));
        }
    }

    void send(std::string_view bytes) const {
        // The peer may be gone already; what it then reports is checked, not this.
        (void)::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    void endAnswer() const { (void)::shutdown(socket_.number(), SHUT_WR); }

    void reset() {
        const linger now{1, 0};
        (void)::setsockopt(socket_.number(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        (void)socket_.close();
    }

  private:
    Descriptor socket_;
};

class Listener {
  public:
    Listener() : socket_(test::tcpSocket()) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        check(::bind(socket_.number(), generic(address), size) == 0);
        check(::listen(socket_.number(), 16) == 0);
        check(::getsockname(socket_.number(), generic(address), &size) == 0);
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    }

    [[nodiscard]] const std::string& url() const { return url_; }

    [[nodiscard]] Connection accept() const {
        awaitInput(socket_);
        return Connection(Descriptor(test::acceptFrom(socket_.number())));
    }

  private:
    Descriptor socket_;
    std::string url_;
};

/// Where a completion leaves what it was given.
struct Outcome {
    Semaphore done{0};
    std::atomic<int> completions = 0;
    std::optional<HttpResult> result;
};

void serve(const Listener& listener, const Script& script, Outcome& outcome) {
    Connection connection = listener.accept();
    if (script.manner != 'e') {
        connection.readRequest();
    }
    connection.send(script.first);
    connection.send(script.second);
    if (script.manner == 'e') {
        connection.readRequest();
    }
    if (script.manner == 'r') {
        connection.reset();
    } else if (script.manner != 's') {
        connection.endAnswer();
    } else if (outcome.done.waitFor(3ms)) {
        return;  // it was a whole answer
    } else {
        virtual_clock::advance(361s);  // beyond the limit for the whole
    }
    outcome.done.wait();
    connection.reset();  // leaves no connection behind that has to wait for its end
}

HttpResult resultOf(const Script& script) {
    static const Listener listener;
    virtual_clock::reset();
    const auto outcome = std::make_shared<Outcome>();
    {
        HttpSession session({330s, 360s});
        session.send({Url::parse(listener.url()).value(), {{"Accept", "application/json"}}, {}},
                     [outcome](HttpResult result) {
                         outcome->result = std::move(result);
                         ++outcome->completions;
                         outcome->done.signal();
                     });
        serve(listener, script, *outcome);
    }
    check(outcome->completions == 1);
    return std::move(outcome->result).value();
}

void checkResult(const HttpResult& result) {
    const bool hasBody = result.response() && result.response()->body;
    check(result.response() || result.error());
    check(hasBody != result.error().has_value());
    check(!result.error() || !result.error()->empty());
    check(!result.response() ||
          (result.response()->status >= 200 && result.response()->status <= 999));
    check(!hasBody || result.response()->body->size() <= HttpSession::bodyLimit);
}

/// An answer of the simplest form: a status line, a length, as much or less of a body.
struct PlainAnswer {
    int status = 0;
    std::size_t length = 0;
    std::string_view body;
};

std::optional<int> numberIn(std::string_view text) {
    if (text.empty() || text.size() > 4 ||
        text.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    return std::stoi(std::string(text));
}

bool take(std::string_view& text, std::string_view start) {
    const bool isThere = text.starts_with(start);
    text.remove_prefix(isThere ? start.size() : 0);
    return isThere;
}

std::optional<PlainAnswer> plainAnswerIn(std::string_view bytes) {
    if (!take(bytes, "HTTP/1.1 ")) {
        return std::nullopt;
    }
    const auto status = numberIn(bytes.substr(0, std::min<std::size_t>(3, bytes.size())));
    bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()));
    if (!status || *status < 200 || *status == 204 || *status == 304 ||
        !take(bytes, " OK\r\nContent-Length: ")) {
        return std::nullopt;
    }
    const auto lineEnd = std::min(bytes.find("\r\n\r\n"), bytes.size());
    const auto length = numberIn(bytes.substr(0, lineEnd));
    bytes.remove_prefix(lineEnd);
    if (!length || !take(bytes, "\r\n\r\n")) {
        return std::nullopt;
    }
    const auto size = static_cast<std::size_t>(*length);
    return PlainAnswer{*status, size, bytes.substr(0, size)};
}

void checkPlainAnswer(const HttpResult& result, const PlainAnswer& answer) {
    const bool isWhole = answer.body.size() == answer.length;
    check(result.response() && result.response()->status == answer.status);
    check(result.error().has_value() == !isWhole);
    check(!isWhole || result.response()->body == answer.body);
}

}  // namespace

void tryInput(std::string_view input) {
    static const std::filesystem::path root = rootDirectory();
    const Script script = scriptIn(input);
    const HttpResult result = resultOf(script);
    checkResult(result);
    const auto answer = plainAnswerIn(input.substr(std::min<std::size_t>(2, input.size())));
    // With "s" and "r" the client may not get to see all of it.
    if (answer && script.manner != 's' && script.manner != 'r') {
        checkPlainAnswer(result, *answer);
    }
}

}  // namespace orvane::fuzz
