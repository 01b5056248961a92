#include "status/render.h"

#include "platform/process/environment.h"
#include "status/json_report.h"
#include "status/prometheus_report.h"

namespace orvane::status {

namespace {

/// Whether the terminal shows more than ASCII, by the first of these variables that is set.
bool showsUnicode() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string value = environmentValue(name);
        if (!value.empty()) {
            return value.find("UTF-8") != std::string::npos ||
                   value.find("utf8") != std::string::npos;
        }
    }
    return false;
}

}  // namespace

Style styleFor(const Arguments& arguments, std::size_t terminalWidth) {
    Style style;
    style.isPlain = arguments.isPlain;
    style.width = terminalWidth;
    if (terminalWidth > 0 && !arguments.isPlain) {
        const bool isUnwanted = !environmentValue("NO_COLOR").empty();
        const bool isImpossible = environmentValue("TERM") == "dumb";
        style.isColored = !isUnwanted && !isImpossible;
        style.hasPicture = showsUnicode();
    }
    return style;
}

std::string render(const Facts& facts, const Verdict& verdict, const Arguments& arguments,
                   const Style& style) {
    switch (arguments.format) {
        case Format::json:
            return jsonReport(facts, verdict);
        case Format::prometheus:
            return prometheusSamples(facts, verdict);
        case Format::text:
            break;
    }
    return arguments.isForAll ? listEntry(facts, verdict, style)
                              : textReport(facts, verdict, style);
}

std::string output(const std::string& part, const Arguments& arguments) {
    return arguments.format == Format::prometheus ? prometheusExposition(part) : part;
}

std::string outputForAll(const std::vector<AccountReport>& reports, const Arguments& arguments,
                         const Style& style) {
    std::string parts;
    for (const AccountReport& report : reports) {
        Facts facts;
        facts.account = report.account;
        parts += report.text.empty() ? render(facts, report.verdict, arguments, style)  // no answer
                                     : report.text;
    }
    if (arguments.format == Format::text) {
        parts += verdictLine(overall(reports), style);
    }
    return output(parts, arguments);
}

}  // namespace orvane::status
