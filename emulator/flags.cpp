#include "emulator/flags.h"

#include "emulator/bad_input.h"
#include "emulator/number.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <set>
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

Reader intoSeconds(std::chrono::seconds& seconds, unsigned least, unsigned most) {
    return [&seconds, least, most](std::string_view value) {
        unsigned number = 0;
        intoNumber(number, least, most)(value);
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
            {"--check", into(flags.checkedUrl)},
            {"--ca", into(flags.authority)},
            {"--wait", intoSeconds(flags.wait, 1, 400)},
            {"--hold", intoSeconds(flags.behavior.longestHold, 0, 300)},
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

/// What goes with --check: who to be, and how to ask.
constexpr std::array<std::string_view, 9> forChecking{"--check",  "--key",        "--device",
                                                      "--tenant", "--agent-slug", "--ca",
                                                      "--wait",   "--help",       "--version"};

/// Whether one can be a control plane and check another with the options called `given`.
void checkPurpose(const Flags& flags, const std::set<std::string>& given) {
    for (const std::string& name : given) {
        const bool isForChecking =
            std::find(forChecking.begin(), forChecking.end(), name) != forChecking.end();
        if (!flags.checkedUrl.empty() && !isForChecking) {
            throw BadInput(name + " does not go with --check; --help says what does");
        }
        if (flags.checkedUrl.empty() && (name == "--ca" || name == "--wait")) {
            throw BadInput(name + " goes with --check only");
        }
    }
    if (!flags.checkedUrl.empty() &&
        flags.account.deviceToken.empty() != flags.account.tenantSlug.empty()) {
        throw BadInput("to check the lookup of devices takes both --device and --tenant");
    }
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
    std::set<std::string> given;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string name = arguments[i];
        if (const auto found = switches.find(name); found != switches.end()) {
            *found->second = true;
            given.insert(name);
            continue;
        }
        const auto reader = readers.find(name);
        if (reader == readers.end()) {
            throw BadInput("there is no option \"" + name + "\"; --help lists them");
        }
        // An option in the place of its value was hardly meant as one.
        if (++i == arguments.size() || std::string_view(arguments[i]).starts_with("--")) {
            throw BadInput(name + " needs a value; --help lists the options");
        }
        try {
            reader->second(arguments[i]);
        } catch (const BadInput& mistake) {
            throw BadInput(name + ": " + mistake.what());
        }
        given.insert(name);
    }
    check(flags);
    checkPurpose(flags, given);
    return flags;
}

const char* usage() {
    return R"(usage: orvane-control-plane [OPTION]...
Serves a guard policy to agents and holds their polls until it changes.

  --policy FILE     the policy to serve; reread when the file changes
  --port N          the port (any free one); --port-file FILE is given it
  --listen ADDRESS  where to listen, for other machines to connect (127.0.0.1)
  --tls DIRECTORY   speak HTTPS (HTTP/2 or 1.1) with a certificate that is made
                    in DIRECTORY, or with --cert FILE --private-key FILE
  --key KEY         what agents send as X-Orv-Key (local-key)
  --device TOKEN --tenant SLUG   the device identity that is known, and what it
                    is given: --agent-slug SLUG --agent-type TYPE --api-url URL
  --hold SECONDS    the longest hold (300); --jitter: 80 to 100 % of each hold
  --fault NAME[,device=SLUG][,percent=N][,seconds=N][,delay=N]   (repeatable)
                    unauthorized forbidden not-found too-large-header slow huge
                    server-error never-answer drop-mid-body truncate garbage
                    html-portal redirect instant-304 no-etag long-etag goaway
                    outage
  --fail-every N --with STATUS   refuse every Nth poll (with 503)
  --seed N          for what is random, to repeat it; --help; --version
  --record FILE     append each exchange as a line of JSON, without credentials
  --check URL       try the control plane there as a daemon would, and say what
                    is wrong; with --key, --device, --ca FILE, --wait SECONDS
Its page, at the address that it prints, shows agents, policy and faults. SIGINT
and SIGTERM end it. See orvane-control-plane(1).
)";
}

}  // namespace orvane::emulator
