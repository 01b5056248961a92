// The control plane's address and what is asked of it: an address, an agent and a hardware UUID, a
// NUL between them. An address is taken just when RFC 3986's grammar, written down here a second
// time, takes it; it keeps its text; a query says, decoded, what was put into it, and nothing else.
#include "control_plane/effective_config.h"
#include "control_plane/poll_request.h"
#include "fuzz.h"
#include "platform/http/url.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace orvane::fuzz {

namespace {

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view markSigns = "-._~";
constexpr std::string_view subDelimiters = "!$&'()*+,;=";

bool isOneOf(char c, std::initializer_list<std::string_view> sets) {
    return std::any_of(sets.begin(), sets.end(),
                       [c](std::string_view set) { return set.find(c) != std::string_view::npos; });
}

/// Whether `text` is made of unreserved characters, sub-delimiters, escapes and `others`.
bool consistsOf(std::string_view text, std::string_view others) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            if (i + 2 >= text.size() || !isOneOf(text[i + 1], {hexDigits}) ||
                !isOneOf(text[i + 2], {hexDigits})) {
                return false;
            }
            i += 2;
        } else if (!isOneOf(text[i], {letters, digits, markSigns, subDelimiters, others})) {
            return false;
        }
    }
    return true;
}

bool isMadeOf(std::string_view text, std::string_view set) {
    return text.find_first_not_of(set) == std::string_view::npos;
}

/// RFC 3986, 3.2.2: what may be in brackets.
bool isIpLiteral(const std::string& text) {
    if (text.starts_with('v') || text.starts_with('V')) {
        const auto dot = text.find('.');
        return dot != std::string::npos && dot > 1 && dot + 1 < text.size() &&
               isMadeOf(text.substr(1, dot - 1), hexDigits) &&
               text.find('%') == std::string::npos && consistsOf(text.substr(dot + 1), ":");
    }
    std::array<unsigned char, 16> address{};
    return isMadeOf(text, "0123456789ABCDEFabcdef:.") &&
           ::inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

/// An address taken apart as appendix B of RFC 3986 does it.
struct Parts {
    std::string scheme;
    std::string host;
    std::string beforeQuery;
    std::string fragment;  ///< with its "#"
};

/// The host of `authority`; absent when that is not one.
std::optional<std::string> hostIn(std::string_view authority) {
    if (const auto at = authority.find('@'); at != std::string_view::npos) {
        if (!consistsOf(authority.substr(0, at), ":")) {
            return std::nullopt;
        }
        authority.remove_prefix(at + 1);
    }
    const auto bracket = authority.starts_with('[') ? authority.find(']') : std::string_view::npos;
    const bool isLiteral = bracket != std::string_view::npos;
    const auto end = std::min(isLiteral ? bracket + 1 : authority.find(':'), authority.size());
    const std::string host(authority.substr(0, end));
    const std::string_view port = authority.substr(end);
    if (!port.empty() && (port.front() != ':' || !isMadeOf(port.substr(1), digits))) {
        return std::nullopt;
    }
    if (isLiteral) {
        const std::string inner = host.substr(1, host.size() - 2);
        return isIpLiteral(inner) ? std::optional(inner) : std::nullopt;
    }
    return consistsOf(host, "") ? std::optional(host) : std::nullopt;
}

std::optional<Parts> partsOfUrl(const std::string& text) {
    Parts parts;
    const auto hash = std::min(text.find('#'), text.size());
    parts.fragment = text.substr(hash);
    const auto mark = std::min(text.find('?'), hash);
    parts.beforeQuery = text.substr(0, mark);
    std::string_view path = parts.beforeQuery;
    const auto colon = path.find_first_of(":/");
    if (colon != std::string_view::npos && path[colon] == ':') {
        parts.scheme = path.substr(0, colon);
        if (parts.scheme.empty() || !isOneOf(parts.scheme.front(), {letters}) ||
            !std::all_of(parts.scheme.begin(), parts.scheme.end(), [](char c) {
                return isOneOf(c, {letters, digits, "+-."});
            })) {
            return std::nullopt;
        }
        path.remove_prefix(colon + 1);
    }
    if (path.starts_with("//")) {
        path.remove_prefix(2);
        const auto host = hostIn(path.substr(0, path.find('/')));
        if (!host) {
            return std::nullopt;
        }
        parts.host = *host;
        path.remove_prefix(std::min(path.find('/'), path.size()));
    }
    const bool holds = consistsOf(path, ":@/") &&
                       consistsOf(std::string_view(text).substr(mark, hash - mark), ":@/?") &&
                       (parts.fragment.empty() || consistsOf(parts.fragment.substr(1), ":@/?"));
    return holds ? std::optional(parts) : std::nullopt;
}

bool isHttp(std::string scheme) {
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](char c) {
        const auto capital = std::string_view("HTPS").find(c);
        return capital == std::string_view::npos ? c : "htps"[capital];
    });
    return scheme == "http" || scheme == "https";
}

void checkParsing(const std::string& text) {
    const auto url = Url::parse(text);
    const auto parts = partsOfUrl(text);
    check(url.has_value() == parts.has_value());
    if (url) {
        check(url->text() == text);
        check(url->host() == parts->host);
        check(url->isFetchable() == (isHttp(parts->scheme) && !parts->host.empty()));
    }
}

/// `text` with its escapes undone; they have to be written in capitals.
std::string withoutEscapes(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            check(isOneOf(text[i], {letters, digits, "-._~!$'()*,/:?@"}));
            plain += text[i];
            continue;
        }
        check(i + 2 < text.size() && isMadeOf(text.substr(i + 1, 2), "0123456789ABCDEF"));
        plain += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
    }
    return plain;
}

std::vector<std::pair<std::string, std::string>> itemsOf(std::string_view query) {
    std::vector<std::pair<std::string, std::string>> items;
    while (!query.empty()) {
        const std::string_view item = query.substr(0, query.find('&'));
        const auto equals = item.find('=');
        check(equals != std::string_view::npos);
        items.emplace_back(withoutEscapes(item.substr(0, equals)),
                           withoutEscapes(item.substr(equals + 1)));
        query.remove_prefix(std::min(query.size(), item.size() + 1));
    }
    return items;
}

using Items = std::vector<std::pair<std::string, std::string>>;

/// Whether `asked` is `address` with `items` as its query; without any it stays as it is.
void checkAsked(const Url& asked, const std::string& address, const Items& items) {
    const auto parts = partsOfUrl(address);
    check(parts.has_value());
    const std::string text = asked.text();
    if (items.empty()) {
        check(text == address);
        return;
    }
    check(text.starts_with(parts->beforeQuery + "?") && text.ends_with(parts->fragment));
    std::string_view query = text;
    query.remove_prefix(parts->beforeQuery.size() + 1);
    query.remove_suffix(parts->fragment.size());
    check(itemsOf(query) == items);
    const auto again = Url::parse(text);
    check(again && again->text() == text && again->host() == asked.host() &&
          again->isFetchable() == asked.isFetchable());
}

std::string joined(std::string base, const std::string& path) {
    while (base.starts_with('/')) {
        base.erase(0, 1);
    }
    while (base.ends_with('/')) {
        base.pop_back();
    }
    return base + path;
}

void checkQuestions(const std::string& base, const std::string& agent, const std::string& uuid) {
    const std::string pollAddress = joined(base, "/api/orvane/v1/connect/guard-config/");
    const Profile profile{"managed", base, "key", agent, std::nullopt};
    const auto poll = pollRequest(profile, std::nullopt, 300);
    check(poll.has_value() == partsOfUrl(pollAddress).has_value());
    Items items;
    if (!agent.empty()) {
        items.emplace_back("agent_slug", agent);
    }
    if (poll) {
        Items all{{"wait", "300"}};
        all.insert(all.end(), items.begin(), items.end());
        checkAsked(poll->url, pollAddress, all);
    }
    const std::string effectiveAddress = joined(base, "/api/orvane/v1/guard/effective/");
    const auto effective = effectiveUrl(base);
    check(effective.has_value() == partsOfUrl(effectiveAddress).has_value());
    if (effective) {
        if (!uuid.empty()) {
            items.emplace_back("hardware_uuid", uuid);
        }
        checkAsked(effectiveRequest(*effective, profile, uuid).url, effectiveAddress, items);
    }
}

}  // namespace

void tryInput(std::string_view input) {
    checkParsing(std::string(input));
    auto parts = partsOf(input, 3);
    parts.resize(3);
    checkParsing(std::string(parts[0]));
    checkQuestions(std::string(parts[0]), std::string(parts[1]), std::string(parts[2]));
}

}  // namespace orvane::fuzz
