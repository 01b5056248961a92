#include "faults/named_faults.h"

#include "support/policy_versions.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>

namespace orvane::test {

namespace {

using Change = std::function<void(Outcome&)>;

std::string failure(File file, int error) {
    return failureLine(file) + std::generic_category().message(error);
}

void insertBefore(Outcome& outcome, const std::string& line, const std::string& added) {
    outcome.log.insert(std::find(outcome.log.begin(), outcome.log.end(), line), added);
}

void captureNotDerived(Outcome& outcome) {
    outcome.versions[File::capture] = before;
    std::erase(outcome.log, captureLine());
}

Change policyFailed(int version, int error) {
    return [=](Outcome& outcome) {
        outcome.versions[File::policy] = version;
        insertBefore(outcome, updatedLine(), failure(File::policy, error));
        captureNotDerived(outcome);
    };
}

Change tagFailed(int version, int error) {
    return [=](Outcome& outcome) {
        outcome.versions[File::tag] = version;
        outcome.tag = version == absent ? std::nullopt : std::optional(policyVersion(version).etag);
        insertBefore(outcome, updatedLine(), failure(File::tag, error));
    };
}

Change effectiveFailed(int version, int error) {
    return [=](Outcome& outcome) {
        outcome.versions[File::effective] = version;
        insertBefore(outcome, effectiveLine(), failure(File::effective, error));
    };
}

Change captureFailed(int error) {
    return [=](Outcome& outcome) {
        captureNotDerived(outcome);
        outcome.log.push_back(failure(File::capture, error));
    };
}

Change activityIs(const std::string& activity) {
    return [=](Outcome& outcome) { outcome.activity = activity; };
}

Change lineIsLost(const std::string& line) {
    return [=](Outcome& outcome) { std::erase(outcome.log, line); };
}

void profileIsMissing(Outcome& outcome) {
    outcome.log.push_back(noProfileLine());
}

void tagIsNotSent(Outcome& outcome) {
    outcome.tag = std::nullopt;
}

void uuidIsMissing(Outcome& outcome) {
    outcome.knowsUuid = false;
}

/// No policy was there before, either.
Change nothingIsStored(int error) {
    return [=](Outcome& outcome) {
        for (const File file : allFiles) {
            outcome.versions[file] = absent;
        }
        outcome.log = {failure(File::policy, error), failure(File::tag, error), updatedLine(),
                       failure(File::effective, error), effectiveLine()};
        outcome.activity.clear();
        outcome.tag = std::nullopt;
    };
}

std::vector<NamedFault> faultsOfAFirstPolicy() {
    return {{.name = "the directory cannot be created",
             .kind = CallKind::makeDirectory,
             .path = "home/.orvane",
             .error = EACCES,
             .lasting = Lasting::fromThenOn,
             .change = nothingIsStored(EACCES)},
            {.name = "the directory cannot be created at first",
             .kind = CallKind::makeDirectory,
             .path = "home/.orvane",
             .error = EACCES,
             .change = activityIs("effective$")},
            {.name = "there is no pipe for the hardware registry tool",
             .kind = CallKind::process,
             .path = "",
             .error = EMFILE,
             .change = uuidIsMissing},
            {.name = "the end of the hardware registry tool cannot be awaited",
             .kind = CallKind::process,
             .path = "",
             .call = "wait4"}};
}

std::vector<NamedFault> faultsOfANextPolicy() {
    const std::string policyTmp = pathOf(File::policy) + ".tmp";
    const std::string tagTmp = pathOf(File::tag) + ".tmp";
    const std::string effectiveTmp = pathOf(File::effective) + ".tmp";
    const std::string capture = pathOf(File::capture);
    return {
        {.name = "the policy's scratch file cannot be created",
         .kind = CallKind::open,
         .path = scratchOf(policyTmp),
         .error = EACCES,
         .change = policyFailed(before, EACCES)},
        {.name = "the disk is full",
         .kind = CallKind::write,
         .path = scratchOf(policyTmp),
         .error = ENOSPC,
         .change = policyFailed(before, ENOSPC)},
        {.name = "the policy cannot be flushed",
         .kind = CallKind::sync,
         .path = scratchOf(policyTmp),
         .change = policyFailed(before, EIO)},
        {.name = "the policy's last bytes are refused",
         .kind = CallKind::close,
         .path = scratchOf(policyTmp),
         .error = EDQUOT,
         .change = policyFailed(before, EDQUOT)},
        {.name = "the policy's scratch file cannot be renamed",
         .kind = CallKind::rename,
         .path = scratchOf(policyTmp),
         .change = policyFailed(before, EIO)},
        {.name = "the old policy cannot be removed",
         .kind = CallKind::unlink,
         .path = pathOf(File::policy),
         .error = EACCES,
         .change = policyFailed(before, EEXIST)},
        {.name = "the policy is not moved into place",
         .kind = CallKind::rename,
         .path = policyTmp,
         .change = policyFailed(absent, EIO)},
        {.name = "a directory cannot be opened", .kind = CallKind::open, .path = "home/.orvane"},
        {.name = "a directory's status is unknown", .kind = CallKind::stat, .path = "home/.orvane"},
        {.name = "a directory cannot be flushed", .kind = CallKind::sync, .path = "home/.orvane"},
        {.name = "the ETag cannot be written",
         .kind = CallKind::write,
         .path = scratchOf(tagTmp),
         .error = ENOSPC,
         .change = tagFailed(before, ENOSPC)},
        {.name = "the ETag is not moved into place",
         .kind = CallKind::rename,
         .path = tagTmp,
         .change = tagFailed(absent, EIO)},
        {.name = "the effective configuration is not moved into place",
         .kind = CallKind::rename,
         .path = effectiveTmp,
         .change = effectiveFailed(absent, EIO)},
        {.name = "the capture policy cannot be written",
         .kind = CallKind::write,
         .path = scratchOf(capture),
         .error = ENOSPC,
         .change = captureFailed(ENOSPC)},
        {.name = "the capture policy's mode cannot be set at first",
         .kind = CallKind::changeMode,
         .path = scratchOf(capture)},
        {.name = "the capture policy cannot be compared", .kind = CallKind::open, .path = capture},
        {.name = "the policy cannot be read again",
         .kind = CallKind::open,
         .path = pathOf(File::policy),
         .change = captureNotDerived},
        {.name = "the activity log cannot be opened",
         .kind = CallKind::open,
         .path = activityLogFile,
         .change = activityIs("poll$effective$")},
        {.name = "a record cannot be written",
         .kind = CallKind::write,
         .path = activityLogFile,
         .error = ENOSPC,
         .change = activityIs("old$effective$")},
        {.name = "a line cannot be logged",
         .kind = CallKind::write,
         .path = "stderr",
         .change = lineIsLost(updatedLine())},
        {.name = "the enrollment cannot be read",
         .kind = CallKind::open,
         .path = enrollmentFile,
         .change = profileIsMissing},
        {.name = "the ETag cannot be read",
         .kind = CallKind::open,
         .path = pathOf(File::tag),
         .change = tagIsNotSent}};
}

}  // namespace

Fault NamedFault::in(const CycleModel& model) const {
    const auto& calls = model.calls();
    const auto found = std::find_if(calls.begin(), calls.end(), [this](const Call& made) {
        return made.kind == kind && made.path == path && (call.empty() || made.name == call) &&
               !made.inChild;
    });
    if (found == calls.end()) {
        throw std::runtime_error(std::string("there is no call for: ") + name);
    }
    return {static_cast<std::size_t>(found - calls.begin()), error, lasting};
}

std::vector<NamedFault> namedFaults(InitialState initial) {
    return initial == InitialState::firstPolicy ? faultsOfAFirstPolicy() : faultsOfANextPolicy();
}

}  // namespace orvane::test
