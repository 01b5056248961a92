#include "config/orvane_config.h"

#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::SizeIs;

using namespace std::string_literals;

using Profile = OrvaneConfig::Profile;

Profile plain(const std::string& name, const std::string& apiUrl, const std::string& apiKey) {
    return {name, apiUrl, apiKey, std::nullopt, std::nullopt};
}

std::optional<Profile> load() {
    return OrvaneConfig::loadFirstProfile({"claude-code", "claude-cowork", "connect", "default"});
}

fs::path configFile() {
    return OrvaneConfig::configPath();
}

// The user's config file.

class ConfigFileProfileTest : public DaemonTest {
  protected:
    /// The profile that a config file with `content` gives.
    static std::optional<Profile> loadFrom(std::string_view content) {
        writeFile(configFile(), content);
        return load();
    }
};

TEST_F(ConfigFileProfileTest, TheFileIsInTheUsersOwnDirectory) {
    EXPECT_EQ(OrvaneConfig::configPath(), orvane() / "config");
}

TEST_F(ConfigFileProfileTest, ItsLocationIsFoundOnceFromAnyThread) {
    std::vector<const fs::path*> found(8);
    std::vector<std::thread> threads;
    for (auto& one : found) {
        threads.emplace_back([&one] { one = &OrvaneConfig::configPath(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(found, Each(&OrvaneConfig::configPath()));
}

TEST_F(ConfigFileProfileTest, ASectionBecomesTheProfile) {
    EXPECT_EQ(loadFrom("[default]\napi_url = https://h\napi_key = \"k\"\nagent_slug=s\ntenant=t\n"),
              (Profile{"default", "https://h", "k", "s", "t"}));
}

TEST_F(ConfigFileProfileTest, SlugAndTenantMayBeMissing) {
    EXPECT_EQ(loadFrom("[default]\napi_url=https://h\napi_key=k\n"),
              plain("default", "https://h", "k"));
}

TEST_F(ConfigFileProfileTest, SlugAndTenantMayBePresentAndEmpty) {
    EXPECT_EQ(loadFrom("[default]\napi_url=https://h\napi_key=k\nagent_slug=\ntenant=\"\"\n"),
              (Profile{"default", "https://h", "k", "", ""}));
}

TEST_F(ConfigFileProfileTest, ThePreferredOrderCountsNotTheFiles) {
    const std::string fallback = "[default]\napi_url=https://d\napi_key=kd\n";
    const std::string connect = "[connect]\napi_url=https://c\napi_key=kc\n";
    EXPECT_EQ(loadFrom(fallback + connect), plain("connect", "https://c", "kc"));
    EXPECT_EQ(loadFrom(connect + fallback), plain("connect", "https://c", "kc"));
}

TEST_F(ConfigFileProfileTest, TheCallersListIsWhatCounts) {
    writeFile(configFile(),
              "[a]\napi_url=https://a\napi_key=ka\n[b]\napi_url=https://b\napi_key=kb\n");
    EXPECT_EQ(OrvaneConfig::loadFirstProfile({"b", "a"}), plain("b", "https://b", "kb"));
    EXPECT_EQ(OrvaneConfig::loadFirstProfile({"x", "a", "b"}), plain("a", "https://a", "ka"));
    EXPECT_EQ(OrvaneConfig::loadFirstProfile({"x"}), std::nullopt);
    EXPECT_EQ(OrvaneConfig::loadFirstProfile({}), std::nullopt);
}

TEST_F(ConfigFileProfileTest, AnUnusableSectionIsSkipped) {
    const std::string usable = "[default]\napi_url=https://d\napi_key=kd\n";
    for (const char* section : {
             "[claude-code]\n",
             "[claude-code]\napi_url=https://h\n",
             "[claude-code]\napi_key=k\n",
             "[claude-code]\napi_url=https://h\napi_key=\n",
             "[claude-code]\napi_url=https://h\napi_key=\"\"\n",
             "[claude-code]\napi_url=\napi_key=k\n",
             "[claude-code]\napi_url=https://h\napi_key=k\napi_key=\n",
             "[claude-code]\napi_url=https://h\napi_key=k\n[claude-code]\n",
             "[Claude-Code]\napi_url=https://h\napi_key=k\n",
         }) {
        SCOPED_TRACE(section);
        EXPECT_EQ(loadFrom(section + usable), plain("default", "https://d", "kd"));
    }
}

TEST_F(ConfigFileProfileTest, AnUnrequestedSectionIsNotUsed) {
    EXPECT_EQ(loadFrom("[other]\napi_url=https://h\napi_key=k\n"), std::nullopt);
}

TEST_F(ConfigFileProfileTest, AUrlWithAQueryIsKeptWhole) {
    EXPECT_EQ(loadFrom("[default]\napi_url=https://h/?a=b&c=d\napi_key=k#1\n"),
              plain("default", "https://h/?a=b&c=d", "k#1"));
}

TEST_F(ConfigFileProfileTest, CrLfLineEndsGiveNoProfile) {
    EXPECT_EQ(loadFrom("[default]\r\napi_url=https://h\r\napi_key=k\r\n"), std::nullopt);
    EXPECT_EQ(loadFrom("[default]\napi_url=https://h\r\napi_key=k\r\n"), std::nullopt);
    EXPECT_EQ(loadFrom("[default]\r\napi_url=https://h\napi_key=k\n"), std::nullopt);
}

TEST_F(ConfigFileProfileTest, OneByteOrderMarkIsDropped) {
    const std::string text = "[default]\napi_url=https://h\napi_key=k\n";
    EXPECT_EQ(loadFrom("\uFEFF" + text), plain("default", "https://h", "k"));
    EXPECT_EQ(loadFrom("\uFEFF\uFEFF" + text), std::nullopt);
}

TEST_F(ConfigFileProfileTest, OtherEncodingsThanUtf8GiveNoProfile) {
    const std::string text = "[default]\napi_url=https://h\napi_key=k\n";
    for (const char* invalid : {"\xFC", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xFF\xFE"}) {
        SCOPED_TRACE(testing::PrintToString(invalid));
        EXPECT_EQ(loadFrom(text + "# " + invalid + "\n"), std::nullopt);
        EXPECT_EQ(loadFrom(invalid + ("\n" + text)), std::nullopt);
    }
    EXPECT_EQ(loadFrom(text + "# \u00fc \U0001F600\n"), plain("default", "https://h", "k"));
}

TEST_F(ConfigFileProfileTest, ANulIsKept) {
    EXPECT_EQ(loadFrom("[default]\napi_url=https://h\napi_key=k\0x\n"s),
              plain("default", "https://h", "k\0x"s));
}

TEST_F(ConfigFileProfileTest, WithoutAFileThereIsNoProfileAndNothingIsMade) {
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(namesIn(root()), IsEmpty());
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ConfigFileProfileTest, WhatIsNoFileGivesNoProfile) {
    fs::create_directories(configFile());
    EXPECT_EQ(load(), std::nullopt) << "a directory";
    fs::remove(configFile());
    ASSERT_EQ(::mkfifo(configFile().c_str(), 0600), 0);
    EXPECT_EQ(load(), std::nullopt) << "a FIFO";
    fs::remove(configFile());
    fs::create_symlink(root() / "nowhere", configFile());
    EXPECT_EQ(load(), std::nullopt) << "a dangling link";
    EXPECT_EQ(loadFrom(""), std::nullopt) << "an empty file";
}

TEST_F(ConfigFileProfileTest, AnUnreadableFileGivesNoProfile) {
    writeFile(configFile(), "[default]\napi_url=https://h\napi_key=k\n");
    fs::permissions(root(), fs::perms(0755));
    EXPECT_TRUE(asOrdinaryUser([] { return load().has_value(); }));
    fs::permissions(configFile(), fs::perms::none);
    EXPECT_TRUE(asOrdinaryUser([] { return !load().has_value(); }));
}

TEST_F(ConfigFileProfileTest, TheFileIsReadOnEveryCall) {
    EXPECT_EQ(loadFrom("[default]\napi_url=https://1\napi_key=k\n"),
              plain("default", "https://1", "k"));
    EXPECT_EQ(loadFrom("[default]\napi_url=https://2\napi_key=k\n"),
              plain("default", "https://2", "k"));
    fs::remove(configFile());
    EXPECT_EQ(load(), std::nullopt);
}

TEST_F(ConfigFileProfileTest, TheFileStaysAsItIsAndNothingIsLogged) {
    const std::string content = "nonsense\n[default]\napi_url=https://h\napi_key=k";
    EXPECT_EQ(loadFrom(content), plain("default", "https://h", "k"));
    EXPECT_EQ(readFile(configFile()), content);
    EXPECT_THAT(namesIn(orvane()), ElementsAre("config"));
    EXPECT_EQ(log.raw(), "");
}

// The device identity in front of it.

class DeviceProfileTest : public DaemonTest {
  protected:
    DeviceProfileTest() {
        identify(server.url());
        writeFile(configFile(), "[default]\napi_url=https://file\napi_key=file-key\n");
    }
    ~DeviceProfileTest() override { (void)unsetenv("ORVANE_API_KEY"); }

    static Profile fileProfile() { return plain("default", "https://file", "file-key"); }
    /// The profile that comes of `body` as the control plane's answer.
    std::optional<Profile> loadWithAnswer(const std::string& body, int status = 200) {
        server.on(agentConfigPath, {answer(status, body)});
        return load();
    }

    ScriptedServer server;
};

constexpr const char* fullAnswer =
    R"({"upload_api_key":"up","api_url":"https://api","agent_slug":"slug","agent_type":"kind"})";

Profile deviceProfile() {
    return {"device", "https://api", "up", "slug", std::nullopt};
}

TEST_F(DeviceProfileTest, TheDeviceComesBeforeTheFile) {
    EXPECT_EQ(loadWithAnswer(fullAnswer), deviceProfile());
}

TEST_F(DeviceProfileTest, ItIsRequestedOnceAndForClaude) {
    (void)loadWithAnswer(fullAnswer);
    EXPECT_THAT(server.requests(),
                ElementsAre(Field(&ReceivedRequest::target, agentConfigPath + "?process=claude"s)));
}

TEST_F(DeviceProfileTest, TheDeviceNeedsNoFile) {
    fs::remove(configFile());
    EXPECT_EQ(loadWithAnswer(fullAnswer), deviceProfile());
}

TEST_F(DeviceProfileTest, AnEmptyUrlOfTheDeviceIsTakenAsItIs) {
    EXPECT_EQ(loadWithAnswer(R"({"upload_api_key":"up","api_url":"","agent_slug":"slug"})"),
              (Profile{"device", "", "up", "slug", std::nullopt}));
}

TEST_F(DeviceProfileTest, WithoutAUrlOfItsOwnTheDeviceHasItsFiles) {
    EXPECT_EQ(loadWithAnswer(R"({"upload_api_key":"up","agent_slug":"slug"})"),
              (Profile{"device", server.url(), "up", "slug", std::nullopt}));
}

TEST_F(DeviceProfileTest, AnIncompleteDeviceLeavesItToTheFile) {
    for (const char* body :
         {R"({"upload_api_key":"up","api_url":"https://api","agent_slug":""})",
          R"({"upload_api_key":"up","api_url":"https://api","agent_type":"kind"})",
          R"({"upload_api_key":"","agent_slug":"slug"})", R"({"agent_slug":"slug"})", "[]", ""}) {
        SCOPED_TRACE(body);
        EXPECT_EQ(loadWithAnswer(body), fileProfile());
    }
    EXPECT_EQ(log.raw(), "");
}

TEST_F(DeviceProfileTest, ADeviceThatIsRefusedLeavesItToTheFile) {
    EXPECT_EQ(loadWithAnswer(fullAnswer, 401), fileProfile());
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(DeviceProfileTest, WithoutAnIdentityNothingIsAsked) {
    fs::remove(setup() / "device-identity.json");
    EXPECT_EQ(load(), fileProfile());
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceProfileTest, WithoutAnythingUsableThereIsNoProfile) {
    fs::remove(configFile());
    EXPECT_EQ(loadWithAnswer("no", 500), std::nullopt);
}

TEST_F(DeviceProfileTest, AKeyInTheEnvironmentSwitchesTheDeviceOff) {
    for (const char* value : {"k", " ", "0", "false"}) {
        SCOPED_TRACE(value);
        ASSERT_EQ(setenv("ORVANE_API_KEY", value, 1), 0);
        EXPECT_EQ(loadWithAnswer(fullAnswer), fileProfile());
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceProfileTest, AKeyInTheEnvironmentIsNeverUsedItself) {
    ASSERT_EQ(setenv("ORVANE_API_KEY", "environment-key", 1), 0);
    writeFile(configFile(), "[default]\napi_url=https://file\n");
    EXPECT_EQ(loadWithAnswer(fullAnswer), std::nullopt);
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(DeviceProfileTest, AnEmptyKeyInTheEnvironmentCountsAsNone) {
    ASSERT_EQ(setenv("ORVANE_API_KEY", "", 1), 0);
    EXPECT_EQ(loadWithAnswer(fullAnswer), deviceProfile());
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(DeviceProfileTest, EverythingIsRequestedOnEveryCall) {
    EXPECT_EQ(loadWithAnswer(fullAnswer), deviceProfile());
    EXPECT_THAT(loadWithAnswer(R"({"upload_api_key":"up-2","agent_slug":"slug"})"),
                Optional(Field(&Profile::apiKey, "up-2")));
    ASSERT_EQ(setenv("ORVANE_API_KEY", "k", 1), 0);
    EXPECT_EQ(load(), fileProfile());
    ASSERT_EQ(unsetenv("ORVANE_API_KEY"), 0);
    EXPECT_EQ(loadWithAnswer(fullAnswer), deviceProfile());
    EXPECT_THAT(server.requests(), SizeIs(3));
}

TEST_F(DeviceProfileTest, TheManagedFileIsNoneOfItsSources) {
    enroll("https://managed", "managed-key");
    EXPECT_EQ(loadWithAnswer("no", 404), fileProfile());
    fs::remove(configFile());
    EXPECT_EQ(loadWithAnswer("no", 404), std::nullopt);
}

TEST_F(DeviceProfileTest, NothingIsLoggedOrWritten) {
    (void)loadWithAnswer(fullAnswer);
    EXPECT_EQ(log.raw(), "");
    EXPECT_THAT(namesIn(orvane()), ElementsAre("config"));
    EXPECT_THAT(namesIn(setup()), ElementsAre("device-identity.json"));
}

}  // namespace
}  // namespace orvane::test
