#include "daemon/policy_store.h"

#include "platform/files/files.h"
#include "platform/json/json_reader.h"
#include "platform/json/json_writer.h"

namespace orvane {

namespace {

/// The ETag's name, in the policy and in the ETag's own file.
constexpr std::string_view etagKey = "etag";

}  // namespace

std::optional<PolicyContent> readPolicy(std::string_view text) {
    const auto policy = json::readObject(text, {etagKey});
    if (!policy) {
        return std::nullopt;
    }
    return PolicyContent{.etag = policy->nonEmptyString(etagKey)};
}

std::optional<std::string> readEtagFile(const std::filesystem::path& file) {
    const auto content = files::read(file);
    const auto members = content ? json::readObject(*content, {etagKey}) : std::nullopt;
    return members ? members->string(etagKey) : std::nullopt;
}

std::string etagFileText(std::string_view etag) {
    const json::Field member{etagKey, etag};
    return json::writeObject({&member, 1});
}

}  // namespace orvane
