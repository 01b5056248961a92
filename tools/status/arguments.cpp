#include "status/arguments.h"

namespace orvane::status {

std::optional<Arguments> parseArguments(const std::vector<std::string_view>& words) {
    Arguments arguments;
    bool hasFormat = false;
    for (const std::string_view word : words) {
        if (word == "--help" || word == "-h") {
            arguments.wantsHelp = true;
        } else if (word == "--version") {
            arguments.wantsVersion = true;
        } else if (word == "--all") {
            arguments.isForAll = true;
        } else if (word == "--plain") {
            arguments.isPlain = true;
        } else if ((word == "--json" || word == "--prometheus") && !hasFormat) {
            hasFormat = true;
            arguments.format = word == "--json" ? Format::json : Format::prometheus;
        } else {
            return std::nullopt;
        }
    }
    return arguments;
}

std::string_view usage() {
    return R"(usage: orvane-policy-status [--all] [--plain | --json | --prometheus]
       orvane-policy-status --version | --help

Says whether the policy daemon of this account is well. It only reads files
and asks the service manager; it sends nothing and changes nothing.

  --all         every account of this machine; as root
  --plain       for screen readers: units spelled out, nothing aligned
  --json        one JSON object in one line for each account
  --prometheus  metrics, for the node exporter's textfile collector

Exit status: 0 healthy, 1 degraded, 2 not working, 3 unknown.
The last line says why, and what to do.
)";
}

}  // namespace orvane::status
