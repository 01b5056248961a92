// Message formats: literals at the call sites, checked against their arguments at compile time,
// rendered the same way on every system.
//
// A format is text with conversions: %s for a string, %d for a 32-bit and %ld for a 64-bit signed
// integer, each with an optional mark in braces, "%{public}s". `bool,` in the mark shows an integer
// conversion's argument as true or false. As in os_log(3), numbers are always visible and a string
// without "public" is shown as <private>.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace orvane {

/// The argument of a conversion.
using LogArgument = std::variant<bool, std::int64_t, std::string_view>;

/// One conversion of a format.
struct LogConversion {
    enum class Kind { string, int32, int64, boolean, malformed };
    Kind kind = Kind::malformed;
    bool isPublic = false;
    std::size_t begin = 0;  ///< index of its "%"
    std::size_t end = 0;    ///< index past its last character
};

/// The first conversion of `format` at or after `from`; `begin` is npos if there is none.
constexpr LogConversion nextConversion(std::string_view format, std::size_t from) {
    LogConversion found;
    found.begin = format.find('%', from);
    if (found.begin == std::string_view::npos) {
        return found;
    }
    std::string_view rest = format.substr(found.begin + 1);
    bool isBoolean = false;
    if (rest.starts_with('{')) {
        const auto close = rest.find('}');
        const std::string_view mark =
            rest.substr(1, close == std::string_view::npos ? 0 : close - 1);
        isBoolean = mark == "bool,public";
        found.isPublic = isBoolean || mark == "public";
        if (!found.isPublic) {
            return found;
        }
        rest.remove_prefix(close + 1);
    }
    if (rest.starts_with('s') && !isBoolean) {
        found.kind = LogConversion::Kind::string;
        rest.remove_prefix(1);
    } else if (rest.starts_with('d')) {
        found.kind = isBoolean ? LogConversion::Kind::boolean : LogConversion::Kind::int32;
        rest.remove_prefix(1);
    } else if (rest.starts_with("ld") && !isBoolean) {
        found.kind = LogConversion::Kind::int64;
        rest.remove_prefix(2);
    }
    found.end = format.size() - rest.size();
    return found;
}

/// The kind of conversion that an argument of type `Argument` needs.
template <typename Argument>
constexpr LogConversion::Kind kindFor() {
    if constexpr (std::same_as<Argument, bool>) {
        return LogConversion::Kind::boolean;
    } else if constexpr (std::same_as<Argument, std::int32_t>) {
        return LogConversion::Kind::int32;
    } else if constexpr (std::same_as<Argument, std::int64_t>) {
        return LogConversion::Kind::int64;
    } else if constexpr (std::convertible_to<Argument, std::string_view>) {
        return LogConversion::Kind::string;
    } else {
        return LogConversion::Kind::malformed;
    }
}

/// Whether `format` is well-formed and its conversions are exactly those of `Arguments`, in order.
template <typename... Arguments>
constexpr bool formatFits(std::string_view format) {
    constexpr std::array<LogConversion::Kind, sizeof...(Arguments)> wanted{kindFor<Arguments>()...};
    std::size_t from = 0;
    for (const LogConversion::Kind kind : wanted) {
        const LogConversion conversion = nextConversion(format, from);
        if (conversion.begin == std::string_view::npos || conversion.kind != kind ||
            kind == LogConversion::Kind::malformed) {
            return false;
        }
        from = conversion.end;
    }
    return nextConversion(format, from).begin == std::string_view::npos;
}

/// A format literal, checked against `Arguments` at compile time.
template <typename... Arguments>
class LogFormat {
  public:
    // NOLINTNEXTLINE(google-explicit-constructor): so that call sites pass a plain literal.
    consteval LogFormat(const char* literal) : text_(literal) {
        if (!formatFits<Arguments...>(text_)) {
            throw "the format does not fit its arguments";  // reached at compile time: an error
        }
    }
    [[nodiscard]] constexpr std::string_view text() const { return text_; }

  private:
    std::string_view text_;
};

/// `format` with its conversions replaced by `arguments`. In strings, control characters are
/// escaped and malformed UTF-8 is replaced, so that a message is one line that cannot inject
/// terminal escapes.
/// REQUIRES: the arguments fit the format (`formatFits`).
std::string renderMessage(std::string_view format, std::span<const LogArgument> arguments);

/// `text` made safe to show, as `renderMessage` does with a string argument.
std::string printable(std::string_view text);

}  // namespace orvane
