#include "emulator/front/wire.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace orvane::front {
namespace {

/// Where only one thread reads, it needs only one.
thread_local std::array<char, std::size_t{16} * 1024> buffer;

}  // namespace

Wire::Wire(int socket) : socket_(socket) {
    (void)::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
}

Wire::~Wire() {
    ::close(socket_);
}

bool Wire::move() {
    bool hasMoved = false;
    while (!hasEnded_ && received_.size() < muchWaiting) {
        const Moved moved = readSome(buffer.data(), buffer.size());
        received_.append(buffer.data(), moved.bytes);
        hasEnded_ = moved.isOver;
        if (moved.bytes == 0 && !moved.isOver) {
            break;
        }
        hasMoved = true;
    }
    while (!toSend_.empty()) {
        const Moved moved = writeSome(toSend_);
        toSend_.erase(0, moved.isOver ? std::string::npos : moved.bytes);
        hasEnded_ |= moved.isOver;
        if (moved.bytes == 0 && !moved.isOver) {
            break;
        }
        hasMoved = true;
    }
    return hasMoved;
}

void Wire::finish() {
    (void)::shutdown(socket_, SHUT_WR);
}

Wire::Moved Wire::readSome(char* bytes, std::size_t most) {
    const ssize_t count = ::recv(socket_, bytes, most, 0);
    return count > 0 ? Moved{static_cast<std::size_t>(count), false}
                     : Moved{0, count == 0 || (errno != EAGAIN && errno != EINTR)};
}

Wire::Moved Wire::writeSome(std::string_view bytes) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), 0);
    return count > 0 ? Moved{static_cast<std::size_t>(count), false}
                     : Moved{0, errno != EAGAIN && errno != EINTR};
}

TlsWire::TlsWire(int socket, SSL_CTX* context) : Wire(socket), ssl_(SSL_new(context), SSL_free) {
    SSL_set_fd(ssl_.get(), socket);
    SSL_set_accept_state(ssl_.get());
}

bool TlsWire::isHttp2() const {
    const unsigned char* name = nullptr;
    unsigned length = 0;
    SSL_get0_alpn_selected(ssl_.get(), &name, &length);
    return length == 2;  // as no other name that is offered
}

void TlsWire::finish() {
    ERR_clear_error();
    if (hasShakenHands() && !isBroken_) {
        (void)SSL_shutdown(ssl_.get());
    }
    Wire::finish();
}

Wire::Moved TlsWire::readSome(char* bytes, std::size_t most) {
    ERR_clear_error();
    return movedBy(SSL_read(ssl_.get(), bytes, static_cast<int>(most)));
}

Wire::Moved TlsWire::writeSome(std::string_view bytes) {
    ERR_clear_error();
    return movedBy(
        SSL_write(ssl_.get(), bytes.data(), static_cast<int>(std::min(bytes.size(), muchWaiting))));
}

Wire::Moved TlsWire::movedBy(int result) {
    if (result > 0) {
        return {static_cast<std::size_t>(result), false};
    }
    const int error = SSL_get_error(ssl_.get(), result);
    isBroken_ |= error == SSL_ERROR_SYSCALL || error == SSL_ERROR_SSL;
    return {0, error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE};
}

}  // namespace orvane::front
