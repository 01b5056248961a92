// The part of Boost.JSON's handler interface that is the same for our handlers. For the sources of
// this folder only.
#pragma once

#include <boost/json/basic_parser_impl.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvane::json {

using boost::system::error_code;

struct ParserEvents {
    // The parser's own limits are not needed: the size of every input is bounded.
    static constexpr std::size_t max_object_size = SIZE_MAX;
    static constexpr std::size_t max_array_size = SIZE_MAX;
    static constexpr std::size_t max_key_size = SIZE_MAX;
    static constexpr std::size_t max_string_size = SIZE_MAX;

    static bool on_document_begin(error_code& /*error*/) { return true; }
    static bool on_document_end(error_code& /*error*/) { return true; }
    static bool on_number_part(std::string_view /*part*/, error_code& /*error*/) { return true; }

    // Never called: comments are not allowed.
    static bool on_comment_part(std::string_view /*part*/, error_code& /*error*/) { return false; }
    static bool on_comment(std::string_view /*end*/, error_code& /*error*/) { return false; }

    /// Ends the parsing.
    static bool refuse(error_code& error) {
        error = boost::json::error::syntax;
        return false;
    }
};

}  // namespace orvane::json
