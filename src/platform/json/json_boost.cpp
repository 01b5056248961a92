#include "platform/json/json.h"

#include "platform/json/json_events_boost.h"
#include "platform/text/text.h"

#include <boost/json/src.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvane::json {

/// Follows the parser's events down the wanted paths. A text that the parser does not find in one
/// piece (there are escapes in it) comes in parts.
class Picker : public ParserEvents {
  public:
    Picker(Members& members, std::size_t textSize) : members_(members), textSize_(textSize) {}

    bool on_object_begin(error_code& /*error*/) {
        if (containers_.empty()) {
            awaiting_ = 0;
        }
        return open(Members::Object{});
    }
    bool on_object_end(std::size_t /*count*/, error_code& /*error*/) { return close(); }
    bool on_array_begin(error_code& error) {
        // A top level that is not an object is not usable; no need to read on.
        if (containers_.empty()) {
            return refuse(error);
        }
        Members::Array array;
        if (awaiting_) {
            array.texts.reserve(textSize_);  // growing would hold it twice for a while
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
                awaiting_.reset();  // a repeated key: the first one counts
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
            array->texts.add(joined(end));
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
    bool on_double(double value, std::string_view /*end*/, error_code& error) {
        // Zero times a power of ten beyond a double comes out as not a number, but is one.
        return std::isinf(value) ? refuse(error) : keepOther(error);
    }
    bool on_bool(bool value, error_code& error) {
        return keep([=] { return value; }, error);
    }
    bool on_null(error_code& error) { return keepOther(error); }

  private:
    [[nodiscard]] bool isUnset(std::size_t node) const {
        return std::holds_alternative<std::monostate>(members_.nodes_[node].value);
    }

    /// The text that ends with `end`; valid until its parts are cleared.
    std::string_view joined(std::string_view end) {
        return parts_.empty() ? end : std::string_view(parts_ += end);
    }

    /// The wanted array that the parser is in, if any.
    Members::Array* currentArray() {
        if (containers_.empty() || !containers_.back()) {
            return nullptr;
        }
        return std::get_if<Members::Array>(&members_.nodes_[*containers_.back()].value);
    }

    /// Keeps what `make` returns if it is wanted here.
    template <typename Make>
    bool keep(Make make, error_code& error) {
        if (containers_.empty()) {
            return refuse(error);  // a scalar at the top level
        }
        if (awaiting_) {
            members_.nodes_[*std::exchange(awaiting_, std::nullopt)].value = make();
        } else if (auto* array = currentArray()) {
            array->onlyTexts = false;
        }
        return true;
    }

    bool keepOther(error_code& error) {
        return keep([] { return Members::Other{}; }, error);
    }

    bool open(Members::Value value) {
        if (awaiting_) {
            members_.nodes_[*awaiting_].value = std::move(value);
        } else if (auto* array = currentArray()) {
            array->onlyTexts = false;
        }
        containers_.push_back(std::exchange(awaiting_, std::nullopt));
        return true;
    }

    bool close() {
        containers_.pop_back();
        return true;
    }

    Members& members_;
    std::size_t textSize_;
    std::vector<std::optional<std::size_t>> containers_;  ///< open ones, with their node if wanted
    std::optional<std::size_t> awaiting_;  ///< the node that the next value belongs to
    std::string parts_;                    ///< of a key or text that has not ended yet
};

std::optional<std::size_t> Members::childOf(std::size_t parent, std::string_view key) const {
    for (std::size_t i = 1; i < nodes_.size(); ++i) {
        if (nodes_[i].parent == parent && nodes_[i].key == key) {
            return i;
        }
    }
    return std::nullopt;
}

std::size_t Members::want(std::string_view path) {
    std::size_t node = 0;
    while (!path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        if (const auto child = childOf(node, key)) {
            node = *child;
        } else {
            nodes_.push_back(Node{std::string(key), node, {}});
            node = nodes_.size() - 1;
        }
    }
    return node;
}

std::optional<std::size_t> Members::nodeAt(std::string_view path) const {
    std::optional<std::size_t> node = 0;
    while (node && !path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        node = childOf(*node, key);
    }
    return node;
}

template <typename Type>
const Type* Members::valueAt(std::string_view path) const {
    const auto node = nodeAt(path);
    return node ? std::get_if<Type>(&nodes_[*node].value) : nullptr;
}

std::optional<std::string> Members::string(std::string_view path) const {
    const auto* value = valueAt<std::string>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> Members::nonEmptyString(std::string_view path) const {
    auto value = string(path);
    return value && value->empty() ? std::nullopt : value;
}

std::optional<bool> Members::boolean(std::string_view path) const {
    const auto* value = valueAt<bool>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::int64_t> Members::integer(std::string_view path) const {
    const auto* value = valueAt<std::int64_t>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<TextList> Members::takeStrings(std::string_view path) {
    const auto node = nodeAt(path);
    auto* value = node ? std::get_if<Array>(&nodes_[*node].value) : nullptr;
    return value == nullptr || !value->onlyTexts ? std::nullopt
                                                 : std::optional(std::move(value->texts));
}

bool Members::isObject(std::string_view path) const {
    return valueAt<Object>(path) != nullptr;
}

std::optional<Members> readObject(std::string_view text,
                                  std::initializer_list<std::string_view> paths) {
    Members members;
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
