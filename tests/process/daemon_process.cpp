#include "process/daemon_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace orvane::test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> commandFor(const fs::path& program) {
#ifdef ORVANE_EMULATOR
    return {ORVANE_EMULATOR, program.string()};  // the kernel cannot run it
#else
    return {program.string()};
#endif
}

/// As execve wants them. The strings have to outlive it.
std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] void becomeDaemon(const DaemonSetup& setup) {
    constexpr int cannotStart = 127;
    (void)std::signal(SIGPIPE, SIG_DFL);  // a test program may ignore it
    const int log = ::open(setup.logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    std::vector<std::string> variables;
    for (const auto& [name, value] : setup.environment) {
        variables.push_back(name + "=" + value);
    }
    std::vector<std::string> command = commandFor(setup.program);
    command.insert(command.end(), setup.arguments.begin(), setup.arguments.end());
    const std::vector<char*> environment = pointersTo(variables);
    const std::vector<char*> arguments = pointersTo(command);
    if (log >= 0 && ::dup2(log, STDERR_FILENO) >= 0 && setup.prepare()) {
        ::execve(arguments.front(), arguments.data(), environment.data());
    }
    ::_exit(cannotStart);
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    // What comes soon is noticed soon.
    constexpr std::chrono::microseconds longestPause(5000);
    for (std::chrono::microseconds pause(250); !condition();
         pause = std::min(2 * pause, longestPause)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(pause);
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
        (void)end(SIGTERM);
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

}  // namespace orvane::test
