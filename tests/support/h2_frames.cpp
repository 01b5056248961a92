#include "support/h2_frames.h"

#include <utility>

namespace orvane::test {

std::string bigEndian(std::uint32_t number, int bytes) {
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) {
        text += static_cast<char>(number >> (8U * static_cast<unsigned>(i)));
    }
    return text;
}

std::string frame(FrameType type, unsigned flags, std::uint32_t stream,
                  const std::string& payload) {
    return bigEndian(static_cast<std::uint32_t>(payload.size()), 3) + static_cast<char>(type) +
           static_cast<char>(flags) + bigEndian(stream, 4) + payload;
}

std::string goAwayFrame(std::uint32_t lastStream, std::uint32_t code) {
    return frame(FrameType::goAway, 0, 0, bigEndian(lastStream, 4) + bigEndian(code, 4));
}

H2Requests::H2Requests(Connection& connection, std::string received)
    : connection_(connection), received_(std::move(received)), at_(24) {}

bool H2Requests::await() {
    constexpr std::size_t headLength = 9;
    for (;;) {
        while (received_.size() < at_ + headLength) {
            const std::string part = connection_.receive(4096);
            if (part.empty()) {
                return false;
            }
            received_ += part;
        }
        const auto byte = [&](std::size_t i) {
            return static_cast<std::size_t>(static_cast<unsigned char>(received_[at_ + i]));
        };
        const bool isRequest = byte(3) == static_cast<std::size_t>(FrameType::headers);
        at_ += headLength + (byte(0) << 16U) + (byte(1) << 8U) + byte(2);
        if (isRequest) {
            return true;
        }
    }
}

}  // namespace orvane::test
