// Connections that never block, with the bytes that have come and those that are to go.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace orvane::front {

class Wire {
  public:
    /// Owns `socket`, which does not block from now on.
    explicit Wire(int socket);
    virtual ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// Takes in what has come, unless much of that is waiting already, and sends what can be sent.
    /// True if anything has changed.
    bool move();

    /// What has come. Who takes something removes it.
    std::string& received() { return received_; }
    /// Adds to what is to be sent.
    void send(std::string_view bytes) { toSend_ += bytes; }
    /// Whether so much is to be sent that more has to wait.
    bool isFull() const { return toSend_.size() >= muchWaiting; }
    bool isFlushed() const { return toSend_.empty(); }
    /// Whether the peer sends no more; it may have received all the same.
    bool hasEnded() const { return hasEnded_; }

    /// Says in an orderly way that nothing more is sent.
    virtual void finish();

  protected:
    /// What readSome() and writeSome() return.
    struct Moved {
        std::size_t bytes = 0;
        bool isOver = false;  ///< The connection is.
    };
    static constexpr std::size_t muchWaiting = std::size_t{64} * 1024;

    int socket() const { return socket_; }

  private:
    virtual Moved readSome(char* bytes, std::size_t most);
    virtual Moved writeSome(std::string_view bytes);

    int socket_;
    std::string received_;
    std::string toSend_;
    bool hasEnded_ = false;
};

/// The server's end of a TLS connection.
class TlsWire : public Wire {
  public:
    TlsWire(int socket, SSL_CTX* context);

    bool hasShakenHands() const { return SSL_is_init_finished(ssl_.get()) == 1; }
    /// Whether the client and the server have agreed on HTTP/2.
    bool isHttp2() const;

    void finish() override;

  private:
    Moved readSome(char* bytes, std::size_t most) override;
    Moved writeSome(std::string_view bytes) override;
    Moved movedBy(int result);

    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
    bool isBroken_ = false;
};

}  // namespace orvane::front
