// What the system knows of a process, from /proc: see proc(5).
#include "process/daemon_process.h"

#include "support/test_files.h"

#include <filesystem>
#include <fstream>

namespace orvane::test {

namespace fs = std::filesystem;

namespace {

fs::path procOf(pid_t pid) {
    return fs::path("/proc") / std::to_string(pid);
}

std::size_t entriesIn(const fs::path& directory) {
    return namesIn(directory).size();
}

/// The number after "`field`:" in a /proc status file, 0 when there is none.
std::size_t statusField(const fs::path& file, const std::string& field) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(field + ":")) {
            return std::stoul(line.substr(field.size() + 1));
        }
    }
    return 0;
}

}  // namespace

std::size_t DaemonProcess::descriptorCount() const {
    return entriesIn(procOf(pid_) / "fd");
}

std::size_t DaemonProcess::threadCount() const {
    return entriesIn(procOf(pid_) / "task");
}

const std::size_t DaemonProcess::slackKiB = 128;

std::size_t DaemonProcess::residentKiB() const {
    return statusField(procOf(pid_) / "status", "VmRSS");
}

std::size_t DaemonProcess::peakKiB() const {
    return statusField(procOf(pid_) / "status", "VmHWM");
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
