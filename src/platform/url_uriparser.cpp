#include "platform/text.h"
#include "platform/url.h"

#include <arpa/inet.h>
#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace orvane {

namespace {

/// uriparser's result, freed when it goes.
class ParsedUri {
  public:
    explicit ParsedUri(std::string_view text)
        : valid_(uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), nullptr) ==
                 URI_SUCCESS) {}
    ParsedUri(const ParsedUri&) = delete;
    ParsedUri& operator=(const ParsedUri&) = delete;
    ~ParsedUri() {
        if (valid_) {
            uriFreeUriMembersA(&uri_);
        }
    }

    [[nodiscard]] bool isValid() const { return valid_; }
    [[nodiscard]] const UriUriA& uri() const { return uri_; }

  private:
    UriUriA uri_{};
    bool valid_;
};

std::optional<std::string> textOf(const UriTextRangeA& range) {
    if (range.first == nullptr) {
        return std::nullopt;
    }
    return std::string(range.first, range.afterLast);
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

/// RFC 3986's query characters without those that separate items ("&" "=" ";") and without "+",
/// which form decoders read as a blank.
bool staysInQuery(char c) {
    constexpr std::string_view alsoKept = "-._~!$'()*,/:?@";
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           alsoKept.find(c) != std::string_view::npos;
}

void appendEncoded(std::string& query, std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : text) {
        if (staysInQuery(c)) {
            query += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            query += '%';
            query += digits[byte >> 4U];
            query += digits[byte & 0xFU];
        }
    }
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    const std::string terminated(text);  // never a null pointer, which the parser would refuse
    const ParsedUri parsed(terminated);
    if (!parsed.isValid()) {
        return std::nullopt;
    }
    Url url;
    url.scheme_ = lowerCase(textOf(parsed.uri().scheme).value_or(""));
    url.host_ = textOf(parsed.uri().hostText).value_or("");
    url.beforeQuery_ = terminated.substr(0, terminated.find_first_of("?#"));
    url.query_ = textOf(parsed.uri().query);
    url.fragment_ = textOf(parsed.uri().fragment);
    return url;
}

Url Url::appendingPath(std::string_view component) const {
    Url longer = *this;
    if (!longer.beforeQuery_.ends_with('/')) {
        longer.beforeQuery_ += '/';
    }
    longer.beforeQuery_ += component;
    return longer;
}

Url Url::withQuery(std::span<const QueryItem> items) const {
    if (items.empty()) {
        return *this;
    }
    Url other = *this;
    std::string& query = other.query_.emplace();
    for (const QueryItem& item : items) {
        query += query.empty() ? "" : "&";
        appendEncoded(query, item.name);
        query += '=';
        appendEncoded(query, item.value);
    }
    return other;
}

std::string Url::text() const {
    return beforeQuery_ + (query_ ? "?" + *query_ : "") + (fragment_ ? "#" + *fragment_ : "");
}

bool Url::isFetchable() const {
    return (scheme_ == "http" || scheme_ == "https") && !host_.empty();
}

std::string joinedToApiBase(std::string_view apiUrl, std::string_view absolutePath) {
    return std::string(text::trimmed(apiUrl, '/')).append(absolutePath);
}

bool isLoopbackHost(std::string_view host) {
    const std::string name = lowerCase(host);
    std::array<unsigned char, 4> address{};
    return name == "localhost" || name.ends_with(".localhost") || name == "::1" ||
           (inet_pton(AF_INET, name.c_str(), address.data()) == 1 && address[0] == 127);
}

}  // namespace orvane
