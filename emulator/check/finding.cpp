#include "emulator/check/finding.h"

#include "platform/text/text.h"

#include <algorithm>

namespace orvane::emulator {

std::string textOf(const Finding& finding) {
    return finding.request + ": " + finding.came + ". " + finding.daemon + ". " + finding.advice +
           '.';
}

std::string excerptOf(std::string_view text) {
    constexpr std::size_t most = 60;
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; };
    std::string begin = text::repairedUtf8(text.substr(0, most));
    std::replace_if(begin.begin(), begin.end(), isControl, '?');
    return '"' + begin + (text.size() > most ? "…\"" : "\"");
}

}  // namespace orvane::emulator
