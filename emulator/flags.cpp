#include "emulator/flags.h"

#include "emulator/bad_input.h"
#include "emulator/number.h"

#include <functional>
#include <map>
#include <string_view>

namespace orvane::emulator {
namespace {

/// Stores an option's value. Throws BadInput, which names what is wanted and not the option.
using Reader = std::function<void(std::string_view)>;

template <typename Text>
Reader into(Text& field) {
    return [&field](std::string_view value) {
        if (value.empty()) {
            throw BadInput("its value is empty");
        }
        field = value;
    };
}

template <typename Number>
Reader intoNumber(Number& number, Number least, Number most) {
    return [&number, least, most](std::string_view value) {
        const auto read = numberIn(value, least, most);
        if (!read) {
            throw BadInput("not a number from " + std::to_string(least) + " to " +
                           std::to_string(most) + ": \"" + std::string(value) + '"');
        }
        number = *read;
    };
}

Reader intoSeconds(std::chrono::seconds& seconds) {
    return [&seconds](std::string_view value) {
        unsigned number = 0;
        intoNumber(number, 0U, 300U)(value);
        seconds = std::chrono::seconds(number);
    };
}

Reader intoSeed(std::optional<std::uint64_t>& seed) {
    return [&seed](std::string_view value) {
        intoNumber<std::uint64_t>(seed.emplace(), 0, UINT64_MAX)(value);
    };
}

std::map<std::string_view, Reader> readersInto(Flags& flags) {
    return {{"--listen", into(flags.address)},
            {"--port", intoNumber<std::uint16_t>(flags.port, 0, 65535)},
            {"--policy", into(flags.policy)},
            {"--key", into(flags.account.apiKey)},
            {"--device", into(flags.account.deviceToken)},
            {"--tenant", into(flags.account.tenantSlug)},
            {"--agent-slug", into(flags.account.agentSlug)},
            {"--agent-type", into(flags.account.agentType)},
            {"--api-url", into(flags.account.apiUrl)},
            {"--tls", into(flags.tlsDirectory)},
            {"--cert", into(flags.certificate)},
            {"--private-key", into(flags.privateKey)},
            {"--port-file", into(flags.portFile)},
            {"--record", into(flags.record)},
            {"--hold", intoSeconds(flags.behavior.longestHold)},
            {"--seed", intoSeed(flags.seed)},
            {"--fault", [&flags](auto value) { flags.faults.push_back(parseFault(value)); }},
            {"--fail-every", intoNumber(flags.behavior.failEvery, 1U, 1'000'000U)},
            {"--with", intoNumber(flags.behavior.failStatus, 400U, 599U)}};
}

std::map<std::string_view, bool*> switchesIn(Flags& flags) {
    return {{"--help", &flags.help},
            {"--version", &flags.version},
            {"--jitter", &flags.behavior.jitter}};
}

void check(const Flags& flags) {
    if (flags.certificate.empty() != flags.privateKey.empty()) {
        throw BadInput("--cert and --private-key go together");
    }
    if (!flags.tlsDirectory.empty() && !flags.certificate.empty()) {
        throw BadInput("--tls makes a certificate; leave out --cert and --private-key");
    }
}

}  // namespace

Flags readFlags(std::span<const char* const> arguments) {
    Flags flags;
    const auto readers = readersInto(flags);
    const auto switches = switchesIn(flags);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string name = arguments[i];
        if (const auto found = switches.find(name); found != switches.end()) {
            *found->second = true;
            continue;
        }
        const auto reader = readers.find(name);
        if (reader == readers.end()) {
            throw BadInput("there is no option \"" + name + "\"; --help lists them");
        }
        if (++i == arguments.size()) {
            throw BadInput(name + " needs a value; --help lists the options");
        }
        try {
            reader->second(arguments[i]);
        } catch (const BadInput& mistake) {
            throw BadInput(name + ": " + mistake.what());
        }
    }
    check(flags);
    return flags;
}

const char* usage() {
    return R"(usage: orvane-control-plane [OPTION]...
Serves a guard policy to agents and holds their polls until it changes.

  --policy FILE     the policy to serve; reread when the file changes
  --port N          the port (any free one); --port-file FILE is given it
  --listen ADDRESS  where to listen, for other machines to connect (127.0.0.1)
  --tls DIRECTORY   speak HTTPS with a certificate that is made in DIRECTORY,
                    or with --cert FILE --private-key FILE
  --key KEY         what agents send as X-Orv-Key (local-key)
  --device TOKEN --tenant SLUG   the device identity that is known, and what it
                    is given: --agent-slug SLUG --agent-type TYPE --api-url URL
  --hold SECONDS    the longest hold (300); --jitter: 80 to 100 % of each hold
  --fault NAME[,device=SLUG][,percent=N][,seconds=N][,delay=N]   (repeatable)
                    unauthorized forbidden not-found too-large-header slow huge
                    server-error never-answer drop-mid-body truncate garbage
                    html-portal redirect instant-304 no-etag long-etag outage
  --fail-every N --with STATUS   refuse every Nth poll (with 503)
  --seed N          for what is random, to repeat it
  --record FILE     append each exchange as a line of JSON, without credentials
  --help, --version
Its page, at the address that it prints, shows agents, policy and faults. SIGINT
and SIGTERM end it. See orvane-control-plane(1).
)";
}

}  // namespace orvane::emulator
