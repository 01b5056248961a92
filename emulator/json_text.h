#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace orvane::emulator {

/// `value` as JSON. What agents send may be any bytes; JSON is UTF-8, so others become U+FFFD.
inline std::string jsonText(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace orvane::emulator
