#include "faults/cycle_model.h"

#include "support/policy_versions.h"

#include <algorithm>
#include <array>
#include <cerrno>
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

/// The effect of its failure.
enum class CycleModel::Effect {
    fine,
    lost,      ///< as if it had never been tried, and not logged
    kept,      ///< the file is as it was, and an error line says so
    inTheWay,  ///< the same, because the old file could not be removed
    gone,      ///< an error line, and no file but the .tmp next to it
    unended,   ///< a record without its line feed
    replaced,  ///< a record that is now the only one
};

namespace {

constexpr std::string_view orvane = "home/.orvane";

/// Of a path that is neither one of these nor the name of a known file, nothing is stated.
constexpr std::array<std::string_view, 6> directories{
    "home", orvane, "home/.orvane/logs", "private", "private/tmp", "private/tmp/dev.orvane.setup"};

bool isDirectory(std::string_view path) {
    return std::find(directories.begin(), directories.end(), path) != directories.end();
}

/// The file that `path`, or a file that is to take its place, is about.
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

std::size_t CycleModel::logLinesBefore(std::size_t index) const {
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.begin() + static_cast<std::ptrdiff_t>(index),
                      [](const Call& call) { return call.path == "stderr"; }));
}

/// Whether the call before is of `kind` on the same file.
bool CycleModel::follows(std::size_t index, CallKind kind) const {
    return index > 0 && calls_[index - 1].kind == kind &&
           calls_[index - 1].path == calls_[index].path;
}

CycleModel::Purpose CycleModel::purposeOf(std::size_t index) const {
    const Call& call = calls_.at(index);
    const std::size_t lines = logLinesBefore(index);
    if (call.path == "stderr") {
        return lines == 0   ? Purpose::updatedLine
               : lines == 1 ? Purpose::effectiveLine
                            : Purpose::captureLine;
    }
    if (call.kind == CallKind::process || call.path == "pipe" || call.path.ends_with("/ioreg") ||
        call.path.ends_with("/machine-id")) {
        return Purpose::uuid;
    }
    if (call.path.starts_with("home/.orvane/logs")) {
        return lines == 0 ? Purpose::pollRecord : Purpose::effectiveRecord;
    }
    if (call.path.ends_with("enroll-config.json")) {
        return Purpose::profile;
    }
    if (call.path == "/proc/self/fd") {
        return Purpose::captureReading;
    }
    if (isDirectory(call.path)) {
        // It is created before the file in it, and flushed after it.
        const bool comesBefore =
            call.kind == CallKind::stat || call.kind == CallKind::makeDirectory;
        return purposeOf(comesBefore ? index + 1 : index - 1);
    }
    const auto file = fileOf(call.path);
    const bool isReading =
        file && call.path == pathOf(*file) && (call.byDescriptor || call.kind == CallKind::open);
    if (file == File::policy) {
        return isReading ? Purpose::policyReading : Purpose::policy;
    }
    if (file == File::tag) {
        return isReading ? Purpose::tagReading : Purpose::tag;
    }
    if (file == File::effective && !isReading) {
        return Purpose::effective;
    }
    if (file == File::capture) {
        return isReading ? Purpose::captureReading : Purpose::capture;
    }
    nothingIsSaidAbout(call);
}

/// Steps: scratch file, ".tmp"; remove the old one; put ".tmp" in its place. The directory is
/// flushed where that is possible.
CycleModel::Effect CycleModel::effectOfFile(std::size_t index, Lasting lasting) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    switch (call.kind) {
        case CallKind::stat:
            // A directory whose status is unknown is created; only if its status stays unknown does
            // it count as missing.
            return onDirectory && lasting == Lasting::fromThenOn ? Effect::kept : Effect::fine;
        case CallKind::open:
        case CallKind::sync:  // of a directory, it is no failure of the write
        case CallKind::close:
            return onDirectory ? Effect::fine : Effect::kept;
        case CallKind::write:
        case CallKind::changeMode:
            return Effect::kept;
        case CallKind::rename:
            return isScratch(call.path) ? Effect::kept : Effect::gone;
        case CallKind::unlink:
            return call.failed ? Effect::fine : Effect::inTheWay;
        default:
            nothingIsSaidAbout(call);
    }
}

CycleModel::Effect CycleModel::effectOfCapture(std::size_t index) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    switch (call.kind) {
        case CallKind::stat:
        case CallKind::makeDirectory:
            return Effect::fine;
        case CallKind::open:
        case CallKind::sync:  // of a directory, it is no failure of the write
        case CallKind::close:
            return onDirectory ? Effect::fine : Effect::kept;
        case CallKind::changeMode:
            return Effect::fine;  // it is set twice, in different ways
        case CallKind::write:
        case CallKind::rename:
            return Effect::kept;
        default:
            nothingIsSaidAbout(call);
    }
}

/// A record is appended to the file; a file that cannot be opened is replaced by a new one.
CycleModel::Effects CycleModel::effectsOfRecord(std::size_t index, Purpose purpose,
                                                Lasting lasting) const {
    const Call& call = calls_.at(index);
    const bool onDirectory = isDirectory(call.path);
    const bool isFirstFile =
        initial_ == InitialState::firstPolicy && purpose == Purpose::pollRecord;
    Effects effects{{purpose, Effect::lost}};
    if (isFirstFile && lasting == Lasting::fromThenOn) {
        effects[Purpose::effectiveRecord] = Effect::lost;  // it does not find the file either
    }
    switch (call.kind) {
        case CallKind::stat:
        case CallKind::makeDirectory:
            if (!onDirectory || purpose == Purpose::effectiveRecord || !isFirstFile) {
                return {};
            }
            if (lasting == Lasting::fromThenOn && call.path == orvane &&
                call.kind == CallKind::makeDirectory) {
                effects.insert({{Purpose::policy, Effect::kept},
                                {Purpose::tag, Effect::kept},
                                {Purpose::effective, Effect::kept}});
            }
            return effects;
        case CallKind::open:
            if (onDirectory || (call.failed && !isScratch(call.path))) {
                return {};
            }
            if (!isScratch(call.path) && lasting == Lasting::once) {
                effects[purpose] = Effect::replaced;
            }
            return effects;
        case CallKind::write:
            if (follows(index, CallKind::write)) {
                effects[purpose] = Effect::unended;
            }
            return effects;
        case CallKind::sync:
            return onDirectory ? Effects() : effects;
        case CallKind::close:
            return isScratch(call.path) ? effects : Effects();
        case CallKind::rename:
            return effects;
        default:
            nothingIsSaidAbout(call);
    }
}

/// The tool's output is read until its end, which it has reached when there was any. Without
/// close_range(2) the C library closes descriptors one by one.
CycleModel::Effect CycleModel::effectOfUuid(std::size_t index) const {
    const Call& call = calls_.at(index);
    const bool isEnd = call.kind == CallKind::read && follows(index, CallKind::read);
    const bool isHarmless =
        isEnd || call.kind == CallKind::close || call.name == "wait4" || call.name == "close_range";
    return isHarmless ? Effect::fine : Effect::lost;
}

CycleModel::Effects CycleModel::effectsOf(std::size_t index, Lasting lasting) const {
    const Call& call = calls_.at(index);
    const Purpose purpose = purposeOf(index);
    switch (purpose) {
        case Purpose::policy:
        case Purpose::tag:
        case Purpose::effective:
            return {{purpose, effectOfFile(index, lasting)}};
        case Purpose::capture:
            return {{purpose, effectOfCapture(index)}};
        case Purpose::pollRecord:
        case Purpose::effectiveRecord:
            return effectsOfRecord(index, purpose, lasting);
        case Purpose::uuid:
            return {{purpose, effectOfUuid(index)}};
        case Purpose::captureReading:
            return {};  // what cannot be compared is written again
        case Purpose::updatedLine:
        case Purpose::effectiveLine:
        case Purpose::captureLine:
            return {{purpose, Effect::lost}};
        case Purpose::policyReading:
        case Purpose::profile:
        case Purpose::tagReading:
            break;
    }
    return {{purpose, call.kind == CallKind::close ? Effect::fine : Effect::lost}};
}

Outcome CycleModel::goodOutcome() const {
    return outcomeOf({}, 0);
}

Outcome CycleModel::outcomeWith(const Fault& fault) const {
    Effects effects = effectsOf(fault.index, fault.lasting);
    if (fault.error == EINTR) {
        return goodOutcome();
    }
    if (fault.lasting == Lasting::once) {
        return outcomeOf(effects, fault.error);
    }
    const Call& call = calls_.at(fault.index);
    for (std::size_t i = fault.index; i < calls_.size(); ++i) {
        if (calls_[i].name == call.name && calls_[i].inChild == call.inChild) {
            for (const auto& [purpose, effect] : effectsOf(i, fault.lasting)) {
                if (!effects.contains(purpose) || effects.at(purpose) == Effect::fine) {
                    effects[purpose] = effect;
                }
            }
        }
    }
    Outcome outcome = outcomeOf(effects, fault.error);
    if (call.kind == CallKind::write) {
        // Log lines are written too.
        outcome.log.resize(std::min(outcome.log.size(), logLinesBefore(fault.index)));
    }
    return outcome;
}

Outcome CycleModel::outcomeOf(const Effects& effects, int error) const {
    const auto effectOf = [&](Purpose purpose) {
        const auto found = effects.find(purpose);
        return found == effects.end() ? Effect::fine : found->second;
    };
    const auto reason = [&](Effect effect) {
        return std::generic_category().message(effect == Effect::inTheWay ? EEXIST : error);
    };
    Outcome outcome;
    const auto settle = [&](File file, Purpose purpose, const std::string& complaint) {
        const Effect effect = effectOf(purpose);
        const bool isKept =
            effect == Effect::kept || effect == Effect::inTheWay || effect == Effect::lost;
        outcome.versions[file] = isKept ? known() : effect == Effect::gone ? absent : offered;
        if (effect != Effect::fine && effect != Effect::lost) {
            outcome.log.push_back("error " + complaint + " failed: " + reason(effect));
        }
    };
    const auto settleFile = [&](File file, Purpose purpose) {
        settle(file, purpose, "atomic write to /" + pathOf(file));
    };
    const auto expect = [&](Purpose purpose, const std::string& line) {
        if (effectOf(purpose) == Effect::fine) {
            outcome.log.push_back(line);
        }
    };
    const auto record = [&](Purpose purpose, const std::string& name) {
        const Effect effect = effectOf(purpose);
        if (effect == Effect::replaced) {
            outcome.activity.clear();
        }
        if (effect != Effect::lost) {
            outcome.activity += name + (effect == Effect::unended ? "" : "$");
        }
    };

    outcome.activity = initial_ == InitialState::nextPolicy ? "old$" : "";
    record(Purpose::pollRecord, "poll");
    settleFile(File::policy, Purpose::policy);
    settleFile(File::tag, Purpose::tag);
    expect(Purpose::updatedLine, updatedLine());
    record(Purpose::effectiveRecord, "effective");
    settleFile(File::effective, Purpose::effective);
    expect(Purpose::effectiveLine, effectiveLine());
    if (outcome.versions[File::policy] == offered &&
        effectOf(Purpose::policyReading) == Effect::fine) {
        settle(File::capture, Purpose::capture, "capture-policy write");
        if (effectOf(Purpose::capture) == Effect::fine) {
            expect(Purpose::captureLine,
                   "default capture-policy applied from guard cascade: enabled=true hosts=1 "
                   "suppress_ech=false");
        }
    } else {
        outcome.versions[File::capture] = known();  // nothing new can be derived
    }
    if (effectOf(Purpose::profile) != Effect::fine) {
        outcome.log.push_back("default No usable profile — sleeping 30s and retrying");
    }
    const int tag = outcome.versions[File::tag];
    // The search for a profile ends when the fault does, and with it what spoils the next read.
    const bool isRead =
        effectOf(Purpose::tagReading) == Effect::fine || effectOf(Purpose::profile) != Effect::fine;
    if (tag != absent && isRead) {
        outcome.tag = policyVersion(tag).etag;
    }
    outcome.knowsUuid =
        initial_ == InitialState::firstPolicy && effectOf(Purpose::uuid) == Effect::fine;
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
