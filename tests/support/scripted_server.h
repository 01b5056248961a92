// An HTTP server on loopback that does exactly what a test says, down to the bytes: the place for
// every kind of misbehaviour on the wire.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::test {

/// A request as it came over the wire.
struct ReceivedRequest {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;  ///< in order, as written
    std::string raw;

    /// The value of the header `name` (in any case); absent when it was not sent.
    [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
    [[nodiscard]] std::string path() const { return target.substr(0, target.find('?')); }
};

/// A server's end of one connection, given to a step to act on.
class Connection {
  public:
    virtual ~Connection() = default;
    /// Writes all of `bytes`; false when the peer is gone.
    virtual bool send(std::string_view bytes) = 0;
    /// Reads what comes next, at most `limit` bytes; empty when the peer has closed or the server
    /// ends.
    virtual std::string receive(std::size_t limit) = 0;
    /// Closes with a TCP reset instead of the orderly end.
    virtual void reset() = 0;
    /// Ends what is sent without the goodbye of TLS, as one who cuts the line would.
    virtual void cut() = 0;
    /// Blocks for `duration`; false at once when the server ends meanwhile.
    virtual bool pause(std::chrono::milliseconds duration) = 0;
};

/// What to do with a request. True keeps the connection for the next one, false closes it.
using Step = std::function<bool(Connection&, const ReceivedRequest&)>;

/// A well-formed answer with Content-Length (none for 1xx, 204 and 304).
Step answer(int status, std::string body = "",
            std::vector<std::pair<std::string, std::string>> headers = {});
/// Sends `bytes` as they are, then closes.
Step sendAndClose(std::string bytes);
/// Closes without sending anything.
Step closeAtOnce();
/// Resets the connection.
Step resetAtOnce();
/// Says nothing until the peer goes or the server ends.
Step staySilent();
/// Sends `bytes`, then says nothing more.
Step sendAndStall(std::string bytes);
/// Sends `head`, then one byte of `byte` every `interval` until the peer goes or the server ends.
Step trickle(std::string head, char byte, std::chrono::milliseconds interval);
/// Runs `action` before doing `step`.
Step after(std::function<void()> action, Step step);

/// Certificate chain and private key, PEM files.
struct TlsIdentity {
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
    int highestVersion = 0;  ///< a TLS1_x_VERSION of OpenSSL; 0 for no limit
    bool choosesHttp2 = false;
    bool wantsClientCertificate = false;
};

/// Listens from construction to destruction, one thread per connection. Requests to a path are
/// given to that path's steps in order, then to the one it is always given to, if there is one.
/// Else, when they are used up, the answer is silence; for a path without any it is 404. The
/// preface of an HTTP/2 connection counts as a request to "*".
class ScriptedServer {
  public:
    explicit ScriptedServer(std::optional<TlsIdentity> tls = std::nullopt);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    /// Adds steps for requests to `path`.
    void on(const std::string& path, std::vector<Step> steps);
    /// Does `step` with every request to `path` that no other step is left for.
    void always(const std::string& path, Step step);
    /// Runs `step` on every new connection before anything is read, with an empty request. TLS has
    /// not begun: what it sends and receives is in the clear.
    void onConnect(Step step);
    /// Shows `identity` on every new connection. REQUIRES: a server that speaks TLS.
    void show(const TlsIdentity& identity);
    /// From now on new connections get no answer from the system, not even that they are refused...
    void startDroppingPackets();
    /// ...until this.
    void stopDroppingPackets();

    [[nodiscard]] std::uint16_t port() const;
    /// "http://127.0.0.1:PORT" or "https://localhost:PORT".
    [[nodiscard]] std::string url() const;

    [[nodiscard]] std::vector<ReceivedRequest> requests() const;
    /// Those to `path`.
    [[nodiscard]] std::vector<ReceivedRequest> requestsTo(const std::string& path) const;
    [[nodiscard]] std::size_t connectionCount() const;
    /// Every byte that came over a connection, as it came and, with TLS, decrypted as well.
    [[nodiscard]] std::string received() const;
    /// Blocks until `count` requests have come, at most `limit`; false when they did not.
    bool waitForRequests(std::size_t count,
                         std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

  private:
    class Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace orvane::test
