#include "emulator/check/client.h"

#include "control_plane/poll_request.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::emulator {
namespace {

using Headers = std::map<std::string, std::string>;

/// Adds a line of a header to those of the same response; an earlier response was an interim one.
void addLine(std::string_view line, Headers& headers) {
    constexpr std::string_view space = " \t\r\n";
    if (line.starts_with("HTTP/")) {
        headers.clear();
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return;
    }
    std::string name(line.substr(0, colon));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(space), value.size()));
    value = value.substr(0, value.find_last_not_of(space) + 1);
    std::string& all = headers[name];
    all += (all.empty() ? "" : ", ") + std::string(value);
}

}  // namespace

Outcome Client::ask(const HttpRequest& request, std::chrono::milliseconds patience) {
    if (!session_) {
        session_.emplace(pollLimits);
    }
    Outcome outcome;
    HttpRequest watched = request;
    watched.onHeaderLine = [&outcome](std::string_view line) noexcept {
        addLine(line, outcome.headers);
    };
    const auto start = std::chrono::steady_clock::now();
    auto result = session_->performWithin(std::move(watched), patience);
    outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    if (!result) {
        session_.reset();  // from here on nothing writes to `outcome` any more
        outcome.isOutstanding = true;
        return outcome;
    }
    outcome.error = result->error();
    if (auto response = result->takeResponse()) {
        outcome.status = response->status;
        outcome.body = std::move(response->body);
    }
    return outcome;
}

}  // namespace orvane::emulator
