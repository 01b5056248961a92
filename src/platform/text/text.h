// UTF-8 and trimming helpers shared by every layer. All are pure and safe on any thread.
#pragma once

#include <string>
#include <string_view>

namespace orvane::text {

/// Whether `bytes` is well-formed UTF-8 (RFC 3629): no overlong form, no surrogate, at most
/// U+10FFFF.
bool isUtf8(std::string_view bytes);

/// `bytes` with every malformed sequence replaced by U+FFFD.
std::string repairedUtf8(std::string_view bytes);

/// `text` without one leading UTF-8 byte order mark, if there is one.
std::string_view withoutByteOrderMark(std::string_view text);

/// `text` without the run of `character` at either end.
std::string_view trimmed(std::string_view text, char character);

/// Whether `text` contains a C0 control character (NUL, CR, LF and tab are some) or DEL.
bool hasControlCharacter(std::string_view text);

}  // namespace orvane::text
