#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace orvane::emulator {

/// What came of a request to the control plane that is being checked.
struct Outcome {
    std::int64_t status = 0;                       ///< 0 without a response.
    std::optional<std::string> body{};             ///< Absent unless it arrived completely.
    std::optional<std::string> error{};            ///< Why the exchange failed, if it did.
    bool isOutstanding = false;                    ///< It was given up before it had ended.
    std::chrono::milliseconds took{0};             ///< Until it ended or was given up.
    std::map<std::string, std::string> headers{};  ///< Of the response; the names in lower case.
};

}  // namespace orvane::emulator
