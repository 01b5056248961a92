// Log messages: a format and strings for it, a NUL between them. A format's conversions are those
// of a plain list of spellings; a message is what a second rendering makes of it; no string brings
// a control character or a malformed sequence into it.
#include "platform/log/log_format.h"

#include "fuzz.h"
#include "utf8_model.h"

#include <algorithm>
#include <cstdio>

namespace orvane::fuzz {

namespace {

using Kind = LogConversion::Kind;

struct Spelling {
    std::string_view text;
    Kind kind;
    bool isPublic;
};

constexpr Spelling spellings[] = {
    {"%s", Kind::string, false},
    {"%{public}s", Kind::string, true},
    {"%d", Kind::int32, false},
    {"%{public}d", Kind::int32, true},
    {"%ld", Kind::int64, false},
    {"%{public}ld", Kind::int64, true},
    {"%{bool,public}d", Kind::boolean, true},
};

const Spelling* spellingAt(std::string_view rest) {
    const auto* const found =
        std::find_if(std::begin(spellings), std::end(spellings),
                     [&](const Spelling& spelling) { return rest.starts_with(spelling.text); });
    return found == std::end(spellings) ? nullptr : found;
}

std::string shown(std::u32string_view text) {
    std::string safe;
    for (const char32_t c : text) {
        if (c == U'\n' || c == U'\r' || c == U'\t') {
            safe += c == U'\n' ? "\\n" : c == U'\r' ? "\\r" : "\\t";
        } else if (c < 0x20 || (c >= 0x7F && c < 0xA0)) {
            char escape[8];
            (void)std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            safe += escape;
        } else {
            safe += encoded({&c, 1});
        }
    }
    return safe;
}

bool isSafe(std::string_view text) {
    const auto characters = decoded(text);
    return characters && shown(*characters) == text;
}

void checkPrintable(std::string_view text) {
    const std::string safe = printable(text);
    check(isSafe(safe));
    check(printable(safe) == safe);
    const auto characters = decoded(text);
    check(!characters || safe == shown(*characters));
}

/// The conversions of `format`; absent when it is not well-formed.
std::optional<std::vector<Spelling>> conversionsIn(std::string_view format) {
    std::vector<Spelling> all;
    for (std::size_t at = format.find('%'); at != std::string_view::npos;) {
        const LogConversion conversion = nextConversion(format, at == 0 ? 0 : at - 1);
        const Spelling* const spelling = spellingAt(format.substr(at));
        check(conversion.begin == at);
        check(conversion.kind == (spelling == nullptr ? Kind::malformed : spelling->kind));
        if (spelling == nullptr) {
            return std::nullopt;
        }
        check(conversion.isPublic == spelling->isPublic);
        check(conversion.end == at + spelling->text.size());
        all.push_back(*spelling);
        at = format.find('%', conversion.end);
    }
    check(nextConversion(format, format.rfind('%') + 1).begin == std::string_view::npos);
    return all;
}

template <typename... Arguments>
void checkFit(std::string_view format, const std::optional<std::vector<Spelling>>& conversions,
              const std::vector<Kind>& wanted) {
    const bool fits =
        conversions &&
        std::equal(conversions->begin(), conversions->end(), wanted.begin(), wanted.end(),
                   [](const Spelling& spelling, Kind kind) { return spelling.kind == kind; });
    check(formatFits<Arguments...>(format) == fits);
}

void checkMessage(std::string_view format, const std::vector<Spelling>& conversions,
                  const std::vector<std::string_view>& texts) {
    std::vector<LogArgument> arguments;
    std::string expected;
    std::string_view rest = format;
    for (std::size_t i = 0; i < conversions.size(); ++i) {
        const std::string_view text = i < texts.size() ? texts[i] : std::string_view();
        expected += rest.substr(0, rest.find('%'));
        rest.remove_prefix(rest.find('%') + conversions[i].text.size());
        if (conversions[i].kind == Kind::string) {
            const auto characters = decoded(text);
            arguments.emplace_back(text);
            expected += !conversions[i].isPublic ? "<private>"
                        : characters             ? shown(*characters)
                                                 : printable(text);
        } else if (conversions[i].kind == Kind::boolean) {
            arguments.emplace_back(text.empty());
            expected += text.empty() ? "true" : "false";
        } else {
            const std::int64_t number = std::int64_t{1} << (text.size() % 64);
            arguments.emplace_back(number);
            char digits[24];
            (void)std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(number));
            expected += digits;
        }
    }
    check(renderMessage(format, arguments) == expected + std::string(rest));
    check(!isSafe(format) || isSafe(renderMessage(format, arguments)));
}

}  // namespace

void tryInput(std::string_view input) {
    auto texts = partsOf(input, 8);
    const std::string_view format = texts.front();
    texts.erase(texts.begin());
    for (const std::string_view text : texts) {
        checkPrintable(text);
    }
    checkPrintable(format);
    const auto conversions = conversionsIn(format);
    checkFit<>(format, conversions, {});
    checkFit<std::string>(format, conversions, {Kind::string});
    checkFit<std::string, std::string>(format, conversions, {Kind::string, Kind::string});
    checkFit<std::int32_t>(format, conversions, {Kind::int32});
    checkFit<std::int64_t>(format, conversions, {Kind::int64});
    checkFit<bool, std::int64_t, bool>(format, conversions,
                                       {Kind::boolean, Kind::int64, Kind::boolean});
    if (conversions) {
        checkMessage(format, *conversions, texts);
    }
}

}  // namespace orvane::fuzz
