#include "platform/json/json_reader.h"

#include <algorithm>
#include <utility>

namespace orvane::json {

std::optional<std::size_t> PickedMembers::childOf(std::size_t parent, std::string_view key) const {
    for (std::size_t i = 1; i < nodes_.size(); ++i) {
        if (nodes_[i].parent == parent && nodes_[i].key == key) {
            return i;
        }
    }
    return std::nullopt;
}

std::size_t PickedMembers::want(std::string_view path) {
    std::size_t node = 0;
    while (!path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        if (const auto child = childOf(node, key)) {
            node = *child;
        } else {
            nodes_.push_back({.key = std::string(key), .parent = node, .value = {}});
            node = nodes_.size() - 1;
        }
    }
    return node;
}

std::optional<std::size_t> PickedMembers::nodeAt(std::string_view path) const {
    std::optional<std::size_t> node = 0;
    while (node && !path.empty()) {
        const std::string_view key = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        node = childOf(*node, key);
    }
    return node;
}

template <typename Type>
const Type* PickedMembers::valueAt(std::string_view path) const {
    const auto node = nodeAt(path);
    return node ? std::get_if<Type>(&nodes_[*node].value) : nullptr;
}

std::optional<std::string> PickedMembers::string(std::string_view path) const {
    const auto* value = valueAt<std::string>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> PickedMembers::nonEmptyString(std::string_view path) const {
    auto value = string(path);
    return value && value->empty() ? std::nullopt : value;
}

std::optional<bool> PickedMembers::boolean(std::string_view path) const {
    const auto* value = valueAt<bool>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::int64_t> PickedMembers::integer(std::string_view path) const {
    const auto* value = valueAt<std::int64_t>(path);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<StringList> PickedMembers::takeStrings(std::string_view path) {
    const auto node = nodeAt(path);
    auto* value = node ? std::get_if<Array>(&nodes_[*node].value) : nullptr;
    return value == nullptr || !value->onlyStrings ? std::nullopt
                                                   : std::optional(std::move(value->strings));
}

bool PickedMembers::isObject(std::string_view path) const {
    return valueAt<Object>(path) != nullptr;
}

}  // namespace orvane::json
