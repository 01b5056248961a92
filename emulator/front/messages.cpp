#include "emulator/front/messages.h"

#include "emulator/front/front.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace orvane::front {
namespace {

/// Those that say something of one connection only.
bool isOfTheConnection(std::string_view name) {
    constexpr std::array<std::string_view, 7> names{
        "connection", "keep-alive", "proxy-connection", "te", "transfer-encoding",
        "upgrade",    "expect"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

/// All of `text` as a number.
template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Removes the first line from `text`, and returns it without its end.
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 2, text.size()));
    return line;
}

}  // namespace

std::string RequestHead::value(std::string_view name) const {
    const auto found = std::find_if(headers.begin(), headers.end(),
                                    [&](const auto& header) { return header.first == name; });
    return found == headers.end() ? "" : found->second;
}

std::string textOf(const RequestHead& request) {
    const std::string authority = request.value(":authority");
    std::string text = request.value(":method") + ' ' + request.value(":path") + " HTTP/1.0\r\n";
    text += "Host: " + (authority.empty() ? request.value("host") : authority) + "\r\n";
    text += "Via: " + std::string(via) + "\r\n";
    for (const auto& [name, value] : request.headers) {
        if (!name.starts_with(':') && name != "host" && !isOfTheConnection(name)) {
            text.append(name).append(": ").append(value).append("\r\n");
        }
    }
    return text + "\r\n";
}

std::optional<AnswerHead> readAnswerHead(std::string_view text) {
    constexpr std::size_t statusAt = 9;
    constexpr std::size_t statusDigits = 3;
    const std::string_view first = takeLine(text);
    if (!first.starts_with("HTTP/1.") || first.size() < statusAt + statusDigits) {
        return std::nullopt;
    }
    const auto status = numberIn<int>(first.substr(statusAt, statusDigits));
    if (!status || *status < 100) {
        return std::nullopt;
    }
    AnswerHead head{.status = *status, .headers = {}};
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            return std::nullopt;
        }
        std::string name = lowerCase(line.substr(0, colon));
        const std::size_t start = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
        const std::string_view value = line.substr(start);
        if (name == "content-length") {
            head.length = numberIn<std::uint64_t>(value);
        }
        if (!isOfTheConnection(name)) {
            head.headers.emplace_back(std::move(name), value);
        }
    }
    return head;
}

}  // namespace orvane::front
