#include "daemon/policy_runner.h"
#include "platform/files/files.h"
#include "platform/json/json.h"

#include <initializer_list>

namespace orvane {

namespace {

/// The version tag's name, in the policy as in the tag's own file.
constexpr std::string_view etagKey = "etag";

}  // namespace

std::optional<std::string> PolicyRunner::loadEtag() const {
    const auto content = files::read(etagPath);
    const auto members = content ? json::readObject(*content, {etagKey}) : std::nullopt;
    return members ? members->string(etagKey) : std::nullopt;
}

void PolicyRunner::handleUpdated(std::optional<std::string> data, const Profile& profile) {
    if (!data || data->empty()) {
        logger.error("200 with no body — skipping write");
        return;
    }
    const auto policy = json::readObject(*data, {etagKey});
    if (!policy) {
        logger.error("Couldn't parse policy JSON — skipping write");
        return;
    }
    hasReceivedPolicy_ = true;
    // The policy first: a stop between the two leaves the older tag, which at worst brings the same
    // policy again.
    atomicWrite(*data, policyPath);
    if (const auto etag = policy->nonEmptyString(etagKey)) {
        const json::Member member{etagKey, *etag};
        atomicWrite(json::writeObject({&member, 1}), etagPath);
    }
    logger.log("policy updated (%{public}ld bytes)", static_cast<std::int64_t>(data->size()));
    data.reset();  // it may be large, and the next answer may be long in coming
    fetchEffective(profile);
}

}  // namespace orvane
