// What one turn has to come to when a call in it fails, told by what the daemon promises and not by
// how it is written: which files stay, which line tells of it, what the next poll is sent with.
#pragma once

#include "faults/device.h"
#include "faults/strace.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

enum class Lasting { once, fromThenOn };

/// The call at `index` of the turn's calls fails with the error number `error`.
struct Fault {
    std::size_t index;
    int error;
    Lasting lasting;
};

/// The state of things when the turn is over.
struct Outcome {
    std::map<File, int> versions;
    std::vector<std::string> log;    ///< without the root; what repeats itself at once only once
    std::string activity;            ///< see Device::activity
    std::optional<std::string> tag;  ///< what the next poll is sent with
    bool knowsUuid = false;          ///< and asks for the effective configuration with it

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

/// The calls of a good turn, and what they mean.
class TurnModel {
  public:
    TurnModel(Begin begin, std::vector<Call> calls) : begin_(begin), calls_(std::move(calls)) {}

    [[nodiscard]] Begin begin() const { return begin_; }
    [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

    /// How a good turn ends.
    [[nodiscard]] Outcome goodOutcome() const;
    /// How it ends with `fault`; throws when nothing is said about that call.
    [[nodiscard]] Outcome outcomeWith(const Fault& fault) const;
    /// The files when the process is stopped just before the call at `index`.
    [[nodiscard]] std::map<File, int> versionsBefore(std::size_t index) const;

    /// Whether the call at `index` is a close that, made to fail without being made, keeps a pipe
    /// open that the daemon reads to its end. In truth a close that fails has closed (close(2)).
    [[nodiscard]] bool keepsPipeOpen(std::size_t index, Lasting lasting) const;

  private:
    enum class Subject;
    enum class Fate;
    using Fates = std::map<Subject, Fate>;

    [[nodiscard]] Subject subjectOf(std::size_t index) const;
    [[nodiscard]] Fates fatesOf(std::size_t index, Lasting lasting) const;
    [[nodiscard]] Fate fateOfFile(std::size_t index, Lasting lasting) const;
    [[nodiscard]] Fate fateOfCapture(std::size_t index) const;
    [[nodiscard]] Fates fatesOfRecord(std::size_t index, Subject subject, Lasting lasting) const;
    [[nodiscard]] Fate fateOfUuid(std::size_t index) const;
    [[nodiscard]] Outcome outcomeOf(const Fates& fates, int error) const;
    [[nodiscard]] std::size_t logLinesBefore(std::size_t index) const;
    [[nodiscard]] bool follows(std::size_t index, CallKind kind) const;
    [[nodiscard]] int known() const { return begin_ == Begin::nextPolicy ? before : absent; }

    Begin begin_;
    std::vector<Call> calls_;
};

}  // namespace orvane::test
