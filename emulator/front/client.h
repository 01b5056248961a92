#pragma once

#include "emulator/front/protocol.h"
#include "emulator/front/wire.h"

#include <openssl/ssl.h>

#include <memory>

namespace orvane::front {

/// A client's connection, from its handshake to its end.
class Client {
  public:
    /// Owns `socket`. `context` has to outlive it.
    Client(int socket, SSL_CTX* context, Backend backend);

    /// Does all that can be done without waiting. False when the connection is over.
    bool advance();

  private:
    bool step();
    std::unique_ptr<Protocol> chosen();

    TlsWire wire_;
    const Backend backend_;
    std::unique_ptr<Protocol> protocol_;
    bool isFinished_ = false;  // Nothing more is sent; what comes is of no interest.
    bool isOver_ = false;
};

}  // namespace orvane::front
