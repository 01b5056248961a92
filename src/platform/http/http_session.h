// HTTP over libcurl: GET requests; responses are delivered on a thread owned by the session.
#pragma once

#include "platform/http/url.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

struct HttpHeader {
    std::string name;
    std::string value;
};

/// A GET request. Nothing but `headers`, a User-Agent and what the transport needs (Host,
/// Accept-Encoding) is sent; in particular no Accept unless it is among `headers`, and no
/// Authorization for a user name in the URL.
struct HttpRequest {
    Url url;
    std::vector<HttpHeader> headers;
    /// Inactivity timeout; defaults to the session's.
    std::optional<std::chrono::milliseconds> inactivityLimit;
    /// Called on the session's thread with each header line of the response, those of interim
    /// responses included, as it arrives; must not throw. The daemon decides nothing by headers.
    std::function<void(std::string_view line)> onHeaderLine{};
};

/// What the server answered. Any final status, including redirects, which are not followed.
struct HttpResponse {
    std::int64_t status = 0;
    /// The decoded body, possibly empty; absent if the transfer ended early.
    std::optional<std::string> body;
};

/// How an exchange ended: with a response, or with an error, or with both if the transfer failed
/// after the response header.
class HttpResult {
  public:
    /// A complete response.
    explicit HttpResult(HttpResponse response) : response_(std::move(response)) {}

    /// A failure with its reason in English, and what had arrived of the response, if anything.
    HttpResult(std::string error, std::optional<HttpResponse> partial)
        : response_(std::move(partial)), error_(std::move(error)) {}

    [[nodiscard]] const std::optional<HttpResponse>& response() const { return response_; }
    [[nodiscard]] const std::optional<std::string>& error() const { return error_; }

    /// Moves the response out; its body may be large.
    [[nodiscard]] std::optional<HttpResponse> takeResponse() {
        return std::exchange(response_, std::nullopt);
    }

  private:
    std::optional<HttpResponse> response_;
    std::optional<std::string> error_;
};

using HttpCompletion = std::function<void(HttpResult)>;

/// Limits of every exchange of a session, on the clock of clock.h.
struct HttpLimits {
    /// Longest time without a byte in either direction. Time spent connecting and in the TLS
    /// handshake counts; it is limited to 30 s besides.
    std::chrono::milliseconds inactivity;
    /// Longest time from start to end. Both limits start again when a request is sent once more.
    std::chrono::milliseconds total;
};

/// A client with connections of its own, kept alive and reused.
///
/// A worker thread runs all transfers and callbacks. It starts with the first request and blocks
/// without periodic wake-ups. Only http and https are spoken, TLS 1.2 or later with peer and host
/// verified against the machine's trust store, HTTP/2 where the server offers it. The proxy
/// variables of the environment are honored, except for loopback hosts. There are no cookies, no
/// cache and no credentials from files. A decoded body over `bodyLimit` ends the exchange with an
/// error, and so do more than `headerLimit` bytes of header lines, including those of 1xx responses
/// and trailers. After a failed exchange its connections are dropped, so that the next one resolves
/// and connects again.
///
/// An address that does not answer, or lets no TLS handshake end, is left for the name's others
/// after a third of the time for connecting, and skipped for an hour while one of them does.
///
/// A connection that has been idle for more than 3 s is not used again. A request that is lost
/// before any byte of its response is retried once, transparently, on a new connection: if its
/// connection had been used before, if the peer is dead, or if the server stopped accepting
/// requests. How long ago it was sent does not matter: over HTTP/1.1 every version of libcurl does
/// that by itself, and so all behave alike. A dead peer is detected within 75 s. A connection from
/// an address that the machine has lost is left as soon as there is another way to the server,
/// where the system reports that.
class HttpSession {
  public:
    static constexpr std::size_t bodyLimit = std::size_t{100} * 1024 * 1024;
    /// Below the limits of all versions of libcurl.
    static constexpr std::size_t headerLimit = std::size_t{256} * 1024;
    /// The longest value of a request header. Beyond limits of their own, versions of libcurl omit
    /// the header, send nothing, or report that memory is short.
    static constexpr std::size_t headerValueLimit = 65'536;
    explicit HttpSession(HttpLimits limits);
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    /// Cancels pending requests (their completions get an error) and joins the thread.
    ~HttpSession();

    /// Starts `request` and returns at once. `completion` is called exactly once, on the session's
    /// thread, and should return soon, because the session does nothing else meanwhile; an
    /// exception from it ends the process. If the thread cannot be started, it is called on the
    /// calling thread before this returns.
    ///
    /// A request that must not be sent completes with an error: a URL that is not http(s) with a
    /// host ("unsupported URL"), a header value with a control character or longer than
    /// `headerValueLimit`. May be called from any thread but not from a completion.
    void send(HttpRequest request, HttpCompletion completion);

    /// Sends `request` and blocks the calling thread until the exchange has ended. The limits end
    /// it, also against a server that keeps libcurl busy; a request that is sent once more may take
    /// twice as long. Not to be called from a completion.
    [[nodiscard]] HttpResult perform(HttpRequest request);

    /// As `perform`, but stops waiting after `limit`: absent then, and a result that arrives later
    /// is dropped.
    [[nodiscard]] std::optional<HttpResult> performWithin(HttpRequest request,
                                                          std::chrono::milliseconds limit);

    /// Process-wide session, for requests that set their own timeout. Never destroyed.
    static HttpSession& shared();

  private:
    friend struct HttpSessionInternals;  // for tests
    class Worker;
    std::unique_ptr<Worker> worker_;
};

}  // namespace orvane
