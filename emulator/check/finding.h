#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane::emulator {

/// Something that a control plane does wrong. Each part begins with a capital letter and has no
/// period at its end, but for `came`, which goes on from `request`.
struct Finding {
    std::string request;  ///< What was requested.
    std::string came;     ///< What came of it.
    std::string daemon;   ///< What a daemon does then.
    std::string advice;   ///< What to do about it.
};
using Findings = std::vector<Finding>;

/// The finding in one line, without a line feed.
std::string textOf(const Finding& finding);

/// The beginning of `text` in quotation marks, fit for a terminal. Servers may send any bytes.
std::string excerptOf(std::string_view text);

}  // namespace orvane::emulator
