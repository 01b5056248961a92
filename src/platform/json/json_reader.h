// Reading a JSON object: picking members by their paths.
//
// Strict RFC 8259 over UTF-8; one leading byte order mark is tolerated. The top level must be an
// object. The whole text is refused if it contains nesting deeper than 512, invalid UTF-8, lone
// surrogates, a raw NUL, a number beyond the range of a double or an exponent of more than nine
// digits. Of duplicate keys the first wins. No tree is built: memory use depends on the members
// requested, not on the document.
#pragma once

#include "platform/text/string_list.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane::json {

/// The deepest nesting of objects and arrays that is read.
inline constexpr std::size_t depthLimit = 512;

/// The requested members of one object. A path is their keys from the top level down,
/// "guard_config/capture/enabled"; the empty path is the top level itself.
class PickedMembers {
  public:
    /// The member's value, or nullopt if it is missing or of another type. A number is not a
    /// boolean.
    [[nodiscard]] std::optional<std::string> string(std::string_view path) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view path) const;
    /// Only numbers that are written as integers and fit.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view path) const;
    /// The strings of an array; nullopt also if any element is not a string. Moves them out; there
    /// may be very many.
    [[nodiscard]] std::optional<StringList> takeStrings(std::string_view path);
    [[nodiscard]] bool isObject(std::string_view path) const;

    /// As `string`, but an empty string counts as missing.
    [[nodiscard]] std::optional<std::string> nonEmptyString(std::string_view path) const;

  private:
    friend class Picker;
    friend std::optional<PickedMembers> readObject(std::string_view text,
                                                   std::initializer_list<std::string_view> paths);

    struct Object {};
    struct Array {
        StringList strings;
        bool onlyStrings = true;
    };
    struct Other {};  ///< null or any other number
    using Value =
        std::variant<std::monostate, Object, Array, Other, bool, std::int64_t, std::string>;

    /// A requested member or an object on the way to one.
    struct Node {
        std::string key;
        std::size_t parent = 0;
        Value value;
    };

    [[nodiscard]] std::optional<std::size_t> childOf(std::size_t parent,
                                                     std::string_view key) const;
    /// nullopt if nothing at `path` was requested.
    [[nodiscard]] std::optional<std::size_t> nodeAt(std::string_view path) const;
    template <typename Type>
    [[nodiscard]] const Type* valueAt(std::string_view path) const;
    std::size_t want(std::string_view path);

    std::vector<Node> nodes_{Node{}};  ///< node 0 is the top level
};

/// Reads `text` and picks the members at `paths`; nullopt if the text is refused (see above).
[[nodiscard]] std::optional<PickedMembers> readObject(
    std::string_view text, std::initializer_list<std::string_view> paths);

}  // namespace orvane::json
