#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>

namespace orvane::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// Keys and tokens that cannot be mistaken for anything else.
constexpr const char* managedKey = "canary-managed-key";
constexpr const char* configKey = "canary-config-key";
constexpr const char* uploadKey = "canary-upload-key";
constexpr const char* deviceToken = "canary-device-token";

TEST_F(DaemonTest, NoKeyOrTokenIsWrittenAnywhere) {
    ScriptedServer server;
    const std::string policy = R"({"etag":"v1","guard_config":{"capture":{"enabled":true}}})";
    server.on(pollPath, {answer(200, policy), answer(401), answer(200, policy), answer(403),
                         answer(200, policy), answer(503)});
    server.on(effectivePath, {answer(200, "{}"), answer(500), answer(404)});
    server.on(
        agentConfigPath,
        {answer(200, std::string(R"({"upload_api_key":")") + uploadKey + R"(","agent_slug":"s"})"),
         answer(200, std::string(R"({"upload_api_key":")") + uploadKey + R"(","agent_slug":"s"})"),
         answer(500), answer(500), answer(500)});
    enroll(server.url(), managedKey);
    const auto identityFile = setup() / "device-identity.json";
    writeFile(identityFile, std::string(R"({"tenant_slug":"t","api_url":")") + server.url() +
                                R"(","device_token":")" + deviceToken + R"("})");
    writeFile(orvane() / "config",
              std::string("[default]\napi_url=") + server.url() + "\napi_key=" + configKey + "\n");
    int sleeps = 0;
    virtual_clock::onSleep([&](double) {
        ++sleeps;
        if (sleeps == 1) {
            std::filesystem::remove(setup() / "enroll-config.json");
        } else if (sleeps == 3) {
            throw virtual_clock::EndOfLoop();
        }
    });
    PolicyRunner runner;
    EXPECT_THROW(runner.run(), virtual_clock::EndOfLoop);

    // All three sources were really in use.
    std::vector<std::string> keys;
    for (const auto& request : server.requestsTo(pollPath)) {
        keys.push_back(request.header("X-Orv-Key").value_or(""));
    }
    EXPECT_THAT(keys, ::testing::ElementsAre(managedKey, managedKey, uploadKey, uploadKey,
                                             configKey, configKey));

    EXPECT_THAT(log.raw(), Not(HasSubstr("canary")));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
        const bool ours = entry.is_regular_file() && entry.path() != identityFile &&
                          entry.path() != orvane() / "config";
        if (ours) {
            EXPECT_THAT(readFile(entry.path()), Not(HasSubstr("canary"))) << entry.path();
        }
    }
}

}  // namespace
}  // namespace orvane::test
