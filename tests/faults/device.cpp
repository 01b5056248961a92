#include "faults/device.h"

#include "support/policy_versions.h"

#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace orvane::test {

namespace fs = std::filesystem;

std::string pathOf(File file) {
    switch (file) {
        case File::policy:
            return policyFile;
        case File::tag:
            return etagFile;
        case File::effective:
            return effectiveFile;
        case File::capture:
            break;
    }
    return capturePolicyFile;
}

/// Keeps the devices' files in memory where programs may be run from it: nothing here depends on
/// the disk, and there flushing takes no time.
void preferMemory() {
    const char* const memory = "/dev/shm";
    struct statvfs status {};
    if (::statvfs(memory, &status) == 0 && (status.f_flag & ST_NOEXEC) == 0 &&
        ::access(memory, W_OK) == 0) {
        (void)::setenv("TMPDIR", memory, 1);
    }
}

Device::Device(InitialState initial) {
    fill(initial);
    restart();
}

void Device::fill(InitialState initial) const {
    fs::create_directories(root() / "home");
    // As the service has it.
    const mode_t mask = ::umask(0077);
    writeFile(setup() / "enroll-config.json",
              nlohmann::json{{"api_url", server_.url()}, {"api_key", "key-1"}}.dump());
    if (initial == InitialState::nextPolicy) {
        for (const auto& [path, content] : policyVersion(before).files()) {
            writeFile(root() / path, content);
        }
        fs::permissions(root() / pathOf(File::capture), fs::perms(0644));
        writeFile(orvane() / "logs/policy-daemon.activity.jsonl", "{\"url\":\"old\"}\n");
    } else {
        const auto tool = root() / "usr/sbin/ioreg";
        writeFile(tool, "#!/bin/sh\necho '\"IOPlatformUUID\" = \"device-1\"'\n");
        fs::permissions(tool, fs::perms(0755));
    }
    (void)::umask(mask);
}

void Device::restart() {
    const std::size_t polls = server_.polls().size();
    daemon_ = std::make_unique<DaemonProcess>(
        DaemonSetup{ORVANE_TEST_DAEMON, {{"ORVANE_ROOT", root().string()}}, root() / "stderr", [] {
                        (void)::umask(0077);
                        return true;
                    }});
    if (!waitUntil([&] { return server_.polls().size() > polls; })) {
        throw std::runtime_error("the daemon does not poll");
    }
}

bool Device::hasPolledAgain() const {
    return server_.polls().size() > pollsBefore_;
}

bool Device::pollsAgain() {
    // It may have been killed and not be dead yet.
    return waitUntil([this] { return hasPolledAgain() || !daemon_->isRunning(); }) &&
           daemon_->isRunning();
}

void Device::beginCycle(int version) {
    logLinesBefore_ = daemon_->messages().size();
    pollsBefore_ = server_.polls().size();
    server_.answerOne(version);
}

std::vector<Call> Device::runCycle(int version, const std::vector<std::string>& injections,
                                   Traced traced) {
    Strace strace(daemon_->pid(), root(), injections, traced);
    beginCycle(version);
    const auto looksForProfile = [&] {
        const std::string output = readFile(root() / "strace");
        const std::string sought = "enroll-config.json\"";
        const auto first = output.find(sought);
        return first != std::string::npos && output.find(sought, first + 1) != std::string::npos;
    };
    const bool over =
        waitUntil([&] { return hasPolledAgain() || !daemon_->isRunning() || looksForProfile(); });
    strace.detach();
    if (!over) {
        std::string message = "the cycle does not end";
        for (const std::string& injection : injections) {
            message += "; " + injection;
        }
        throw std::runtime_error(message);
    }
    return strace.calls();
}

bool Device::goodCycle(int version) {
    beginCycle(version);
    return waitUntil([&] {
        const auto polls = server_.polls();
        return polls.size() > pollsBefore_ && polls.back() == policyVersion(version).etag;
    });
}

int Device::version(File file) const {
    const auto path = root() / pathOf(file);
    if (!fs::exists(path)) {
        return absent;
    }
    const std::string content = readFile(path);
    for (const int version : {before, offered, later}) {
        if (content == policyVersion(version).files().at(pathOf(file))) {
            return version;
        }
    }
    return torn;
}

std::vector<std::string> Device::wrongModes() const {
    std::vector<std::string> names;
    const auto check = [&](const fs::path& path) {
        const bool isPublic = path == root() / pathOf(File::capture);
        const unsigned expected = fs::is_directory(path) ? 0700 : isPublic ? 0644 : 0600;
        if (modeOf(path) != expected) {
            names.push_back(path.filename());
        }
    };
    for (const fs::path& directory : {orvane(), setup()}) {
        if (fs::exists(directory)) {
            check(directory);
            for (const auto& entry : fs::recursive_directory_iterator(directory)) {
                check(entry.path());
            }
        }
    }
    return names;
}

std::vector<std::string> Device::leftovers() const {
    std::vector<std::string> names;
    for (const auto& directory : {orvane(), setup(), orvane() / "logs"}) {
        for (const std::string& name : namesIn(directory)) {
            if (name.ends_with(".tmp")) {
                names.push_back(name);
            }
        }
    }
    return names;
}

std::string Device::activity() const {
    const auto path = orvane() / "logs/policy-daemon.activity.jsonl";
    std::string shape;
    std::string record;
    for (const char character : fs::exists(path) ? readFile(path) : "") {
        record += character;
        if (record == "\n") {
            shape += '$';
            record.clear();
        } else if (character == '}' && nlohmann::json::accept(record)) {
            const std::string url = nlohmann::json::parse(record).at("url");
            shape += url.find("/effective/") != std::string::npos      ? "effective"
                     : url.find("/guard-config/") != std::string::npos ? "poll"
                                                                       : "old";
            record.clear();
        }
    }
    return shape + record;
}

std::vector<std::string> Device::log() const {
    auto lines = daemon_->logLines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(
                                                   std::min(logLinesBefore_, lines.size())));
    return lines;
}

}  // namespace orvane::test
