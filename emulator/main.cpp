#include "emulator/control_plane.h"
#include "emulator/flags.h"
#include "emulator/policy_file.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace orvane::emulator;

constexpr std::chrono::milliseconds lookInterval{250};

volatile std::sig_atomic_t stopAsked = 0;

extern "C" void askToStop(int /*signal*/) {
    stopAsked = 1;
}

/// For example 2026-11-21T02:14:00.123Z.
std::string timestamp() {
    const auto now = std::chrono::system_clock::now();
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch());
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::ostringstream text;
    text << std::put_time(&utc, "%FT%T.") << std::setw(3) << std::setfill('0')
         << sinceEpoch.count() % 1000 << 'Z';
    return text.str();
}

/// Writes the line in one piece, so that those of two threads never mix.
void printLine(std::string text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    std::cout << timestamp() + ' ' + text + '\n' << std::flush;
}

std::string requestText(const Exchange& exchange) {
    const std::string request = exchange.method + ' ' + exchange.target;
    return exchange.ifNoneMatch.empty() ? request
                                        : request + " If-None-Match " + exchange.ifNoneMatch;
}

void printHeld(const Exchange& exchange) {
    printLine(requestText(exchange) + " -> held");
}

void printAnswered(const Exchange& exchange) {
    printLine(requestText(exchange) + " -> " + std::to_string(exchange.status) + ", " +
              std::to_string(exchange.bytes) + " bytes, held " +
              std::to_string(exchange.held.count()) + " ms");
}

std::string readPem(const std::filesystem::path& path) {
    if (path.empty()) {
        return {};
    }
    auto content = readFile(path);
    if (!content || content->empty()) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return *content;
}

/// Whoever waits for the file never sees it without its content.
void writePort(const std::filesystem::path& path, std::uint16_t port) {
    const std::filesystem::path scratch = path.string() + ".new";
    if (!(std::ofstream(scratch) << port << std::endl)) {
        throw std::runtime_error("cannot write " + scratch.string());
    }
    std::filesystem::rename(scratch, path);
}

void servePolicyOf(const WatchedFile& file, ControlPlane& controlPlane) {
    printLine("reading the policy in " + file.path().string());
    const auto content = readFile(file.path());
    if (!content || !controlPlane.setPolicy(*content)) {
        std::cerr << file.path().string() + " is not a usable policy (" +
                         (content ? "not a JSON object" : "cannot be read") +
                         "); the policy stays as it was\n";
    }
}

/// Each held poll costs a file descriptor; the usual limit allows a thousand.
void allowManyConnections() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 10'240));
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

Options optionsOf(const Flags& flags) {
    Options options;
    options.port = flags.port;
    options.account = flags.account;
    options.behavior = flags.behavior;
    options.certificatePem = readPem(flags.certificate);
    options.privateKeyPem = readPem(flags.privateKey);
    options.onHeld = printHeld;
    options.onExchange = printAnswered;
    return options;
}

void serve(const Flags& flags) {
    ControlPlane controlPlane(optionsOf(flags));
    printLine("listening on " + controlPlane.baseUrl());
    WatchedFile policy(flags.policy);
    const auto lookAtPolicy = [&] {
        if (!flags.policy.empty() && policy.changed()) {
            servePolicyOf(policy, controlPlane);
        }
    };
    lookAtPolicy();
    if (!flags.portFile.empty()) {
        writePort(flags.portFile, controlPlane.port());
    }
    while (stopAsked == 0) {
        std::this_thread::sleep_for(lookInterval);
        lookAtPolicy();
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto flags = readFlags(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
    if (!flags || flags->help) {
        (flags ? std::cout : std::cerr) << usage();
        return flags ? 0 : 2;
    }
    static_cast<void>(std::signal(SIGINT, askToStop));
    static_cast<void>(std::signal(SIGTERM, askToStop));
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    allowManyConnections();
    try {
        serve(*flags);
    } catch (const std::exception& error) {
        std::cerr << "orvane-control-plane: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
