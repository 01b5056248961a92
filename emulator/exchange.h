#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace orvane::emulator {

/// One request and what became of it. Holds no credentials.
struct Exchange {
    std::string method;
    std::string target;       ///< Path and query exactly as sent.
    std::string device;       ///< See deviceOf; empty for requests of people.
    std::string userAgent;    ///< As sent.
    std::string ifNoneMatch;  ///< As sent, with its quotes; empty when absent.
    bool isHttp2 = false;
    bool isPoll = false;
    std::chrono::seconds wait{0};       ///< How long a poll wants to be held.
    unsigned status = 0;                ///< 0 while the request is held, and without an answer.
    std::size_t bytes = 0;              ///< Length of the answer's body.
    std::chrono::milliseconds held{0};  ///< From the request's arrival to its answer.
    std::string fault;                  ///< The fault that struck it; empty for none.
    bool hungUp = false;                ///< The agent closed the connection while it was held.
};

}  // namespace orvane::emulator
