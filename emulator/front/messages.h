// Requests and answers in the two forms that HTTP has on the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::front {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// A request as it comes over HTTP/2.
struct RequestHead {
    Headers headers;  ///< Those with a colon first included.

    /// The value of the header `name`; empty when there is none.
    std::string value(std::string_view name) const;
};

/// The same for a server that speaks HTTP/1: an HTTP/1.0 request, which is answered without chunks
/// and by the only answer on its connection. Pure.
std::string textOf(const RequestHead& request);

/// The head of an answer.
struct AnswerHead {
    int status = 0;
    Headers headers;  ///< In lower case; those of the connection are left out.
    std::optional<std::uint64_t> length{};  ///< Of the body, if it is known.
};

/// Reads the head of an HTTP/1 answer, without the empty line at its end. Absent if it is none.
/// Pure.
std::optional<AnswerHead> readAnswerHead(std::string_view text);

}  // namespace orvane::front
