#include "emulator/flags.h"

#include <charconv>
#include <functional>
#include <map>
#include <string_view>
#include <system_error>

namespace orvane::emulator {
namespace {

using Reader = std::function<bool(const char*)>;

template <typename Text>
Reader into(Text& field) {
    return [&field](const char* value) {
        field = value;
        return !field.empty();
    };
}

template <typename Number>
Reader intoNumber(Number& number, Number least, Number most) {
    return [&number, least, most](std::string_view value) {
        const char* const end = value.data() + value.size();
        const auto [rest, error] = std::from_chars(value.data(), end, number);
        return error == std::errc() && rest == end && number >= least && number <= most;
    };
}

std::map<std::string_view, Reader> readersInto(Flags& flags) {
    return {{"--port", intoNumber<std::uint16_t>(flags.port, 0, 65535)},
            {"--policy", into(flags.policy)},
            {"--key", into(flags.account.apiKey)},
            {"--device", into(flags.account.deviceToken)},
            {"--tenant", into(flags.account.tenantSlug)},
            {"--agent-slug", into(flags.account.agentSlug)},
            {"--agent-type", into(flags.account.agentType)},
            {"--cert", into(flags.certificate)},
            {"--private-key", into(flags.privateKey)},
            {"--port-file", into(flags.portFile)},
            {"--fail-every", intoNumber(flags.behavior.failEvery, 1U, 1'000'000U)},
            {"--with", intoNumber(flags.behavior.failStatus, 400U, 599U)}};
}

bool areUsable(const Flags& flags) {
    const bool keyGiven = !flags.account.apiKey.empty();
    return flags.help || (keyGiven && flags.certificate.empty() == flags.privateKey.empty());
}

}  // namespace

std::optional<Flags> readFlags(std::span<const char* const> arguments) {
    Flags flags;
    const auto readers = readersInto(flags);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view name = arguments[i];
        if (name == "--help" || name == "--jitter") {
            (name == "--help" ? flags.help : flags.behavior.jitter) = true;
            continue;
        }
        const auto reader = readers.find(name);
        if (reader == readers.end() || ++i == arguments.size() || !reader->second(arguments[i])) {
            return std::nullopt;
        }
    }
    return areUsable(flags) ? std::optional(flags) : std::nullopt;
}

const char* usage() {
    return R"(usage: orvane-control-plane --key KEY [flags]

A control plane on this machine's loopback interface: it serves one guard policy to any number of
agents, holds their polls until the policy changes, and prints a line for every request.

  --key KEY            what agents must send as X-Orv-Key
  --policy FILE        the policy to serve; the file is watched and reread when it changes
  --port N             the port to listen on (any free one)
  --port-file FILE     write the port's number to FILE once listening
  --device TOKEN       what a device must send as X-Orv-Device to be given the key ...
  --tenant SLUG        ... and as X-Orv-Tenant (without both, no device is known)
  --agent-slug SLUG    the agent that a device is told it belongs to
  --agent-type TYPE    that agent's type
  --cert FILE          speak HTTPS, with the certificate ...
  --private-key FILE   ... and the private key (both PEM) in these files
  --jitter             hold each poll for a random time, 80 to 100 % of what it asks for
  --fail-every N       refuse every Nth poll ...
  --with STATUS        ... with this status, 400 to 599 (503)
  --help               print this and end

While it runs, the policy can also be set with:  curl -T FILE http://127.0.0.1:PORT/policy
SIGINT and SIGTERM end it.
)";
}

}  // namespace orvane::emulator
