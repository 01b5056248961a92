#include "emulator/check/general_judgement.h"

#include "platform/json/json_reader.h"
#include "platform/text/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

namespace orvane::emulator {
namespace {

/// The length of a duration in seconds, with one digit behind the point.
std::string secondsOf(std::chrono::milliseconds duration) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::chrono::duration<double>(duration).count()
         << " s";
    return text.str();
}

/// What to do about an exchange that failed, by a part of what the daemon calls the failure.
std::string adviceFor(const std::string& error) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 7> known{{
        {"hostname", "Check the address"},
        {"connect to the server", "Check the address, and that something listens there"},
        {"certificate for this server",
         "Devices have to trust the certificate's authority; --ca FILE trusts one for this check"},
        {"SSL error", "Serve TLS 1.2 or later there, or check the scheme of the address"},
        {"client certificate", "Do not demand one: the key tells devices apart"},
        {"larger than", "Keep policies below 100 MiB"},
        {"status line", "Look for what answers in the place of an HTTP server"},
    }};
    const auto* const found = std::find_if(known.begin(), known.end(), [&](const auto& each) {
        return error.find(each.first) != std::string::npos;
    });
    return std::string(found == known.end() ? "Look at what the server and its front end log of it"
                                            : found->second);
}

/// What the daemon does about a status that is not 200, and what to do about it.
std::pair<std::string, std::string> meaningOf(const Trial& trial, std::int64_t status) {
    const std::string usual(trial.afterFailure);
    switch (status) {
        case 401:
        case 403:
            return {usual, "Check the credentials; --help says how to pass them"};
        case 404:
            return {usual, "Serve this address, with the slash at its end, on the host of the URL"};
        case 304:
            return {"A daemon has nothing that this could be about",
                    "Answer 304 only to a request with If-None-Match"};
        case 407:
            return {usual,
                    "Let what is in between pass requests on without credentials of its own"};
        case 502:
        case 503:
        case 504:
            return {usual, "Try again when the server is up; a front end may be alone there"};
        default:
            return {usual, "Answer 200 with a JSON object"};
    }
}

constexpr bool isRedirect(std::int64_t status) {
    return status >= 300 && status < 400 && status != 304;
}

Finding redirectFinding(const Trial& trial, const Outcome& outcome) {
    const auto location = outcome.headers.find("location");
    return {std::string(trial.request),
            cameOf(outcome) +
                (location == outcome.headers.end() ? "" : ", to " + excerptOf(location->second)),
            "A daemon follows no redirect, since its key must not reach another server. " +
                std::string(trial.afterFailure),
            "Serve from the address that devices are given, with the slash at its end"};
}

/// Where `body`, which is not valid JSON, stops being it.
std::string jsonMistake(const std::string& body) {
    const auto drop = [](int, nlohmann::json::parse_event_t, const nlohmann::json&) {
        return false;
    };
    try {
        std::ignore = nlohmann::json::parse(body, drop);
    } catch (const nlohmann::json::parse_error& error) {
        if (error.byte > body.size()) {
            return "JSON that ends too early, after " + std::to_string(body.size()) + " bytes";
        }
        const std::size_t at = std::max<std::size_t>(error.byte, 1);
        return "no valid JSON from byte " + std::to_string(at) +
               " on: " + excerptOf(std::string_view(body).substr(at - 1));
    } catch (const nlohmann::json::out_of_range&) {
        return "JSON with a number that no double holds";
    }
    return "JSON that is nested too deep";
}

/// What is wrong with a body that the daemon cannot use.
std::string bodyMistake(const std::string& body) {
    if (body.empty()) {
        return "no body";
    }
    if (!text::isUtf8(body)) {
        return "a body that is not UTF-8";
    }
    const std::string_view content = text::withoutByteOrderMark(body);
    const std::size_t start = content.find_first_not_of(" \t\r\n");
    const char first = start == std::string_view::npos ? ' ' : content[start];
    if (first == '<') {
        return "a page instead of JSON: " + excerptOf(content.substr(start));
    }
    if (first != '{' && nlohmann::json::accept(content)) {
        return "JSON that is not an object: " + excerptOf(content);
    }
    return jsonMistake(body);
}

}  // namespace

std::string cameOf(const Outcome& outcome) {
    const std::string after = " after " + secondsOf(outcome.took);
    if (outcome.isOutstanding) {
        return "no answer within " + secondsOf(outcome.took);
    }
    if (outcome.error) {
        const std::string header =
            outcome.status == 0 ? "" : "status " + std::to_string(outcome.status) + ", then ";
        std::string error = *outcome.error;
        if (error.ends_with('.')) {
            error.pop_back();
        }
        return header + excerptOf(error) + after;
    }
    return "status " + std::to_string(outcome.status) + after;
}

std::optional<Finding> failureOf(const Trial& trial, const Outcome& outcome) {
    const std::string request(trial.request);
    if (outcome.isOutstanding) {
        return Finding{request, cameOf(outcome), "A daemon goes on waiting",
                       "Answer at once; --wait SECONDS has this check wait longer"};
    }
    if (outcome.error || !outcome.body) {
        return Finding{request, cameOf(outcome), std::string(trial.afterFailure),
                       adviceFor(outcome.error.value_or(""))};
    }
    if (isRedirect(outcome.status)) {
        return redirectFinding(trial, outcome);
    }
    if (outcome.status != 200) {
        auto [daemon, advice] = meaningOf(trial, outcome.status);
        return Finding{request, cameOf(outcome), std::move(daemon), std::move(advice)};
    }
    return std::nullopt;
}

std::optional<Finding> bodyFailureOf(const Trial& trial, const Outcome& outcome) {
    const std::string& body = outcome.body.value();
    if (json::readObject(body, {})) {
        return std::nullopt;
    }
    // After a poll with status 200 there is no delay.
    const bool isPoll = trial.afterFailure == trials::pollsLater;
    return Finding{std::string(trial.request), "status 200 with " + bodyMistake(body),
                   isPoll ? "A daemon stores nothing and polls again at once, at full speed"
                          : std::string(trial.afterFailure),
                   "Send a JSON object in UTF-8 (RFC 8259) and nothing after it"};
}

Findings judgeCaching(const Trial& trial, const Outcome& outcome) {
    const auto found = outcome.headers.find("cache-control");
    std::string value = found == outcome.headers.end() ? "" : found->second;
    std::transform(value.begin(), value.end(), value.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (value.find("no-store") != std::string::npos) {
        return {};
    }
    return {{std::string(trial.request),
             found == outcome.headers.end() ? "an answer without Cache-Control"
                                            : "Cache-Control " + excerptOf(found->second),
             "A daemon has no cache, but one in between could hand this answer to other devices",
             "Send Cache-Control: no-store"}};
}

}  // namespace orvane::emulator
