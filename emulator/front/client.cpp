#include "emulator/front/client.h"

#include "emulator/front/h2_connection.h"
#include "emulator/front/relay.h"

#include <utility>

namespace orvane::front {

Client::Client(int socket, SSL_CTX* context, Backend backend)
    : wire_(socket, context), backend_(std::move(backend)) {}

bool Client::advance() {
    while (step()) {
    }
    return !isOver_;
}

bool Client::step() {
    const bool hasMoved = wire_.move();
    isOver_ |= wire_.hasEnded();
    if (isOver_) {
        return false;
    }
    if (isFinished_) {  // it may have sent something meanwhile, which would reset the connection
        wire_.received().clear();
        return hasMoved;
    }
    if (!protocol_ && wire_.hasShakenHands()) {
        protocol_ = chosen();
    }
    if (!protocol_) {
        return hasMoved;
    }
    const bool hasAdvanced = protocol_->advance();
    const End end = protocol_->end();
    if (end == End::orderly) {
        protocol_.reset();
        wire_.finish();
        isFinished_ = true;
        return true;
    }
    isOver_ = end == End::abrupt;
    return !isOver_ && (hasMoved || hasAdvanced);
}

std::unique_ptr<Protocol> Client::chosen() {
    if (wire_.isHttp2()) {
        return std::make_unique<H2Connection>(wire_, backend_);
    }
    return std::make_unique<Relay>(wire_, backend_);
}

}  // namespace orvane::front
