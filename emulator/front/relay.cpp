#include "emulator/front/relay.h"

namespace orvane::front {
namespace {

bool pass(Wire& from, Wire& to) {
    if (from.received().empty() || to.isFull()) {
        return false;
    }
    to.send(from.received());
    from.received().clear();
    return true;
}

}  // namespace

bool Relay::advance() {
    if (!backend_) {
        return false;
    }
    const bool hasMoved = backend_->move();
    const bool hasSent = pass(client_, *backend_);
    return pass(*backend_, client_) || hasSent || hasMoved;
}

End Relay::end() const {
    if (!backend_) {
        return End::abrupt;
    }
    const bool isDone = backend_->hasEnded() && backend_->received().empty() && client_.isFlushed();
    return isDone ? End::orderly : End::none;
}

}  // namespace orvane::front
