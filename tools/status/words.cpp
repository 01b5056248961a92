#include "status/words.h"

#include "platform/text/text.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace orvane::status {

namespace {

struct Unit {
    std::chrono::seconds length;
    std::string_view abbreviation;
    std::string_view noun;
};

constexpr std::array<Unit, 4> allUnits{{{std::chrono::days(1), "d", "day"},
                                        {std::chrono::hours(1), "h", "hour"},
                                        {std::chrono::minutes(1), "min", "minute"},
                                        {std::chrono::seconds(1), "s", "second"}}};

std::string inUnit(std::int64_t count, const Unit& unit, Units units) {
    return units == Units::spelledOut
               ? counted(count, unit.noun)
               : std::to_string(count) + " " + std::string(unit.abbreviation);
}

/// Whether `byte` continues a character in UTF-8.
bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// How many columns `text` takes on a terminal: its characters, without the sequences that color
/// them.
std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    bool isInSequence = false;
    for (const char c : text) {
        isInSequence = isInSequence || c == '\033';
        if (!isInSequence && !isContinuation(c)) {
            ++columns;
        }
        isInSequence = isInSequence && c != 'm';
    }
    return columns;
}

}  // namespace

std::string_view nameOf(ServiceState state) {
    switch (state) {
        case ServiceState::running:
            return "running";
        case ServiceState::restarting:
            return "restarting";
        case ServiceState::stopped:
            return "stopped";
        case ServiceState::masked:
            return "masked";
        case ServiceState::notInstalled:
            return "not installed";
        case ServiceState::notLoggedIn:
            return "not logged in";
        case ServiceState::systemAccount:
            return "system account";
        case ServiceState::unknown:
            break;
    }
    return "unknown";
}

std::string inWords(std::chrono::nanoseconds duration, Units units) {
    const auto seconds =
        std::max(std::chrono::floor<std::chrono::seconds>(duration), std::chrono::seconds(0));
    const auto* unit = std::find_if(allUnits.begin(), allUnits.end() - 1,
                                    [=](const Unit& each) { return seconds >= each.length; });
    std::string words = inUnit(seconds / unit->length, *unit, units);
    const auto rest = seconds % unit->length;
    // Of days the hours count as well.
    if (unit == allUnits.begin() && rest >= allUnits[1].length) {
        words += " " + inUnit(rest / allUnits[1].length, allUnits[1], units);
    }
    return words;
}

std::string localTime(Time time) {
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(time).count();
    std::tm local{};
    std::array<char, 32> text{};
    (void)localtime_r(&seconds, &local);
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

std::string counted(std::int64_t count, std::string_view noun) {
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string printable(std::string_view text, std::size_t most) {
    std::string result;
    std::size_t characters = 0;
    const std::string valid = text::repairedUtf8(text);
    for (std::size_t i = 0; i < valid.size(); ++i) {
        const auto byte = static_cast<unsigned char>(valid[i]);
        if (!isContinuation(valid[i]) && ++characters > most) {
            return result + "…";
        }
        // U+0080 to U+009F are control characters, too: C2, then the character's own number.
        const bool isUpperControl = byte == 0xC2 && static_cast<unsigned char>(valid[i + 1]) < 0xA0;
        if (byte < 0x20 || byte == 0x7F || isUpperControl) {
            result += '?';
            i += isUpperControl ? 1 : 0;
        } else {
            result += valid[i];
        }
    }
    return result;
}

std::string withoutUserInfo(std::string_view url) {
    const auto start = url.find("//");
    if (start == std::string_view::npos) {
        return std::string(url);
    }
    const std::string_view authority =
        url.substr(start + 2, url.find_first_of("/?#", start + 2) - (start + 2));
    const auto at = authority.rfind('@');
    if (at == std::string_view::npos) {
        return std::string(url);
    }
    return std::string(url.substr(0, start + 2)) + std::string(url.substr(start + 2 + at + 1));
}

std::string wrapped(std::string_view text, std::size_t column, std::size_t indent,
                    std::size_t width) {
    std::string result;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        const std::size_t length = columnsOf(word);
        if (!result.empty() && column + 1 + length > width) {
            result.erase(result.find_last_not_of(' ') + 1);
            result += '\n' + std::string(indent, ' ');
            column = indent;
        } else if (!result.empty()) {
            result += ' ';
            ++column;
        }
        result += word;
        column += length;
    }
    return result;
}

}  // namespace orvane::status
