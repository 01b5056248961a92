// JSON objects: picking named members out of a text, and writing small objects.
//
// Reading is strict RFC 8259 over UTF-8: one leading byte order mark is tolerated; the top level
// must be an object; nesting deeper than 512, invalid UTF-8, lone surrogates, raw NUL, numbers
// beyond the range of a double and exponents beyond 32 bits refuse the whole text. Of members with
// the same name in one object the first counts. No tree is built: a large document costs what is
// picked from it.
#pragma once

#include "platform/text/text_list.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane::json {

/// The deepest nesting of objects and arrays that is read.
inline constexpr std::size_t depthLimit = 512;

/// The members that were asked for of one object. A path names them by their keys from the top
/// level down, "guard_config/capture/enabled"; the empty path is the top level itself.
class Members {
  public:
    /// The member's value if it is there and of that type, else absent. A number is not a boolean.
    [[nodiscard]] std::optional<std::string> string(std::string_view path) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view path) const;
    /// Only numbers that are written as integers and fit.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view path) const;
    /// The strings of an array; absent as well when any element of it is not a string. They are
    /// handed over, not copied: there may be very many.
    [[nodiscard]] std::optional<TextList> takeStrings(std::string_view path);
    [[nodiscard]] bool isObject(std::string_view path) const;

    /// As `string`, but an empty text counts as absent.
    [[nodiscard]] std::optional<std::string> nonEmptyString(std::string_view path) const;

  private:
    friend class Picker;
    friend std::optional<Members> readObject(std::string_view text,
                                             std::initializer_list<std::string_view> paths);

    struct Object {};
    struct Array {
        TextList texts;
        bool onlyTexts = true;
    };
    struct Other {};  ///< null or any other number
    using Value =
        std::variant<std::monostate, Object, Array, Other, bool, std::int64_t, std::string>;

    /// A wanted member or an object on the way to one.
    struct Node {
        std::string key;
        std::size_t parent = 0;
        Value value;
    };

    [[nodiscard]] std::optional<std::size_t> childOf(std::size_t parent,
                                                     std::string_view key) const;
    /// Absent when nothing at `path` was asked for.
    [[nodiscard]] std::optional<std::size_t> nodeAt(std::string_view path) const;
    template <typename Type>
    [[nodiscard]] const Type* valueAt(std::string_view path) const;
    std::size_t want(std::string_view path);

    std::vector<Node> nodes_{Node{}};  ///< the first is the top level
};

/// Reads `text` and picks the members at `paths`; absent when the text is not usable (see above).
std::optional<Members> readObject(std::string_view text,
                                  std::initializer_list<std::string_view> paths);

/// A member to write.
struct Member {
    std::string_view key;
    std::variant<bool, std::int64_t, std::string_view, const TextList*> value;
};

/// `members` as one compact JSON object, keys in byte order. "/" is written as "\/", control
/// characters as \b \t \n \f \r \u00xx, everything else as raw UTF-8; malformed UTF-8 is repaired
/// with U+FFFD.
std::string writeObject(std::span<const Member> members);

}  // namespace orvane::json
