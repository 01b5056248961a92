// A device whose daemon runs through one poll cycle: its files, its control plane, the process.
#pragma once

#include "faults/policy_server.h"
#include "faults/strace.h"
#include "process/daemon_process.h"
#include "support/test_files.h"

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

// Versions of policies and of the files derived from them.
inline constexpr int torn = -1;   ///< a file that is not exactly one version
inline constexpr int absent = 0;  ///< no file
inline constexpr int before = 1;  ///< what a device has that already had a policy
inline constexpr int offered = 2;
inline constexpr int later = 3;

/// The files that other programs read.
enum class File { policy, tag, effective, capture };
inline constexpr std::array allFiles{File::policy, File::tag, File::effective, File::capture};

/// Below the device's root.
std::string pathOf(File file);

/// What a device has when the poll cycle begins.
enum class InitialState {
    firstPolicy,  ///< an enrollment and the hardware registry tool, and nothing else
    nextPolicy,   ///< all files of version `before`, no such tool
};
inline constexpr std::array allInitialStates{InitialState::firstPolicy, InitialState::nextPolicy};

/// Call it once, before the first device.
void preferMemory();

class Device {
  public:
    /// The daemon runs and its poll is held.
    explicit Device(InitialState initial);

    [[nodiscard]] const std::filesystem::path& root() const { return root_.path(); }
    [[nodiscard]] PolicyServer& server() { return server_; }
    [[nodiscard]] DaemonProcess& daemon() { return *daemon_; }

    /// One cycle, from the answer with `version` until the next poll, the daemon's end or its
    /// search for a profile, with these faults (Strace).
    std::vector<Call> runCycle(int version, const std::vector<std::string>& injections,
                               Traced traced = Traced::mainThread);
    /// The same with no faults and nothing traced; false when the daemon does not poll again.
    bool goodCycle(int version);

    /// Whether the daemon polls, or has done so already since the cycle began, and has not ended.
    bool pollsAgain();

    /// A fresh process in the place of one that has ended; its poll is held.
    void restart();

    /// The version that `file` has.
    [[nodiscard]] int version(File file) const;
    /// The names of all files and directories of the daemon's that have another mode than they
    /// should: the capture file is for all to read, everything else for the account alone.
    [[nodiscard]] std::vector<std::string> wrongModes() const;
    /// What is left beside the files: scratch files, and those waiting to be moved into place.
    [[nodiscard]] std::vector<std::string> leftovers() const;
    /// The activity log, each record cut down to "old", "poll" or "effective", line ends as "$".
    [[nodiscard]] std::string activity() const;
    /// What was logged since the last cycle began, each message after its level and a space.
    [[nodiscard]] std::vector<std::string> log() const;

  private:
    [[nodiscard]] std::filesystem::path orvane() const { return root() / "home/.orvane"; }
    [[nodiscard]] std::filesystem::path setup() const {
        return root() / "private/tmp/dev.orvane.setup";
    }
    void fill(InitialState initial) const;
    void beginCycle(int version);
    [[nodiscard]] bool hasPolledAgain() const;

    TempDirectory root_;
    PolicyServer server_;
    std::unique_ptr<DaemonProcess> daemon_;
    std::size_t logLinesBefore_ = 0;
    std::size_t pollsBefore_ = 0;
};

}  // namespace orvane::test
