#pragma once

#include "emulator/front/messages.h"
#include "emulator/front/protocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::front {

/// One request over HTTP/2, and the backend's answer to it.
class H2Stream {
  public:
    /// The request, while its head comes.
    RequestHead request;

    /// To be called when the head has come, and when all of the request has (`isComplete`). Sends
    /// it to the backend, once its length is known. Without a backend the answer is an error.
    void send(const Backend& backend, bool isComplete);
    /// Sends a part of the body.
    void sendBody(std::string_view bytes);

    /// Does what can be done without waiting. True if that is anything.
    bool advance();

    /// The head of an answer that has not been taken yet, an interim one perhaps.
    std::optional<AnswerHead> takeHead();
    /// Whether a body follows the head. REQUIRES: the last head that was taken is final.
    bool hasBody() const;

    /// Moves what is there of the body to `buffer`, at most `most` bytes.
    std::size_t takeBody(std::uint8_t* buffer, std::size_t most);
    /// Whether there is no more to come of the body.
    bool isBodyOver() const;
    /// Whether the backend has closed before that.
    bool isCutOff() const;

    /// Whether the backend has closed without the head of an answer.
    bool isUnanswered() const;
    /// What it has sent instead.
    const std::string& sentInstead() const { return backend_->received(); }

  private:
    std::unique_ptr<Wire> backend_;
    std::string body_;  // As long as it is not sent.
    bool isSent_ = false;
    std::optional<AnswerHead> head_;  // Not taken yet.
    int status_ = 0;                  // Of the final head.
    bool isHeadRequest_ = false;
    std::optional<std::uint64_t> left_;  // Of the body, if its length is known.
};

}  // namespace orvane::front
