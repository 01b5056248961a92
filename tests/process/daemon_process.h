// A daemon program as a child process, watched from outside.
#pragma once

#include "support/log_capture.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

/// How to start it.
struct DaemonSetup {
    std::filesystem::path program;
    std::map<std::string, std::string> environment;  ///< the whole of it
    std::filesystem::path logFile;                   ///< where standard error goes
    /// Runs in the child before the program does; false ends the child.
    std::function<bool()> prepare = [] { return true; };
    std::vector<std::string> arguments = {};  ///< after the program's name
};

/// Runs from construction until it is killed, at the latest in the destructor.
class DaemonProcess {
  public:
    explicit DaemonProcess(DaemonSetup setup);
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;
    ~DaemonProcess();

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool isRunning();

    /// Sends `signal`, waits for the end and gives the wait status.
    int end(int signal);

    [[nodiscard]] std::vector<LoggedMessage> messages() const;
    [[nodiscard]] std::vector<std::string> logLines() const;
    /// Blocks until a logged message contains `part`, at most 60 s.
    [[nodiscard]] bool waitForLog(const std::string& part) const;

    // What the system knows of it:
    [[nodiscard]] std::size_t descriptorCount() const;
    [[nodiscard]] std::size_t threadCount() const;
    [[nodiscard]] std::size_t residentKiB() const;
    /// How much that goes up and down in a process that keeps nothing.
    static const std::size_t slackKiB;
    /// The most that was ever resident.
    [[nodiscard]] std::size_t peakKiB() const;
    /// Context switches of all threads since their start: each wake-up is one.
    [[nodiscard]] std::size_t contextSwitches() const;
    /// Its children, dead ones that were not reaped included.
    [[nodiscard]] std::vector<pid_t> children() const;
    /// The program's name and its arguments, as they were given, each with a NUL after it.
    [[nodiscard]] std::string commandLine() const;

  private:
    DaemonSetup setup_;
    pid_t pid_;
    std::optional<int> status_;
};

/// Blocks until `condition` holds, at most 60 s.
bool waitUntil(const std::function<bool()>& condition);

}  // namespace orvane::test
