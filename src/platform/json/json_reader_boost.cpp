#include "platform/json/json_reader.h"

#include "platform/json/json_events_boost.h"
#include "platform/text/text.h"

#include <boost/json/src.hpp>

#include <utility>

namespace orvane::json {

/// Follows the parser's events down the requested paths. `containers_` mirrors the nesting of the
/// document: an entry for each open object or array, with the node it belongs to if it was
/// requested or is on the way to something requested, and empty otherwise, so that everything below
/// an entry that is empty is skipped. `awaiting_` is the node of the value that comes next: set by
/// a requested key, or to node 0 by the top level, and used up by that value.
///
/// A string comes in parts if it contains escapes.
class Picker : public ParserEvents {
  public:
    Picker(PickedMembers& members, std::size_t textSize) : members_(members), textSize_(textSize) {}

    bool on_object_begin(error_code& /*error*/) {
        if (containers_.empty()) {
            awaiting_ = 0;
        }
        return open(PickedMembers::Object{});
    }
    bool on_object_end(std::size_t /*count*/, error_code& /*error*/) { return close(); }
    bool on_array_begin(error_code& error) {
        // A top level that is not an object is not usable; no need to read on.
        if (containers_.empty()) {
            return refuse(error);
        }
        PickedMembers::Array array;
        if (awaiting_) {
            array.strings.reserve(textSize_);  // growing would hold them twice for a while
        }
        return open(std::move(array));
    }
    bool on_array_end(std::size_t /*count*/, error_code& /*error*/) { return close(); }

    bool on_key_part(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
        parts_ += part;
        return true;
    }
    bool on_key(std::string_view end, std::size_t /*size*/, error_code& /*error*/) {
        if (containers_.back()) {
            awaiting_ = members_.childOf(*containers_.back(), joined(end));
            if (awaiting_ && !isUnset(*awaiting_)) {
                awaiting_.reset();  // a duplicate key: the first one wins
            }
        }
        parts_.clear();
        return true;
    }

    bool on_string_part(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
        parts_ += part;
        return true;
    }
    bool on_string(std::string_view end, std::size_t /*size*/, error_code& error) {
        bool kept = true;
        if (auto* array = currentArray()) {
            array->strings.add(joined(end));
        } else {
            kept = keep([&] { return std::string(joined(end)); }, error);
        }
        parts_.clear();
        return kept;
    }

    bool on_int64(std::int64_t value, std::string_view /*end*/, error_code& error) {
        return keep([=] { return value; }, error);
    }
    bool on_uint64(std::uint64_t /*value*/, std::string_view /*end*/, error_code& error) {
        return keepOther(error);
    }
    bool on_double(double value, std::string_view end, error_code& error) {
        return isBeyondRange(value, end) ? refuse(error) : keepOther(error);
    }
    bool on_bool(bool value, error_code& error) {
        return keep([=] { return value; }, error);
    }
    bool on_null(error_code& error) { return keepOther(error); }

  private:
    [[nodiscard]] bool isUnset(std::size_t node) const {
        return std::holds_alternative<std::monostate>(members_.nodes_[node].value);
    }

    /// The string that ends with `end`; valid until its parts are cleared.
    std::string_view joined(std::string_view end) {
        return parts_.empty() ? end : std::string_view(parts_ += end);
    }

    /// The requested array that the parser is in, if any.
    PickedMembers::Array* currentArray() {
        if (containers_.empty() || !containers_.back()) {
            return nullptr;
        }
        return std::get_if<PickedMembers::Array>(&members_.nodes_[*containers_.back()].value);
    }

    /// Stores what `make` returns if the value was requested. An element of a requested array that
    /// gets here is not a string.
    template <typename Make>
    bool keep(Make make, error_code& error) {
        if (containers_.empty()) {
            return refuse(error);  // a scalar at the top level
        }
        if (awaiting_) {
            members_.nodes_[*std::exchange(awaiting_, std::nullopt)].value = make();
        } else if (auto* array = currentArray()) {
            array->onlyStrings = false;
        }
        return true;
    }

    bool keepOther(error_code& error) {
        return keep([] { return PickedMembers::Other{}; }, error);
    }

    bool open(PickedMembers::Value value) {
        if (awaiting_) {
            members_.nodes_[*awaiting_].value = std::move(value);
        } else if (auto* array = currentArray()) {
            array->onlyStrings = false;
        }
        containers_.push_back(std::exchange(awaiting_, std::nullopt));
        return true;
    }

    bool close() {
        containers_.pop_back();
        return true;
    }

    PickedMembers& members_;
    std::size_t textSize_;
    std::vector<std::optional<std::size_t>> containers_;
    std::optional<std::size_t> awaiting_;
    std::string parts_;  ///< of a key or string that has not ended yet
};

std::optional<PickedMembers> readObject(std::string_view text,
                                        std::initializer_list<std::string_view> paths) {
    PickedMembers members;
    for (const std::string_view path : paths) {
        members.want(path);
    }
    boost::json::parse_options options;
    options.max_depth = depthLimit;
    boost::json::basic_parser<Picker> parser(options, members, text.size());
    error_code error;
    text = text::withoutByteOrderMark(text);
    const std::size_t read = parser.write_some(false, text.data(), text.size(), error);
    if (error || read != text.size()) {
        return std::nullopt;
    }
    return members;
}

}  // namespace orvane::json
