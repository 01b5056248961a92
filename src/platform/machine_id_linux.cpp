#include "platform/files.h"
#include "platform/machine_id.h"
#include "platform/paths.h"
#include "platform/text.h"

#include <algorithm>

namespace orvane {

namespace {

bool isLowerHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

}  // namespace

// machine-id(5): one line of 32 lower-case hexadecimal digits; "uninitialized" in an image that has
// never booted.
std::optional<std::string> machineId() {
    const auto content = files::read(paths::machineIdFile());
    if (!content) {
        return std::nullopt;
    }
    std::string id(text::trimmed(*content, '\n'));
    if (id.size() != 32 || !std::all_of(id.begin(), id.end(), isLowerHexDigit)) {
        return std::nullopt;
    }
    for (const std::size_t position : {8U, 13U, 18U, 23U}) {
        id.insert(position, 1, '-');
    }
    return id;
}

}  // namespace orvane
