#include "process/daemon_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace orvane::test {

namespace fs = std::filesystem;

namespace {

fs::path procOf(pid_t pid) {
    return fs::path("/proc") / std::to_string(pid);
}

std::size_t entriesIn(const fs::path& directory) {
    return namesIn(directory).size();
}

/// The number behind "`field`:" in a /proc status file, 0 when there is none.
std::size_t statusField(const fs::path& file, const std::string& field) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(field + ":")) {
            return std::stoul(line.substr(field.size() + 1));
        }
    }
    return 0;
}

[[noreturn]] void becomeDaemon(const DaemonSetup& setup) {
    constexpr int cannotStart = 127;
    (void)std::signal(SIGPIPE, SIG_DFL);  // a test program may ignore it
    const int log = ::open(setup.logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    std::vector<std::string> variables;
    for (const auto& [name, value] : setup.environment) {
        variables.push_back(name + "=" + value);
    }
    std::vector<char*> environment;
    for (std::string& variable : variables) {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);
    std::string name = setup.program.string();
    char* const arguments[] = {name.data(), nullptr};
    if (log >= 0 && ::dup2(log, STDERR_FILENO) >= 0 && setup.prepare()) {
        ::execve(setup.program.c_str(), arguments, environment.data());
    }
    ::_exit(cannotStart);
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

DaemonProcess::DaemonProcess(DaemonSetup setup) : setup_(std::move(setup)), pid_(::fork()) {
    if (pid_ == 0) {
        becomeDaemon(setup_);
    }
    if (pid_ < 0) {
        throw std::runtime_error("cannot fork");
    }
}

DaemonProcess::~DaemonProcess() {
    if (isRunning()) {
        (void)end(SIGKILL);
    }
}

bool DaemonProcess::isRunning() {
    int status = 0;
    if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = status;
    }
    return !status_;
}

int DaemonProcess::end(int signal) {
    int status = 0;
    if (isRunning() && ::kill(pid_, signal) == 0 && ::waitpid(pid_, &status, 0) == pid_) {
        status_ = status;
    }
    return status_.value();
}

std::vector<LoggedMessage> DaemonProcess::messages() const {
    return fs::exists(setup_.logFile) ? parseLog(readFile(setup_.logFile))
                                      : std::vector<LoggedMessage>();
}

std::vector<std::string> DaemonProcess::logLines() const {
    std::vector<std::string> lines;
    for (const LoggedMessage& message : messages()) {
        lines.push_back(message.level + " " + message.text);
    }
    return lines;
}

bool DaemonProcess::waitForLog(const std::string& part) const {
    return waitUntil([&] {
        const auto all = messages();
        return std::any_of(all.begin(), all.end(), [&](const LoggedMessage& message) {
            return message.text.find(part) != std::string::npos;
        });
    });
}

std::size_t DaemonProcess::descriptorCount() const {
    return entriesIn(procOf(pid_) / "fd");
}

std::size_t DaemonProcess::threadCount() const {
    return entriesIn(procOf(pid_) / "task");
}

std::size_t DaemonProcess::residentKiB() const {
    return statusField(procOf(pid_) / "status", "VmRSS");
}

std::size_t DaemonProcess::contextSwitches() const {
    std::size_t switches = 0;
    for (const std::string& thread : namesIn(procOf(pid_) / "task")) {
        const auto file = procOf(pid_) / "task" / thread / "status";
        switches += statusField(file, "voluntary_ctxt_switches") +
                    statusField(file, "nonvoluntary_ctxt_switches");
    }
    return switches;
}

std::vector<pid_t> DaemonProcess::children() const {
    std::vector<pid_t> found;
    for (const std::string& name : namesIn("/proc")) {
        const bool isProcess = name.find_first_not_of("0123456789") == std::string::npos;
        if (isProcess && statusField(procOf(std::stoi(name)) / "status", "PPid") ==
                             static_cast<std::size_t>(pid_)) {
            found.push_back(std::stoi(name));
        }
    }
    return found;
}

std::string DaemonProcess::commandLine() const {
    return readFile(procOf(pid_) / "cmdline");
}

}  // namespace orvane::test
