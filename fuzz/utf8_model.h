// UTF-8 a second time, by arithmetic: texts as code points.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::fuzz {

/// The code points of `bytes`; absent when it is not well-formed (RFC 3629).
std::optional<std::u32string> decoded(std::string_view bytes);

/// `text` in UTF-8.
std::string encoded(std::u32string_view text);

/// `text` without the characters of `set` at its ends.
std::u32string_view trimmedOf(std::u32string_view text, std::u32string_view set);

/// What counts as a space: tab and category Zs.
inline constexpr std::u32string_view spaces =
    U"\t \u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008\u2009\u200A\u202F\u205F"
    U"\u3000";

}  // namespace orvane::fuzz
