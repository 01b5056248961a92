#include "faults/cycle_model.h"

#include "support/policy_versions.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace orvane::test {

namespace fs = std::filesystem;

/// What a call is made for.
enum class CycleModel::Purpose {
    pollRecord,
    policy,
    tag,
    updatedLine,
    uuid,
    effectiveRecord,
    effective,
    effectiveLine,
    policyReading,
    captureReading,
    capture,
    captureLine,
    profile,
    tagReading,
};

struct CycleModel::Affected {
    std::set<Purpose> purposes;
    CallKind kind;
    Lasting lasting;
    int error;

    [[nodiscard]] bool has(Purpose purpose) const { return purposes.contains(purpose); }
    /// Whether what is written to the log is lost as well.
    [[nodiscard]] bool isMute() const {
        return kind == CallKind::write && lasting == Lasting::fromThenOn;
    }
    /// Why a file could not be written. One that could not be removed is in the way.
    [[nodiscard]] std::string reason() const {
        return std::generic_category().message(kind == CallKind::unlink ? EEXIST : error);
    }
};

/// A line that has to be in the log, or may be missing.
struct CycleModel::LogLine {
    std::string text;
    bool mayBeMissing;
};

namespace {

/// Nothing is known about a path that is not one of these, of a file named here, or of one that is
/// to take a file's place.
constexpr std::array<std::string_view, 6> directories{
    "home",    "home/.orvane", "home/.orvane/logs",
    "private", "private/tmp",  "private/tmp/dev.orvane.setup"};
constexpr std::array<std::string_view, 2> uuidSources{"usr/sbin/ioreg", "etc/machine-id"};

template <typename Paths>
bool isAmong(const Paths& paths, std::string_view path) {
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

/// Whether `path` is `target` or is to take its place.
bool isFor(const std::string& target, const std::string& path) {
    const std::string next = target + ".tmp";
    return path == target || path == next || path == scratchOf(target) || path == scratchOf(next);
}

std::optional<File> fileOf(const std::string& path) {
    const auto found = std::find_if(allFiles.begin(), allFiles.end(),
                                    [&](File file) { return isFor(pathOf(file), path); });
    return found == allFiles.end() ? std::nullopt : std::optional(*found);
}

[[noreturn]] void nothingIsKnownAbout(const Call& call) {
    throw std::runtime_error("nothing is known about " + describe(call));
}

}  // namespace

std::string scratchOf(const std::string& target) {
    const fs::path path = target;
    return path.parent_path() /
           ("." + path.filename().string() + "." + std::to_string(::geteuid()) + ".TOKEN.tmp");
}

std::string updatedLine() {
    return "default policy updated (" + std::to_string(policyVersion(offered).policy.size()) +
           " bytes)";
}

std::string effectiveLine() {
    return "default effective config updated (" +
           std::to_string(policyVersion(offered).effective.size()) + " bytes)";
}

std::string captureLine() {
    return "default capture-policy applied from guard cascade: enabled=true hosts=1 "
           "suppress_ech=false";
}

std::string noProfileLine() {
    return "default No usable profile — sleeping 30s and retrying";
}

std::string failureLine(File file) {
    return file == File::capture ? "error capture-policy write failed: "
                                 : "error atomic write to /" + pathOf(file) + " failed: ";
}

std::size_t CycleModel::logLinesBefore(std::size_t index) const {
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.begin() + static_cast<std::ptrdiff_t>(index),
                      [](const Call& call) { return call.path == "stderr"; }));
}

CycleModel::Purpose CycleModel::purposeOf(std::size_t index) const {
    const Call& call = calls_.at(index);
    const std::size_t lines = logLinesBefore(index);
    if (call.kind == CallKind::other) {
        nothingIsKnownAbout(call);
    }
    if (call.path == "stderr") {
        return lines == 0   ? Purpose::updatedLine
               : lines == 1 ? Purpose::effectiveLine
                            : Purpose::captureLine;
    }
    if (call.kind == CallKind::process || call.path == "pipe" || isAmong(uuidSources, call.path)) {
        return Purpose::uuid;
    }
    if (isFor(activityLogFile, call.path)) {
        return lines == 0 ? Purpose::pollRecord : Purpose::effectiveRecord;
    }
    if (call.path == enrollmentFile) {
        return Purpose::profile;
    }
    if (call.path == "/proc/self/fd") {
        return Purpose::captureReading;
    }
    if (isAmong(directories, call.path)) {
        // It is created before the file in it, and flushed after it.
        const bool comesBefore =
            call.kind == CallKind::stat || call.kind == CallKind::makeDirectory;
        return purposeOf(comesBefore ? index + 1 : index - 1);
    }
    const auto file = fileOf(call.path);
    if (!file) {
        nothingIsKnownAbout(call);
    }
    const bool isReading =
        call.path == pathOf(*file) && (call.byDescriptor || call.kind == CallKind::open);
    if (!isReading) {
        return writingOf(*file);
    }
    switch (*file) {
        case File::policy:
            return Purpose::policyReading;
        case File::tag:
            return Purpose::tagReading;
        case File::capture:
            return Purpose::captureReading;
        case File::effective:
            break;
    }
    nothingIsKnownAbout(call);
}

CycleModel::Purpose CycleModel::writingOf(File file) {
    switch (file) {
        case File::policy:
            return Purpose::policy;
        case File::tag:
            return Purpose::tag;
        case File::effective:
            return Purpose::effective;
        case File::capture:
            break;
    }
    return Purpose::capture;
}

CycleModel::Affected CycleModel::affectedBy(const Fault& fault) const {
    const Call& call = calls_.at(fault.index);
    Affected affected{{purposeOf(fault.index)}, call.kind, fault.lasting, fault.error};
    if (fault.lasting == Lasting::once) {
        return affected;
    }
    for (std::size_t i = fault.index + 1; i < calls_.size(); ++i) {
        const bool isSameCall = calls_[i].name == call.name && calls_[i].inChild == call.inChild;
        const bool isInMissingDirectory =
            call.kind == CallKind::makeDirectory && calls_[i].path.starts_with(call.path + "/");
        if (isSameCall || isInMissingDirectory) {
            affected.purposes.insert(purposeOf(i));
        }
    }
    if (affected.has(Purpose::pollRecord)) {
        // What prevented the file of records still does.
        affected.purposes.insert(Purpose::effectiveRecord);
    }
    return affected;
}

/// Old, new, or waiting to be moved into place. What cannot be affected is new, and without a new
/// policy no new capture policy can be derived.
bool CycleModel::mayHave(File file, const Outcome& outcome, const Affected& affected) const {
    const int version = outcome.versions.at(file);
    const bool isOld = version == known() || (version == absent && file != File::capture);
    if (file == File::capture && outcome.versions.at(File::policy) != offered) {
        return version == known();
    }
    const bool mayBeOld = affected.has(writingOf(file)) ||
                          (file == File::capture && affected.has(Purpose::policyReading));
    return version == offered || (isOld && mayBeOld);
}

/// The log of a cycle that left the files like this.
std::vector<CycleModel::LogLine> CycleModel::expectedLog(const Outcome& outcome,
                                                         const Affected& affected) {
    std::vector<LogLine> lines;
    const auto expectFailure = [&](File file, bool mayBeMissing) {
        if (outcome.versions.at(file) != offered) {
            lines.push_back({failureLine(file) + affected.reason(), mayBeMissing});
        }
    };
    expectFailure(File::policy, affected.isMute());
    expectFailure(File::tag, affected.isMute());
    lines.push_back({updatedLine(), affected.has(Purpose::updatedLine)});
    expectFailure(File::effective, affected.isMute());
    lines.push_back({effectiveLine(), affected.has(Purpose::effectiveLine)});
    if (outcome.versions.at(File::policy) == offered) {
        expectFailure(File::capture, affected.isMute() || affected.has(Purpose::policyReading));
    }
    if (outcome.versions.at(File::capture) == offered) {
        lines.push_back({captureLine(), affected.has(Purpose::captureLine)});
    }
    if (affected.has(Purpose::profile)) {
        lines.push_back({noProfileLine(), true});
    }
    return lines;
}

/// A record may be lost, cut short by a failed write, or be alone in a new file when the old one
/// could not be opened.
std::set<std::string> CycleModel::possibleActivity(const Affected& affected) const {
    std::set<std::string> possible{initial_ == InitialState::nextPolicy ? "old$" : ""};
    for (const auto& [purpose, name] :
         {std::pair(Purpose::pollRecord, std::string("poll")),
          std::pair(Purpose::effectiveRecord, std::string("effective"))}) {
        std::set<std::string> next;
        for (const std::string& earlier : possible) {
            next.insert(earlier + name + "$");
            if (affected.has(purpose)) {
                next.insert(earlier);
                next.insert(affected.kind == CallKind::write ? earlier + name : earlier);
                next.insert(affected.kind == CallKind::open ? name + "$" : earlier);
            }
        }
        possible = next;
    }
    return possible;
}

/// The next poll is sent with the stored ETag, unless that could not be read.
bool CycleModel::mayBeSent(const Outcome& outcome, const Affected& affected) const {
    const int version = outcome.versions.at(File::tag);
    const auto stored =
        version == absent ? std::nullopt : std::optional(policyVersion(version).etag);
    return outcome.tag == stored || (affected.has(Purpose::tagReading) && !outcome.tag);
}

std::vector<std::string> CycleModel::brokenPromises(const Fault& fault,
                                                    const Outcome& outcome) const {
    const Affected affected = affectedBy(fault);
    if (fault.error == EINTR) {
        return outcome == goodOutcome()
                   ? std::vector<std::string>{}
                   : std::vector<std::string>{"an interrupted call is retried"};
    }
    std::vector<std::string> broken;
    for (const File file : allFiles) {
        if (!mayHave(file, outcome, affected)) {
            broken.push_back(pathOf(file) + " is old or new, and what did not fail is new");
        }
    }
    auto line = outcome.log.begin();
    for (const LogLine& expected : expectedLog(outcome, affected)) {
        if (line != outcome.log.end() && *line == expected.text) {
            ++line;
        } else if (!expected.mayBeMissing) {
            broken.push_back("it is logged: " + expected.text);
        }
    }
    if (line != outcome.log.end()) {
        broken.push_back("nothing else is logged, not: " + *line);
    }
    if (!possibleActivity(affected).contains(outcome.activity)) {
        broken.emplace_back("each exchange that could be recorded is");
    }
    if (!mayBeSent(outcome, affected)) {
        broken.emplace_back("the next poll is sent with the stored ETag");
    }
    const bool hasTool = initial_ == InitialState::firstPolicy;
    if (outcome.knowsUuid != hasTool && !affected.has(Purpose::uuid)) {
        broken.emplace_back("the hardware UUID is sent");
    }
    return broken;
}

Outcome CycleModel::goodOutcome() const {
    Outcome outcome;
    for (const File file : allFiles) {
        outcome.versions[file] = offered;
    }
    outcome.log = {updatedLine(), effectiveLine(), captureLine()};
    outcome.activity =
        initial_ == InitialState::nextPolicy ? "old$poll$effective$" : "poll$effective$";
    outcome.tag = policyVersion(offered).etag;
    outcome.knowsUuid = initial_ == InitialState::firstPolicy;
    return outcome;
}

std::map<File, int> CycleModel::versionsBefore(std::size_t index) const {
    std::map<File, int> versions;
    for (const File file : allFiles) {
        int& version = versions[file];
        version = known();
        for (std::size_t i = 0; i < index; ++i) {
            const Call& call = calls_.at(i);
            if (!call.failed && call.kind == CallKind::unlink && call.path == pathOf(file)) {
                version = absent;
            }
            if (!call.failed && call.kind == CallKind::rename && call.newPath == pathOf(file)) {
                version = offered;
            }
        }
    }
    return versions;
}

bool CycleModel::keepsPipeOpen(std::size_t index, Lasting lasting) const {
    const bool hasChild =
        std::any_of(calls_.begin(), calls_.end(), [](const Call& call) { return call.inChild; });
    if (!hasChild || calls_.at(index).kind != CallKind::close) {
        return false;
    }
    const std::size_t last = lasting == Lasting::once ? index + 1 : calls_.size();
    for (std::size_t i = index; i < last; ++i) {
        if (calls_[i].kind == CallKind::close && calls_[i].path == "pipe") {
            return true;
        }
    }
    return false;
}

}  // namespace orvane::test
