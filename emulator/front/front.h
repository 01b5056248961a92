#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace orvane::front {

/// The header Via of requests that came over HTTP/2.
inline constexpr std::string_view via = "2 orvane-front";

/// What a backend sends instead of an answer to have its client's HTTP/2 connection ended.
inline constexpr std::string_view goAway = "GOAWAY\r\n";

/// How to run a front.
struct Options {
    int listener = -1;           ///< A TCP socket that listens. The front closes it.
    std::string certificatePem;  ///< The chain, the server's own certificate first.
    std::string privateKeyPem;
    /// Returns a connection to the backend, which the front closes, or -1 if there is none. Runs on
    /// the front's thread and must not throw.
    std::function<int()> connect;
};

/// A front end as load balancers have it: it speaks TLS with clients, and HTTP/2 with those that
/// offer it; the backend speaks HTTP/1 in the clear.
///
/// Each request over HTTP/2 is sent to the backend on a connection of its own, with the header
/// `via` and without chunks, and is answered with what comes back. A backend that closes in the
/// middle of an answer ends the stream (RST_STREAM), one that closes without the head of an answer
/// ends the client's connection, and whatever it has sent goes to the client as it is: bytes that
/// are neither HTTP nor frames, for instance, or frames. If that is `goAway`, the front sends a
/// GOAWAY frame (NO_ERROR) that leaves out this request and all later ones, and closes the
/// connection when the others have their answers, as a gateway does that shuts down. A client that
/// resets a stream or hangs up ends the connections to the backend.
///
/// With a client that does not offer HTTP/2, the bytes are passed on both ways as they are.
///
/// It serves from construction to destruction on a thread of its own. SIGPIPE has to be ignored.
class Front {
  public:
    /// Throws std::runtime_error when the TLS library does not take the certificate and its key.
    explicit Front(Options options);
    ~Front();
    Front(const Front&) = delete;
    Front& operator=(const Front&) = delete;

  private:
    class Loop;
    std::unique_ptr<Loop> loop_;
};

}  // namespace orvane::front
