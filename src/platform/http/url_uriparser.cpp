#include "platform/http/url.h"

#include "platform/text/text.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>

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
/// which form decoders read as a space.
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

bool leadsHere(in_addr address) {
    constexpr std::uint32_t loopbackNet = 127;
    const std::uint32_t number = ntohl(address.s_addr);
    return number == INADDR_ANY || number >> 24U == loopbackNet;
}

bool leadsHere(const in6_addr& address) {
    // ::ffff:0:0/96, before an IPv4 address; RFC 4291, 2.5.5.2.
    constexpr std::array<std::uint8_t, 12> mappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    in_addr mapped{};
    std::memcpy(&mapped, &address.s6_addr[mappedPrefix.size()], sizeof mapped);
    return std::memcmp(&address, &in6addr_loopback, sizeof address) == 0 ||
           std::memcmp(&address, &in6addr_any, sizeof address) == 0 ||
           (std::memcmp(&address, mappedPrefix.data(), mappedPrefix.size()) == 0 &&
            leadsHere(mapped));
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

bool isLoopbackHost(std::string_view host) {
    std::string name = lowerCase(host);
    if (name.ends_with('.')) {
        name.pop_back();
    }
    if (name == "ip6-localhost" || name == "ip6-loopback") {  // Debian's hosts(5), for ::1
        return true;
    }
    in_addr ipv4{};
    in6_addr ipv6{};
    return name == "localhost" || name.ends_with(".localhost") ||
           (inet_aton(name.c_str(), &ipv4) != 0 && leadsHere(ipv4)) ||
           (inet_pton(AF_INET6, name.c_str(), &ipv6) == 1 && leadsHere(ipv6));
}

}  // namespace orvane
