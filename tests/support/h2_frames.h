// HTTP/2 as it is on the wire (RFC 9113), for servers that tests script frame by frame.
#pragma once

#include "support/scripted_server.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane::test {

enum class FrameType : std::uint8_t {
    data = 0,
    headers = 1,
    priority = 2,
    resetStream = 3,
    settings = 4,
    pushPromise = 5,
    ping = 6,
    goAway = 7,
    windowUpdate = 8,
    continuation = 9,
    unknown = 99
};

constexpr unsigned endStream = 1;
constexpr unsigned endHeaders = 4;

/// The last `bytes` bytes of `number`.
std::string bigEndian(std::uint32_t number, int bytes);

std::string frame(FrameType type, unsigned flags, std::uint32_t stream, const std::string& payload);

/// The last stream that the server takes, and why it takes no later one.
std::string goAwayFrame(std::uint32_t lastStream, std::uint32_t code);

/// The requests on one connection.
class H2Requests {
  public:
    /// `received` is what has come already, the preface first.
    H2Requests(Connection& connection, std::string received);

    /// Reads up to the header of the next request. False when the peer has gone before.
    bool await();

  private:
    Connection& connection_;
    std::string received_;
    std::size_t at_;
};

}  // namespace orvane::test
