// Writing a JSON object.
#pragma once

#include "platform/text/string_list.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace orvane::json {

/// A key with the value to write for it.
struct Field {
    std::string_view key;
    std::variant<bool, std::int64_t, std::string_view, const StringList*> value;
};

/// `fields` as one compact JSON object, keys in byte order. "/" is written as "\/", control
/// characters as \b \t \n \f \r \u00xx, everything else as raw UTF-8; malformed UTF-8 is replaced
/// with U+FFFD.
[[nodiscard]] std::string writeObject(std::span<const Field> fields);

}  // namespace orvane::json
