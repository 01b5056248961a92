// The part of Boost.JSON's handler interface that is the same for our handlers. For the sources of
// this folder only.
#pragma once

#include <boost/json/basic_parser_impl.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

namespace orvane::json {

using boost::system::error_code;

class ParserEvents {
  public:
    // The parser's own limits are not needed: the size of every input is bounded.
    static constexpr std::size_t max_object_size = SIZE_MAX;
    static constexpr std::size_t max_array_size = SIZE_MAX;
    static constexpr std::size_t max_key_size = SIZE_MAX;
    static constexpr std::size_t max_string_size = SIZE_MAX;

    static bool on_document_begin(error_code& /*error*/) { return true; }
    static bool on_document_end(error_code& /*error*/) { return true; }
    bool on_number_part(std::string_view part, error_code& /*error*/) {
        countExponentDigits(part);
        return true;
    }

    // Never called: comments are not allowed.
    static bool on_comment_part(std::string_view /*part*/, error_code& /*error*/) { return false; }
    static bool on_comment(std::string_view /*end*/, error_code& /*error*/) { return false; }

  protected:
    /// Ends the parsing.
    static bool refuse(error_code& error) {
        error = boost::json::error::syntax;
        return false;
    }

    /// Whether the number that has this value and ends with `end` is refused. Infinity is a number
    /// beyond the range of a double. An exponent beyond 32 bits is refused by some versions of the
    /// parser and read as zero by others, so the limit is one that is below that.
    bool isBeyondRange(double value, std::string_view end) {
        countExponentDigits(end);
        isInExponent_ = false;
        return std::exchange(exponentDigits_, 0) > mostExponentDigits || std::isinf(value);
    }

  private:
    static constexpr std::size_t mostExponentDigits = 9;

    /// A number comes in parts if the text does.
    void countExponentDigits(std::string_view part) {
        for (const char c : part) {
            if (c == 'e' || c == 'E') {
                isInExponent_ = true;
            } else if (isInExponent_ && (c > '0' || (c == '0' && exponentDigits_ > 0))) {
                ++exponentDigits_;
            }
        }
    }

    bool isInExponent_ = false;
    std::size_t exponentDigits_ = 0;  ///< so far, without leading zeros
};

}  // namespace orvane::json
