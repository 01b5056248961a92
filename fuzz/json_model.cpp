#include "json_model.h"

#include <jansson.h>

#include <algorithm>
#include <regex>

namespace orvane::fuzz {

namespace {

/// The deepest nesting that the daemon takes.
constexpr std::size_t depthLimit = 512;

/// The well-formed `text` without the contents of its strings.
std::string outsideStrings(std::string_view text) {
    std::string rest;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (inString && text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            inString = !inString;
        } else if (!inString) {
            rest += text[i];
        }
    }
    return rest;
}

/// How deep the brackets nest, of a text without strings.
std::size_t depthOf(std::string_view text) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    for (const char c : text) {
        if (c == '{' || c == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return deepest;
}

/// Whether some exponent has more than nine digits, in a text without strings.
bool holdsHugeExponent(std::string_view text) {
    static const std::regex pattern("[0-9][eE][+-]?0*[1-9][0-9]{9}");
    return std::regex_search(text.begin(), text.end(), pattern);
}

std::shared_ptr<json_t> parsed(std::string_view text, std::size_t flags, json_error_t& error) {
    // Without the daemon's own range of integers, and with U+0000 in strings.
    flags |= JSON_DECODE_INT_AS_REAL | JSON_ALLOW_NUL;
    return {json_loadb(text.data(), text.size(), flags, &error),
            [](json_t* top) { json_decref(top); }};
}

std::string textOf(const json_t* value) {
    return {json_string_value(value), json_string_length(value)};
}

}  // namespace

JsonModel::JsonModel(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return;  // there is no place for one in JSON, but after a number this library skips it
    }
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    json_error_t error{};
    top_ = parsed(text, JSON_REJECT_DUPLICATES, error);
    if (top_ == nullptr && json_error_code(&error) == json_error_duplicate_key) {
        hasRepeatedKeys_ = true;
        top_ = parsed(text, 0, error);
    }
    if (top_ == nullptr && json_error_code(&error) == json_error_null_byte_in_key) {
        verdict_ = Verdict::unknown;
    } else if (json_is_object(top_.get()) && depthOf(outsideStrings(text)) <= depthLimit &&
               !holdsHugeExponent(outsideStrings(text))) {
        verdict_ = Verdict::usable;
    } else {
        top_ = nullptr;
    }
}

json_t* JsonModel::at(std::string_view path) const {
    json_t* value = top_.get();
    while (!path.empty()) {
        const std::string key(path.substr(0, path.find('/')));
        path.remove_prefix(std::min(path.size(), key.size() + 1));
        value = json_object_get(value, key.c_str());
    }
    return value;
}

std::optional<std::string> JsonModel::string(std::string_view path) const {
    const json_t* value = at(path);
    return json_is_string(value) ? std::optional(textOf(value)) : std::nullopt;
}

std::optional<std::string> JsonModel::nonEmptyString(std::string_view path) const {
    const auto text = string(path);
    return text != "" ? text : std::nullopt;
}

std::optional<bool> JsonModel::boolean(std::string_view path) const {
    const json_t* value = at(path);
    return json_is_boolean(value) ? std::optional(json_is_true(value)) : std::nullopt;
}

std::optional<StringList> JsonModel::strings(std::string_view path) const {
    const json_t* array = at(path);
    if (!json_is_array(array)) {
        return std::nullopt;
    }
    StringList texts;
    for (std::size_t i = 0; i < json_array_size(array); ++i) {
        const json_t* element = json_array_get(array, i);
        if (!json_is_string(element)) {
            return std::nullopt;
        }
        texts.add(textOf(element));
    }
    return texts;
}

bool JsonModel::isObject(std::string_view path) const {
    return json_is_object(at(path));
}

std::vector<std::string> JsonModel::keys() const {
    std::vector<std::string> names;
    for (void* place = json_object_iter(top_.get()); place != nullptr;
         place = json_object_iter_next(top_.get(), place)) {
        names.emplace_back(json_object_iter_key(place));
    }
    return names;
}

}  // namespace orvane::fuzz
