// Comparing a JSON object with what it should say, without holding it in memory.
#pragma once

#include "platform/text/string_list.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane::json {

/// A member at the top level of an object, with the value that it should have. A list of texts is
/// an array of just these strings, in order.
struct ExpectedMember {
    std::string_view key;
    std::variant<bool, const StringList*> value;
    /// Whether a boolean that is missing or of another type counts as false.
    bool defaultsToFalse = false;
};

/// Compares an object, whose text comes piece by piece, with the members that it should have. Other
/// members do not matter. What counts as a usable text, and which of two members with the same name
/// counts, is as in `readObject`. Takes a fixed amount of memory, whatever the text holds.
class Comparison {
  public:
    /// Keys and lists are not copied.
    explicit Comparison(const std::vector<ExpectedMember>& expected);
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;
    ~Comparison();

    /// Takes the next piece of the text. False once it is certain that the object is another one or
    /// that the text is not usable; the rest need not be read.
    [[nodiscard]] bool add(std::string_view piece);

    /// Whether the text, which ends here, is an object with all members as expected.
    [[nodiscard]] bool isSame();

  private:
    class Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace orvane::json
