// Comparing a JSON object with expected members, without holding it in memory.
#pragma once

#include "platform/text/string_list.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane::json {

/// A member at the top level of an object, with its expected value. A list means an array of
/// exactly these strings, in order.
struct ExpectedMember {
    std::string_view key;
    std::variant<bool, const StringList*> value;
    /// Whether a boolean that is missing or of another type counts as false.
    bool defaultsToFalse = false;
};

/// Compares an object, whose text arrives piece by piece, with expected members; others do not
/// matter. What text is refused, and that the first of duplicate keys wins, is as in `readObject`.
/// Uses a fixed amount of memory, whatever the text contains.
class Comparison {
  public:
    /// Keys and lists are not copied.
    explicit Comparison(const std::vector<ExpectedMember>& expected);
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;
    ~Comparison();

    /// Takes the next piece of the text. False once it is certain that the object differs or that
    /// the text is refused; the rest need not be read.
    [[nodiscard]] bool add(std::string_view piece);

    /// Call at the end of the text: whether it is an object with all members as expected.
    [[nodiscard]] bool isSame();

  private:
    class Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace orvane::json
