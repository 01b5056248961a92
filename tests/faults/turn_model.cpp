#include "faults/turn_model.h"

#include "support/policy_versions.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace orvane::test {

namespace fs = std::filesystem;

/// What a call is made for.
enum class TurnModel::Subject {
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

/// What becomes of it.
enum class TurnModel::Fate {
    fine,
    lost,      ///< as if it had never been tried, and in silence
    kept,      ///< the file is as it was, and an error line says so
    inTheWay,  ///< the same, because the old file could not be removed
    gone,      ///< an error line, and no file but the one beside it
    unended,   ///< a record without its line end
    replaced,  ///< a record that is now the only one
};

namespace {

constexpr const char* orvane = "home/.orvane";

bool isDirectory(const std::string& path) {
    return fs::path(path).extension().empty() || path == orvane || path.ends_with(".setup");
}

/// The file that `path`, or a file that is to take its place, stands for.
std::optional<File> fileOf(const std::string& path) {
    const std::string name = fs::path(path).filename();
    const std::string plain = name.starts_with(".") ? name.substr(1) : name;
    for (const File file : allFiles) {
        if (plain.starts_with(fs::path(pathOf(file)).filename().string())) {
            return file;
        }
    }
    return std::nullopt;
}

bool isScratch(const std::string& path) {
    return path.ends_with(".tmp") && fs::path(path).filename().string().starts_with(".");
}

[[noreturn]] void nothingIsSaidAbout(const Call& call) {
    throw std::runtime_error("nothing is said about " + describe(call));
}

std::string updatedLine() {
    return "default policy updated (" + std::to_string(policyVersion(offered).policy.size()) +
           " bytes)";
}

std::string effectiveLine() {
    return "default effective config updated (" +
           std::to_string(policyVersion(offered).effective.size()) + " bytes)";
}

}  // namespace

std::size_t TurnModel::logLinesBefore(std::size_t index) const {
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.begin() + static_cast<std::ptrdiff_t>(index),
                      [](const Call& call) { return call.path == "stderr"; }));
}

/// Whether the call before is of `kind` on the same file.
bool TurnModel::follows(std::size_t index, CallKind kind) const {
    return index > 0 && calls_[index - 1].kind == kind &&
           calls_[index - 1].path == calls_[index].path;
}

TurnModel::Subject TurnModel::subjectOf(std::size_t index) const {
    const Call& call = calls_.at(index);
    const std::size_t lines = logLinesBefore(index);
    if (call.path == "stderr") {
        return lines == 0   ? Subject::updatedLine
               : lines == 1 ? Subject::effectiveLine
                            : Subject::captureLine;
    }
    if (call.kind == CallKind::process || call.path == "pipe" || call.path.ends_with("/ioreg") ||
        call.path.ends_with("/machine-id")) {
        return Subject::uuid;
    }
    if (call.path.starts_with("home/.orvane/logs")) {
        return lines == 0 ? Subject::pollRecord : Subject::effectiveRecord;
    }
    if (call.path.ends_with("enroll-config.json")) {
        return Subject::profile;
    }
    if (call.path == "/proc/self/fd") {
        return Subject::captureReading;
    }
    if (isDirectory(call.path)) {
        // It is made before the file in it, and flushed behind.
        const bool comesBefore =
            call.kind == CallKind::stat || call.kind == CallKind::makeDirectory;
        return subjectOf(comesBefore ? index + 1 : index - 1);
    }
    const auto file = fileOf(call.path);
    const bool isReading =
        file && call.path == pathOf(*file) && (call.byDescriptor || call.kind == CallKind::open);
    if (file == File::policy) {
        return isReading ? Subject::policyReading : Subject::policy;
    }
    if (file == File::tag) {
        return isReading ? Subject::tagReading : Subject::tag;
    }
    if (file == File::effective && !isReading) {
        return Subject::effective;
    }
    if (file == File::capture) {
        return isReading ? Subject::captureReading : Subject::capture;
    }
    nothingIsSaidAbout(call);
}

/// Steps: scratch file, ".tmp"; remove the old one; put ".tmp" in its place. The directory is
/// flushed where that is possible.
TurnModel::Fate TurnModel::fateOfFile(std::size_t index, Lasting lasting) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    switch (call.kind) {
        case CallKind::stat:
            // A directory that cannot be seen is made; only when that cannot be seen either, it
            // counts as missing.
            return onDirectory && lasting == Lasting::fromThenOn ? Fate::kept : Fate::fine;
        case CallKind::open:
        case CallKind::sync:  // of a directory, it is no failure of the write
        case CallKind::close:
            return onDirectory ? Fate::fine : Fate::kept;
        case CallKind::write:
        case CallKind::changeMode:
            return Fate::kept;
        case CallKind::rename:
            return isScratch(call.path) ? Fate::kept : Fate::gone;
        case CallKind::unlink:
            return call.failed ? Fate::fine : Fate::inTheWay;
        default:
            nothingIsSaidAbout(call);
    }
}

TurnModel::Fate TurnModel::fateOfCapture(std::size_t index) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    switch (call.kind) {
        case CallKind::stat:
        case CallKind::makeDirectory:
            return Fate::fine;
        case CallKind::open:
        case CallKind::sync:  // of a directory, it is no failure of the write
        case CallKind::close:
            return onDirectory ? Fate::fine : Fate::kept;
        case CallKind::changeMode:
            return Fate::fine;  // it is set twice, in different ways
        case CallKind::write:
        case CallKind::rename:
            return Fate::kept;
        default:
            nothingIsSaidAbout(call);
    }
}

/// A record is appended to the file; a file that cannot be opened is written anew as a whole.
TurnModel::Fates TurnModel::fatesOfRecord(std::size_t index, Subject subject,
                                          Lasting lasting) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    const bool isFirstFile = begin_ == Begin::firstPolicy && subject == Subject::pollRecord;
    Fates fates{{subject, Fate::lost}};
    if (isFirstFile && lasting == Lasting::fromThenOn) {
        fates[Subject::effectiveRecord] = Fate::lost;  // it does not find the file either
    }
    switch (call.kind) {
        case CallKind::stat:
        case CallKind::makeDirectory:
            if (!onDirectory || subject == Subject::effectiveRecord || !isFirstFile) {
                return {};
            }
            if (lasting == Lasting::fromThenOn && call.path == orvane &&
                call.kind == CallKind::makeDirectory) {
                fates.insert({{Subject::policy, Fate::kept},
                              {Subject::tag, Fate::kept},
                              {Subject::effective, Fate::kept}});
            }
            return fates;
        case CallKind::open:
            if (onDirectory || (call.failed && !isScratch(call.path))) {
                return {};
            }
            if (!isScratch(call.path) && lasting == Lasting::once) {
                fates[subject] = Fate::replaced;
            }
            return fates;
        case CallKind::write:
            if (follows(index, CallKind::write)) {
                fates[subject] = Fate::unended;
            }
            return fates;
        case CallKind::sync:
            return onDirectory ? Fates() : fates;
        case CallKind::close:
            return isScratch(call.path) ? fates : Fates();
        case CallKind::rename:
            return fates;
        default:
            nothingIsSaidAbout(call);
    }
}

/// The tool's output is read until its end, which it has reached when there was any. Without
/// close_range(2) the C library closes descriptors one by one.
TurnModel::Fate TurnModel::fateOfUuid(std::size_t index) const {
    const Call& call = calls_.at(index);
    const bool isEnd = call.kind == CallKind::read && follows(index, CallKind::read);
    const bool isHarmless =
        isEnd || call.kind == CallKind::close || call.name == "wait4" || call.name == "close_range";
    return isHarmless ? Fate::fine : Fate::lost;
}

TurnModel::Fates TurnModel::fatesOf(std::size_t index, Lasting lasting) const {
    const Call& call = calls_.at(index);
    const Subject subject = subjectOf(index);
    switch (subject) {
        case Subject::policy:
        case Subject::tag:
        case Subject::effective:
            return {{subject, fateOfFile(index, lasting)}};
        case Subject::capture:
            return {{subject, fateOfCapture(index)}};
        case Subject::pollRecord:
        case Subject::effectiveRecord:
            return fatesOfRecord(index, subject, lasting);
        case Subject::uuid:
            return {{subject, fateOfUuid(index)}};
        case Subject::captureReading:
            return {};  // what cannot be compared is written anew
        case Subject::updatedLine:
        case Subject::effectiveLine:
        case Subject::captureLine:
            return {{subject, Fate::lost}};
        case Subject::policyReading:
        case Subject::profile:
        case Subject::tagReading:
            break;
    }
    return {{subject, call.kind == CallKind::close ? Fate::fine : Fate::lost}};
}

Outcome TurnModel::goodOutcome() const {
    return outcomeOf({}, 0);
}

Outcome TurnModel::outcomeWith(const Fault& fault) const {
    Fates fates = fatesOf(fault.index, fault.lasting);
    if (fault.error == EINTR) {
        return goodOutcome();
    }
    if (fault.lasting == Lasting::once) {
        return outcomeOf(fates, fault.error);
    }
    const Call& call = calls_.at(fault.index);
    for (std::size_t i = fault.index; i < calls_.size(); ++i) {
        if (calls_[i].name == call.name && calls_[i].inChild == call.inChild) {
            for (const auto& [subject, fate] : fatesOf(i, fault.lasting)) {
                if (!fates.contains(subject) || fates.at(subject) == Fate::fine) {
                    fates[subject] = fate;
                }
            }
        }
    }
    Outcome outcome = outcomeOf(fates, fault.error);
    if (call.kind == CallKind::write) {
        // Log lines are written too.
        outcome.log.resize(std::min(outcome.log.size(), logLinesBefore(fault.index)));
    }
    return outcome;
}

Outcome TurnModel::outcomeOf(const Fates& fates, int error) const {
    const auto fateOf = [&](Subject subject) {
        const auto found = fates.find(subject);
        return found == fates.end() ? Fate::fine : found->second;
    };
    const auto reason = [&](Fate fate) {
        return std::generic_category().message(fate == Fate::inTheWay ? EEXIST : error);
    };
    Outcome outcome;
    const auto settle = [&](File file, Subject subject, const std::string& complaint) {
        const Fate fate = fateOf(subject);
        const bool isKept = fate == Fate::kept || fate == Fate::inTheWay || fate == Fate::lost;
        outcome.versions[file] = isKept ? known() : fate == Fate::gone ? absent : offered;
        if (fate != Fate::fine && fate != Fate::lost) {
            outcome.log.push_back("error " + complaint + " failed: " + reason(fate));
        }
    };
    const auto settleFile = [&](File file, Subject subject) {
        settle(file, subject, "atomic write to /" + pathOf(file));
    };
    const auto tell = [&](Subject subject, const std::string& line) {
        if (fateOf(subject) == Fate::fine) {
            outcome.log.push_back(line);
        }
    };
    const auto record = [&](Subject subject, const std::string& name) {
        const Fate fate = fateOf(subject);
        if (fate == Fate::replaced) {
            outcome.activity.clear();
        }
        if (fate != Fate::lost) {
            outcome.activity += name + (fate == Fate::unended ? "" : "$");
        }
    };

    outcome.activity = begin_ == Begin::nextPolicy ? "old$" : "";
    record(Subject::pollRecord, "poll");
    settleFile(File::policy, Subject::policy);
    settleFile(File::tag, Subject::tag);
    tell(Subject::updatedLine, updatedLine());
    record(Subject::effectiveRecord, "effective");
    settleFile(File::effective, Subject::effective);
    tell(Subject::effectiveLine, effectiveLine());
    if (outcome.versions[File::policy] == offered && fateOf(Subject::policyReading) == Fate::fine) {
        settle(File::capture, Subject::capture, "capture-policy write");
        if (fateOf(Subject::capture) == Fate::fine) {
            tell(Subject::captureLine,
                 "default capture-policy applied from guard cascade: enabled=true hosts=1 "
                 "suppress_ech=false");
        }
    } else {
        outcome.versions[File::capture] = known();  // nothing new can be derived
    }
    if (fateOf(Subject::profile) != Fate::fine) {
        outcome.log.push_back("default No usable profile — sleeping 30s and retrying");
    }
    const int tag = outcome.versions[File::tag];
    // The search for a profile ends when the fault does, and with it what spoils the next read.
    const bool isRead =
        fateOf(Subject::tagReading) == Fate::fine || fateOf(Subject::profile) != Fate::fine;
    if (tag != absent && isRead) {
        outcome.tag = policyVersion(tag).etag;
    }
    outcome.knowsUuid = begin_ == Begin::firstPolicy && fateOf(Subject::uuid) == Fate::fine;
    return outcome;
}

std::map<File, int> TurnModel::versionsBefore(std::size_t index) const {
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

bool TurnModel::keepsPipeOpen(std::size_t index, Lasting lasting) const {
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
