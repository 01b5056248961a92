// A line of the activity log: four numbers of eight bytes each (status, milliseconds, bytes, the
// time in nanoseconds), then method, URL, summary and error, a NUL between them. The log grows by
// just one line, byte for byte the one that is written down here a second time; read by another
// JSON library it gives back every string, except for bytes that are not UTF-8.
#include "activity/activity_log.h"
#include "fuzz.h"
#include "json_model.h"
#include "platform/machine/paths.h"
#include "platform/process/environment.h"
#include "support/test_files.h"
#include "support/virtual_clock.h"
#include "utf8_model.h"

#include <chrono>
#include <cstdio>

namespace orvane::fuzz {

namespace {

using namespace std::chrono;

struct Exchange {
    std::int64_t status = 0;
    std::int64_t ms = 0;
    std::int64_t bytes = 0;
    nanoseconds time{0};
    std::string method;
    std::string url;
    std::string summary;
    std::optional<std::string> error;
};

std::int64_t takeNumber(std::string_view& input) {
    std::int64_t number = 0;
    input.remove_prefix(input.copy(reinterpret_cast<char*>(&number), sizeof number));
    return number;
}

Exchange exchangeIn(std::string_view input) {
    Exchange exchange;
    exchange.status = takeNumber(input);
    exchange.ms = takeNumber(input);
    exchange.bytes = takeNumber(input);
    exchange.time = nanoseconds(takeNumber(input) / 2);  // years 1823 to 2116
    auto texts = partsOf(input, 4);
    if (texts.size() == 4) {
        exchange.error = texts[3];
    }
    texts.resize(3);
    exchange.method = texts[0];
    exchange.url = texts[1];
    exchange.summary = texts[2];
    return exchange;
}

std::string timestamp(nanoseconds time) {
    const auto ms = floor<milliseconds>(time + microseconds(500));
    const sys_days day(floor<days>(ms));
    const year_month_day date(day);
    const hh_mm_ss clock(ms - day.time_since_epoch());
    char text[40];
    (void)std::snprintf(
        text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", int{date.year()},
        unsigned{date.month()}, unsigned{date.day()}, static_cast<int>(clock.hours().count()),
        static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
        static_cast<int>(clock.subseconds().count()));
    return text;
}

std::string jsonText(std::string_view text) {
    std::string json = "\"";
    for (const char c : text) {
        const auto special = std::string_view("\"\\/\b\t\n\f\r").find(c);
        if (special != std::string_view::npos) {
            json += '\\';
            json += "\"\\/btnfr"[special];
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            (void)std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            json += escape;
        } else {
            json += c;
        }
    }
    return json + '"';
}

std::string lineFor(const Exchange& exchange) {
    const auto text = [](const char* key, const std::string& value) {
        return jsonText(key) + ":" + jsonText(value) + ",";
    };
    const auto number = [](const char* key, std::int64_t value) {
        return jsonText(key) + ":" + std::to_string(value) + ",";
    };
    const std::string error = exchange.error.value_or("");
    return "{" + number("bytes", exchange.bytes) + text("daemon", "policy-daemon") +
           (error.empty() ? "" : text("error", error)) + text("method", exchange.method) +
           number("ms", exchange.ms) + number("pid", processId()) +
           number("status", exchange.status) +
           (exchange.summary.empty() ? "" : text("summary", exchange.summary)) +
           text("ts", timestamp(exchange.time)) + R"("url":)" + jsonText(exchange.url) + "}";
}

/// Whether `read` is `written`, of which malformed sequences may have been replaced.
bool isReadOf(const std::optional<std::string>& read, const std::string& written) {
    return read && (decoded(written) ? read == written : read->find("\uFFFD") != std::string::npos);
}

bool isUtf8(const Exchange& exchange) {
    return decoded(exchange.method) && decoded(exchange.url) && decoded(exchange.summary) &&
           decoded(exchange.error.value_or(""));
}

void checkLine(const std::string& line, const Exchange& exchange) {
    check(!isUtf8(exchange) || line == lineFor(exchange));
    const JsonModel model(line);
    const std::string error = exchange.error.value_or("");
    check(model.isUsable() && model.knowsMembers());
    check(model.keys().size() ==
          8U + (exchange.summary.empty() ? 0U : 1U) + (error.empty() ? 0U : 1U));
    check(isReadOf(model.string("method"), exchange.method));
    check(isReadOf(model.string("url"), exchange.url));
    check(exchange.summary.empty() || isReadOf(model.string("summary"), exchange.summary));
    check(error.empty() || isReadOf(model.string("error"), error));
    check(model.string("daemon") == "policy-daemon");
}

}  // namespace

void tryInput(std::string_view input) {
    static const std::filesystem::path file =
        rootDirectory() / "home/.orvane/logs/policy-daemon.activity.jsonl";
    static std::string content;  // of the file, which is not there at first
    const Exchange exchange = exchangeIn(input);
    virtual_clock::setWallClock(exchange.time);
    ActivityLog::record({.method = exchange.method,
                         .url = exchange.url,
                         .status = exchange.status,
                         .ms = exchange.ms,
                         .bytes = exchange.bytes,
                         .summary = exchange.summary,
                         .error = exchange.error ? std::string_view(*exchange.error) : ""});

    const std::string after = test::readFile(file);
    check(after.starts_with(content) && after.ends_with('\n'));
    const std::string line = after.substr(content.size(), after.size() - content.size() - 1);
    check(line.find('\n') == std::string::npos);
    checkLine(line, exchange);
    content = after;
    if (content.size() > 8192) {
        std::filesystem::remove(file);
        content.clear();
    }
}

}  // namespace orvane::fuzz
