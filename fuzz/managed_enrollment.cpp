// The managed enrollment file: what it says by another JSON library is the profile; a profile never
// lacks its key; a file with the profile's values gives the same profile.
#include "config/orvane_config.h"
#include "fuzz.h"
#include "json_model.h"
#include "platform/json/json_writer.h"
#include "platform/machine/paths.h"
#include "support/test_files.h"

#include <array>

namespace orvane::fuzz {

namespace {

using Profile = OrvaneConfig::Profile;

std::optional<Profile> profileFrom(std::string_view content) {
    static const std::filesystem::path root = rootDirectory();
    test::writeFile(paths::setupDirectory() / "enroll-config.json", content);
    return OrvaneConfig::managedProfile();
}

std::optional<Profile> profileIn(const JsonModel& model) {
    const auto apiUrl = model.nonEmptyString("api_url");
    const auto apiKey = model.nonEmptyString("api_key");
    return apiUrl && apiKey
               ? std::optional(Profile{"managed", *apiUrl, *apiKey, std::nullopt, std::nullopt})
               : std::nullopt;
}

std::string fileWith(const Profile& profile) {
    const std::array members{json::Field{"api_url", profile.apiUrl},
                             json::Field{"api_key", profile.apiKey}};
    return json::writeObject(members);
}

}  // namespace

void tryInput(std::string_view input) {
    const auto profile = profileFrom(input);
    const JsonModel model(input);
    check(!model.knowsMembers() || profile == profileIn(model));
    check(!profile || !model.isDecided() || model.isUsable());
    check(!profile || (!profile->apiKey.empty() && !profile->apiUrl.empty()));
    check(!profile || profileFrom(fileWith(*profile)) == profile);
}

}  // namespace orvane::fuzz
