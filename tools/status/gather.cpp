#include "status/gather.h"

#include "guard/capture_policy.h"
#include "platform/files/file_status.h"
#include "platform/files/files.h"
#include "platform/json/json_reader.h"
#include "platform/machine/accounts.h"
#include "platform/machine/clock.h"
#include "platform/machine/paths.h"
#include "status/service.h"
#include "status/source.h"

#include <filesystem>

namespace orvane::status {

namespace {

std::optional<std::string> tagIn(std::string_view text) {
    const auto members = json::readObject(text, {"etag"});
    return members ? members->nonEmptyString("etag") : std::nullopt;
}

std::optional<Time> storedAt(const std::filesystem::path& file) {
    const auto status = fileStatus(file);
    return status ? std::optional<Time>(status->modifiedAt) : std::nullopt;
}

Policy policyIn(const std::filesystem::path& directory, const std::optional<std::string>& text) {
    const auto tagFile = files::read(directory / "policy-etag.json");
    const auto status = fileStatus(directory / "policy.json");
    Policy policy;
    policy.tag = tagFile ? tagIn(*tagFile) : std::nullopt;
    if (status) {
        policy.isThere = true;
        policy.bytes = static_cast<std::int64_t>(status->size);
        policy.storedAt = status->modifiedAt;
    }
    if (text && json::readObject(*text, {})) {
        policy.isUsable = true;
        policy.ownTag = tagIn(*text);
    }
    return policy;
}

bool canOthers(unsigned what, const std::filesystem::path& file) {
    const auto status = fileStatus(file);
    return !status || (status->mode & what) == what;
}

Capture captureFor(const std::string& policy) {
    constexpr unsigned readByOthers = 04;
    constexpr unsigned searchByOthers = 01;
    const auto directory = paths::setupDirectory();
    const auto file = directory / "capture-policy.json";
    const auto status = fileStatus(file);
    Capture capture;
    capture.isReadableByOthers =
        canOthers(readByOthers, file) && canOthers(searchByOthers, directory);
    if (status && status->owner != ownUser()) {
        capture.owner = accountName(status->owner);
    }
    if (const auto wanted = guard::deriveCapturePolicy(policy)) {
        capture.enabled = wanted->enabled;
        capture.hosts = static_cast<std::int64_t>(wanted->interceptHosts.size());
        capture.state = !status ? CaptureState::missing
                        : status->isRegular && guard::isUpToDate(file, *wanted)
                            ? CaptureState::inStep
                            : CaptureState::different;
    }
    return capture;
}

}  // namespace

Facts gatherFacts() {
    const auto directory = paths::orvaneDirectory();
    Facts facts;
    facts.account = accountName(ownUser());
    facts.service = askServiceManager();
    facts.now = clock::sinceEpoch();
    {
        const auto text = files::read(directory / "policy.json");  // it may be large
        facts.policy = policyIn(directory, text);
        facts.capture = captureFor(text.value_or(""));
    }
    const auto policyStoredAt =
        facts.policy.isThere ? std::optional(facts.policy.storedAt) : std::nullopt;
    auto logged = readHistory(directory / "logs", policyStoredAt, facts.now);
    facts.history = std::move(logged.history);
    facts.isLogReadable = logged.isReadable;
    facts.effectiveStoredAt = storedAt(directory / "guard-effective.json");
    facts.source = currentSource(facts.history.lastPoll);
    facts.freeBytes = freeBytesAt(directory);
    return facts;
}

}  // namespace orvane::status
