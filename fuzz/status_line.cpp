// What the status command reads and shows of texts that others wrote. A line of the activity log:
// as another JSON library reads it. Any text: nothing is left in it that a terminal would
// interpret, and no user name in a URL.
#include "fuzz.h"
#include "json_model.h"
#include "platform/text/text.h"
#include "platform/text/timestamp.h"
#include "status/activity_line.h"
#include "status/words.h"

#include <algorithm>

namespace orvane::fuzz {

namespace {

void checkLine(std::string_view line) {
    const auto exchange = status::parseActivityLine(line);
    const JsonModel model(line);
    check(!exchange || !model.isDecided() || model.isUsable());
    if (!exchange || !model.knowsMembers()) {
        return;
    }
    check(model.string("daemon") == "policy-daemon");
    check(model.string("url") == exchange->url);
    check(model.string("error").value_or("") == exchange->error);
    const auto time = model.string("ts");
    // Hours, minutes and seconds beyond their range count on; early years are written shorter.
    const bool isInRange = time && *time >= "1000" && time->substr(11, 2) < "24" &&
                           time->substr(14, 2) < "60" && time->substr(17, 2) < "60";
    check(!isInRange || iso8601(exchange->endedAt) == time);
}

void checkText(std::string_view text) {
    constexpr std::size_t most = 20;
    const std::string shown = status::printable(text, most);
    check(text::isUtf8(shown) && !text::hasControlCharacter(shown));
    check(static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), [](char c) {
              return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
          })) <= most + 1);
    const std::string url = status::withoutUserInfo(text);
    const auto start = url.find("//");
    check(start == std::string::npos ||
          url.substr(start + 2, url.find_first_of("/?#", start + 2) - start - 2).find('@') ==
              std::string::npos);
}

}  // namespace

void tryInput(std::string_view input) {
    checkLine(input);
    checkText(input);
}

}  // namespace orvane::fuzz
