#include "emulator/bad_input.h"
#include "emulator/certificate.h"
#include "emulator/check/check.h"
#include "emulator/check/client.h"
#include "emulator/check/trusted_authority.h"
#include "emulator/control_plane.h"
#include "emulator/flags.h"
#include "emulator/policy_file.h"
#include "emulator/record.h"
#include "emulator/wall_time.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <thread>

namespace {

using namespace orvane::emulator;

constexpr std::chrono::milliseconds lookInterval{250};

/// A descriptor for each held poll, or three with HTTPS, and some more.
constexpr rlim_t wantedDescriptors = 10'500;
constexpr rlim_t wantedWithTls = 30'500;

volatile std::sig_atomic_t stopAsked = 0;

extern "C" void askToStop(int /*signal*/) {
    stopAsked = 1;
}

/// Writes the line in one piece, so that those of two threads never mix.
void printLine(std::string text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    std::cout << wallTime(std::chrono::system_clock::now()) + ' ' + text + '\n' << std::flush;
}

void complain(const std::string& text) {
    std::cerr << "orvane-control-plane: " + text + '\n';
}

std::string requestText(const Exchange& exchange) {
    const std::string request = exchange.method + ' ' + exchange.target;
    return exchange.ifNoneMatch.empty() ? request
                                        : request + " If-None-Match " + exchange.ifNoneMatch;
}

std::string faultText(const Exchange& exchange) {
    return exchange.fault.empty() ? "" : " (fault: " + exchange.fault + ')';
}

void printHeld(const Exchange& exchange) {
    printLine(requestText(exchange) + " -> held" + faultText(exchange));
}

void printEnded(const Exchange& exchange) {
    const std::string outcome =
        exchange.hungUp ? "hung up"
        : exchange.status == 0
            ? "no answer"
            : std::to_string(exchange.status) + ", " + std::to_string(exchange.bytes) + " bytes";
    printLine(requestText(exchange) + " -> " + outcome + ", held " +
              std::to_string(exchange.held.count()) + " ms" + faultText(exchange));
}

std::string readPem(const std::filesystem::path& path) {
    const auto content = readFile(path);
    if (!content) {
        throw BadInput("cannot read " + path.string());
    }
    return *content;
}

/// A program that waits for the file never sees it without its content.
void writePort(const std::filesystem::path& path, std::uint16_t port) {
    const std::filesystem::path scratch = path.string() + ".new";
    if (!(std::ofstream(scratch) << port << std::endl)) {
        throw BadInput("cannot write " + scratch.string());
    }
    std::filesystem::rename(scratch, path);
}

void servePolicyOf(const WatchedFile& file, ControlPlane& controlPlane) {
    printLine("reading the policy in " + file.path().string());
    const auto content = readFile(file.path());
    if (!content) {
        throw BadInput(file.path().string() + " cannot be read");
    }
    try {
        controlPlane.setPolicy(*content);
    } catch (const BadInput& mistake) {
        throw BadInput(file.path().string() + ": " + mistake.what());
    }
}

/// The usual limit allows a thousand.
void allowManyConnections(const Flags& flags) {
    const bool isHttps = !flags.tlsDirectory.empty() || !flags.certificate.empty();
    const rlim_t wanted = isHttps ? wantedWithTls : wantedDescriptors;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) {
        return;
    }
    limit.rlim_cur = std::min(limit.rlim_max, wanted);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < wanted) {
        printLine("the limit of open files (ulimit -Hn) allows fewer than 10,000 held polls");
    }
}

/// Appends to the record if there is one. When that fails, says so once and goes on without.
void record(std::optional<Record>& file, const Exchange& exchange) {
    if (file && !file->add(exchange)) {
        complain("the record cannot be written any more; it ends here");
        file.reset();
    }
}

Options optionsOf(const Flags& flags, std::optional<Record>& file) {
    Options options;
    options.address = flags.address;
    options.port = flags.port;
    options.account = flags.account;
    options.behavior = flags.behavior;
    options.onHeld = printHeld;
    options.onExchange = [&file](const Exchange& exchange) {
        printEnded(exchange);
        record(file, exchange);
    };
    TlsFiles tls{{}, flags.certificate, flags.privateKey};
    if (!flags.tlsDirectory.empty()) {
        tls = makeTlsFiles(flags.tlsDirectory, flags.address);
        printLine("to trust it for a test: curl --cacert " + tls.authority.string());
        printLine(
            "                     or: sudo cp " + tls.authority.string() +
            " /usr/local/share/ca-certificates/orvane-test.crt && sudo update-ca-certificates");
    }
    if (!tls.certificate.empty()) {
        options.certificatePem = readPem(tls.certificate);
        options.privateKeyPem = readPem(tls.privateKey);
    }
    return options;
}

/// The seed is printed where it is needed to have the same once more.
std::uint64_t seedOf(const Flags& flags) {
    const std::uint64_t seed = flags.seed ? *flags.seed : std::random_device{}();
    if (!flags.seed && (flags.behavior.jitter || !flags.faults.empty())) {
        printLine("chance begins with --seed " + std::to_string(seed));
    }
    return seed;
}

void serve(Flags flags) {
    std::optional<Record> file;
    if (!flags.record.empty()) {
        file.emplace(flags.record);
    }
    flags.behavior.seed = seedOf(flags);
    ControlPlane controlPlane(optionsOf(flags, file));
    controlPlane.setFaults(flags.faults);
    WatchedFile policy(flags.policy);
    if (!flags.policy.empty() && policy.changed()) {
        servePolicyOf(policy, controlPlane);
    }
    printLine("listening on " + controlPlane.baseUrl() + ", with a page at /");
    if (!flags.portFile.empty()) {
        writePort(flags.portFile, controlPlane.port());
    }
    while (stopAsked == 0) {
        std::this_thread::sleep_for(lookInterval);
        if (flags.policy.empty() || !policy.changed()) {
            continue;
        }
        try {
            servePolicyOf(policy, controlPlane);
        } catch (const BadInput& mistake) {
            complain(std::string(mistake.what()) + "; the policy stays as it was");
        }
    }
}

Subject subjectOf(const Flags& flags) {
    Subject subject;
    subject.profile = {.name = "check",
                       .apiUrl = flags.checkedUrl,
                       .apiKey = flags.account.apiKey,
                       .agentSlug = flags.account.agentSlug,
                       .tenant = std::nullopt};
    if (!flags.account.deviceToken.empty()) {
        subject.enrollment = orvane::DeviceEnrollment{.deviceToken = flags.account.deviceToken,
                                                      .tenantSlug = flags.account.tenantSlug,
                                                      .apiUrl = flags.checkedUrl};
    }
    subject.wait = flags.wait;
    return subject;
}

/// Whether nothing is wrong with the control plane that is to be checked.
bool isCheckedGood(const Flags& flags) {
    const auto url = orvane::Url::parse(flags.checkedUrl);
    if (!url || !url->isFetchable()) {
        throw BadInput("--check: not an address such as https://control.example: \"" +
                       flags.checkedUrl + '"');
    }
    std::optional<TrustedAuthority> authority;
    if (!flags.authority.empty()) {
        authority.emplace(flags.authority);
    }
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // the HTTP client counts on that
    const Subject subject = subjectOf(flags);
    Client client;
    const Report report = check(
        subject,
        [&client](const auto& request, auto patience) { return client.ask(request, patience); },
        [](const Finding& finding) { std::cout << textOf(finding) << std::endl; });
    std::cout << summaryOf(report, subject) << std::endl;
    return report.findings.empty();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Flags flags = readFlags(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
        if (flags.help || flags.version) {
            std::cout << (flags.help ? usage() : "orvane-control-plane " ORVANE_VERSION "\n");
            return 0;
        }
        if (!flags.checkedUrl.empty()) {
            return isCheckedGood(flags) ? 0 : 1;
        }
        static_cast<void>(std::signal(SIGINT, askToStop));
        static_cast<void>(std::signal(SIGTERM, askToStop));
        allowManyConnections(flags);
        serve(flags);
    } catch (const BadInput& mistake) {
        complain(mistake.what());
        return 2;
    } catch (const std::exception& error) {
        complain(error.what());
        return 1;
    }
    return 0;
}
