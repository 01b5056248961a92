#include "emulator/front/h2_stream.h"

#include <algorithm>
#include <utility>

namespace orvane::front {

void H2Stream::send(const Backend& backend, bool isComplete) {
    constexpr int unavailable = 503;
    const bool isLengthKnown = !request.value("content-length").empty();
    if (isSent_ || (!isComplete && !isLengthKnown)) {
        return;
    }
    isSent_ = true;
    if (!isLengthKnown && !body_.empty()) {
        request.headers.emplace_back("content-length", std::to_string(body_.size()));
    }
    isHeadRequest_ = request.value(":method") == "HEAD";
    backend_ = backend();
    if (backend_) {
        backend_->send(textOf(request) + body_);
    } else {
        head_ =
            AnswerHead{.status = unavailable, .headers = {{"content-length", "0"}}, .length = 0};
        status_ = unavailable;
        left_ = 0;
    }
    request = {};
    body_ = {};
}

void H2Stream::sendBody(std::string_view bytes) {
    if (backend_) {
        backend_->send(bytes);
    } else if (!isSent_) {
        body_ += bytes;
    }
}

bool H2Stream::advance() {
    if (!backend_) {
        return false;
    }
    const bool hasMoved = backend_->move();
    std::string& received = backend_->received();
    const std::size_t end = status_ == 0 && !head_ ? received.find("\r\n\r\n") : std::string::npos;
    if (end == std::string::npos) {
        return hasMoved;
    }
    head_ = readAnswerHead(std::string_view(received).substr(0, end));
    if (!head_) {
        return hasMoved;
    }
    received.erase(0, end + 4);
    if (head_->status >= 200) {
        status_ = head_->status;
        left_ = head_->length;
    }
    return true;
}

std::optional<AnswerHead> H2Stream::takeHead() {
    return std::exchange(head_, std::nullopt);
}

bool H2Stream::hasBody() const {
    return !isHeadRequest_ && status_ != 204 && status_ != 304 && left_ != 0;
}

std::size_t H2Stream::takeBody(std::uint8_t* buffer, std::size_t most) {
    std::string& received = backend_->received();
    std::size_t count = std::min(most, received.size());
    if (left_) {
        count = static_cast<std::size_t>(std::min<std::uint64_t>(count, *left_));
        *left_ -= count;
    }
    std::copy_n(received.begin(), count, buffer);
    received.erase(0, count);
    return count;
}

bool H2Stream::isBodyOver() const {
    return left_ ? *left_ == 0 : backend_->hasEnded() && backend_->received().empty();
}

bool H2Stream::isCutOff() const {
    return !isBodyOver() && backend_->hasEnded() && backend_->received().empty();
}

bool H2Stream::isUnanswered() const {
    return backend_ && backend_->hasEnded() && status_ == 0 && !head_;
}

}  // namespace orvane::front
