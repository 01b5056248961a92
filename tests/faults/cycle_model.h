// What has to hold after one poll cycle in which a system call fails, from what the daemon
// promises, not from how it is written: which files may be old, which lines are logged, what the
// next poll sends.
#pragma once

#include "faults/device.h"
#include "faults/strace.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvane::test {

enum class Lasting { once, fromThenOn };

/// The call at `index` of the cycle's calls fails with the error number `error`.
struct Fault {
    std::size_t index;
    int error;
    Lasting lasting;
};

/// The state after the poll cycle.
struct Outcome {
    std::map<File, int> versions;
    std::vector<std::string> log;    ///< without the root; what repeats itself at once only once
    std::string activity;            ///< see Device::activity
    std::optional<std::string> tag;  ///< what the next poll is sent with
    bool knowsUuid = false;          ///< and asks for the effective configuration with it

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

inline constexpr const char* activityLogFile = "home/.orvane/logs/policy-daemon.activity.jsonl";
inline constexpr const char* enrollmentFile = "private/tmp/dev.orvane.setup/enroll-config.json";

/// The scratch file that is to become `target`, as in Call::path.
std::string scratchOf(const std::string& target);

/// The lines that a good cycle logs.
std::string updatedLine();
std::string effectiveLine();
std::string captureLine();
/// Logged when there is no enrollment.
std::string noProfileLine();
/// What is logged when `file` could not be written, but for the reason.
std::string failureLine(File file);

/// The calls of a successful poll cycle, and what they are for.
class CycleModel {
  public:
    CycleModel(InitialState initial, std::vector<Call> calls)
        : initial_(initial), calls_(std::move(calls)) {}

    [[nodiscard]] InitialState initial() const { return initial_; }
    [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

    /// The outcome of a successful cycle.
    [[nodiscard]] Outcome goodOutcome() const;
    /// The promises that `outcome`, that of a cycle with `fault`, breaks. A fault may change only
    /// what the failing calls are for, files are old, new or about to be moved into place, and the
    /// log says which of them are not new. Throws if it is not known what a call is for.
    [[nodiscard]] std::vector<std::string> brokenPromises(const Fault& fault,
                                                          const Outcome& outcome) const;
    /// The files when the process is stopped just before the call at `index`.
    [[nodiscard]] std::map<File, int> versionsBefore(std::size_t index) const;

    /// Whether the call at `index` is a close that, made to fail without being made, keeps a pipe
    /// open that the daemon reads to its end. In truth a close that fails has closed (close(2)).
    [[nodiscard]] bool keepsPipeOpen(std::size_t index, Lasting lasting) const;

  private:
    enum class Purpose;
    /// The purposes of all calls that a fault makes fail.
    struct Affected;
    struct LogLine;

    [[nodiscard]] Purpose purposeOf(std::size_t index) const;
    [[nodiscard]] Affected affectedBy(const Fault& fault) const;
    [[nodiscard]] static Purpose writingOf(File file);
    [[nodiscard]] bool mayHave(File file, const Outcome& outcome, const Affected& affected) const;
    [[nodiscard]] static std::vector<LogLine> expectedLog(const Outcome& outcome,
                                                          const Affected& affected);
    [[nodiscard]] std::set<std::string> possibleActivity(const Affected& affected) const;
    [[nodiscard]] bool mayBeSent(const Outcome& outcome, const Affected& affected) const;
    [[nodiscard]] std::size_t logLinesBefore(std::size_t index) const;
    [[nodiscard]] int known() const {
        return initial_ == InitialState::nextPolicy ? before : absent;
    }

    InitialState initial_;
    std::vector<Call> calls_;
};

}  // namespace orvane::test
