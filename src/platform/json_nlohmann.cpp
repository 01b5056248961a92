#include "platform/json.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace orvane::json {

/// Follows the parser's events down the wanted paths.
class Picker {
  public:
    using Text = nlohmann::json::string_t;

    explicit Picker(Members& members) : members_(members) {}

    bool null() { return keep(Members::Other{}); }
    bool boolean(bool value) { return keep(value); }
    bool number_integer(std::int64_t /*value*/) { return keep(Members::Other{}); }
    bool number_unsigned(std::uint64_t /*value*/) { return keep(Members::Other{}); }
    bool number_float(double /*value*/, const Text& /*text*/) { return keep(Members::Other{}); }
    bool binary(nlohmann::json::binary_t& /*value*/) { return false; }

    bool string(Text& value) {
        if (auto* array = currentArray()) {
            array->texts.push_back(std::move(value));
            return true;
        }
        return keep(std::move(value));
    }

    bool start_object(std::size_t /*elements*/) { return open(Members::Object{}); }
    bool start_array(std::size_t /*elements*/) {
        // A top level that is not an object is not usable; no need to read on.
        return !containers_.empty() && open(Members::Array{});
    }
    bool end_object() { return close(); }
    bool end_array() { return close(); }

    bool key(const Text& name) {
        awaiting_ = containers_.back() ? members_.childOf(*containers_.back(), name) : std::nullopt;
        if (awaiting_ && !isUnset(*awaiting_)) {
            awaiting_.reset();  // a repeated key: the first one counts
        }
        return true;
    }

    static bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                            const nlohmann::json::exception& /*error*/) {
        return false;
    }

  private:
    [[nodiscard]] bool isUnset(std::size_t node) const {
        return std::holds_alternative<std::monostate>(members_.nodes_[node].value);
    }

    /// The wanted array that the parser is in, if any.
    Members::Array* currentArray() {
        if (containers_.empty() || !containers_.back()) {
            return nullptr;
        }
        return std::get_if<Members::Array>(&members_.nodes_[*containers_.back()].value);
    }

    bool keep(Members::Value value) {
        if (containers_.empty()) {
            return false;  // a scalar at the top level
        }
        if (auto* array = currentArray()) {
            array->onlyTexts = false;
        } else if (awaiting_) {
            members_.nodes_[*std::exchange(awaiting_, std::nullopt)].value = std::move(value);
        }
        return true;
    }

    bool open(Members::Value value) {
        if (containers_.size() == depthLimit) {
            return false;
        }
        if (containers_.empty()) {
            awaiting_ = 0;
        }
        if (auto* array = currentArray()) {
            array->onlyTexts = false;
        } else if (awaiting_) {
            members_.nodes_[*awaiting_].value = std::move(value);
        }
        containers_.push_back(std::exchange(awaiting_, std::nullopt));
        return true;
    }

    bool close() {
        containers_.pop_back();
        return true;
    }

    Members& members_;
    std::vector<std::optional<std::size_t>> containers_;  ///< open ones, with their node if wanted
    std::optional<std::size_t> awaiting_;  ///< the node that the next value belongs to
};

std::optional<std::size_t> Members::childOf(std::size_t parent, std::string_view key) const {
    for (std::size_t i = 1; i < nodes_.size(); ++i) {
        if (nodes_[i].parent == parent && nodes_[i].key == key) {
            return i;
        }
    }
    return std::nullopt;
}

void Members::want(std::string_view path) {
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
}

const Members::Value& Members::at(std::string_view path) const {
    static const Value absent;
    std::size_t node = 0;
    while (!path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        const auto child = childOf(node, key);
        if (!child) {
            return absent;
        }
        node = *child;
    }
    return nodes_[node].value;
}

std::optional<std::string> Members::string(std::string_view path) const {
    const auto* value = std::get_if<std::string>(&at(path));
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> Members::nonEmptyString(std::string_view path) const {
    auto value = string(path);
    return value && value->empty() ? std::nullopt : value;
}

std::optional<bool> Members::boolean(std::string_view path) const {
    const auto* value = std::get_if<bool>(&at(path));
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::vector<std::string>> Members::strings(std::string_view path) const {
    const auto* value = std::get_if<Array>(&at(path));
    return value == nullptr || !value->onlyTexts ? std::nullopt : std::optional(value->texts);
}

bool Members::isObject(std::string_view path) const {
    return std::holds_alternative<Object>(at(path));
}

std::optional<Members> readObject(std::string_view text,
                                  std::initializer_list<std::string_view> paths) {
    // The parser takes a NUL byte for the end of its input and would not look behind it.
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    Members members;
    for (const std::string_view path : paths) {
        members.want(path);
    }
    Picker picker(members);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &picker)) {
        return std::nullopt;
    }
    return members;
}

std::string writeObject(std::span<const Member> members) {
    nlohmann::json object = nlohmann::json::object();
    for (const Member& member : members) {
        std::visit([&](const auto& value) { object[std::string(member.key)] = value; },
                   member.value);
    }
    const std::string plain = object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(plain.size() + plain.size() / 8);
    for (const char c : plain) {
        if (c == '/') {  // stands in texts only
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

}  // namespace orvane::json
