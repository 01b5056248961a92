// The expected result of one poll cycle in which a system call fails, from what the daemon
// promises, not from how it is written: which files stay, which line is logged, what the next poll
// sends.
#pragma once

#include "faults/device.h"
#include "faults/strace.h"

#include <map>
#include <optional>
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

/// The calls of a successful poll cycle, and their purposes.
class CycleModel {
  public:
    CycleModel(InitialState initial, std::vector<Call> calls)
        : initial_(initial), calls_(std::move(calls)) {}

    [[nodiscard]] InitialState initial() const { return initial_; }
    [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

    /// The outcome of a successful cycle.
    [[nodiscard]] Outcome goodOutcome() const;
    /// The outcome with `fault`; throws if nothing is stated about that call.
    [[nodiscard]] Outcome outcomeWith(const Fault& fault) const;
    /// The files when the process is stopped just before the call at `index`.
    [[nodiscard]] std::map<File, int> versionsBefore(std::size_t index) const;

    /// Whether the call at `index` is a close that, made to fail without being made, keeps a pipe
    /// open that the daemon reads to its end. In truth a close that fails has closed (close(2)).
    [[nodiscard]] bool keepsPipeOpen(std::size_t index, Lasting lasting) const;

  private:
    enum class Purpose;
    enum class Effect;
    using Effects = std::map<Purpose, Effect>;

    [[nodiscard]] Purpose purposeOf(std::size_t index) const;
    [[nodiscard]] Effects effectsOf(std::size_t index, Lasting lasting) const;
    [[nodiscard]] Effect effectOfFile(std::size_t index, Lasting lasting) const;
    [[nodiscard]] Effect effectOfCapture(std::size_t index) const;
    [[nodiscard]] Effects effectsOfRecord(std::size_t index, Purpose purpose,
                                          Lasting lasting) const;
    [[nodiscard]] Effect effectOfUuid(std::size_t index) const;
    [[nodiscard]] Outcome outcomeOf(const Effects& effects, int error) const;
    [[nodiscard]] std::size_t logLinesBefore(std::size_t index) const;
    [[nodiscard]] bool follows(std::size_t index, CallKind kind) const;
    [[nodiscard]] int known() const {
        return initial_ == InitialState::nextPolicy ? before : absent;
    }

    InitialState initial_;
    std::vector<Call> calls_;
};

}  // namespace orvane::test
