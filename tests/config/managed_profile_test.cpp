#include "config/orvane_config.h"
#include "support/daemon_test.h"
#include "support/in_child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

using namespace std::string_literals;

OrvaneConfig::Profile managed(const std::string& apiUrl, const std::string& apiKey) {
    return {"managed", apiUrl, apiKey, std::nullopt, std::nullopt};
}

class ManagedProfileTest : public DaemonTest {
  protected:
    static fs::path file() { return setup() / "enroll-config.json"; }
    /// The profile that a file with `content` gives.
    static std::optional<OrvaneConfig::Profile> profileFrom(std::string_view content) {
        writeFile(file(), content);
        return OrvaneConfig::managedProfile();
    }
};

TEST_F(ManagedProfileTest, UrlAndKeyOfTheFileMakeTheProfile) {
    EXPECT_EQ(profileFrom(R"({"api_url":"https://h","api_key":"k"})"), managed("https://h", "k"));
}

TEST_F(ManagedProfileTest, OtherKeysAreIgnored) {
    EXPECT_EQ(profileFrom(R"({"tenant":"acme","agent_slug":"s","api_key":"k","name":"n",
                              "api_url":"https://h","nested":{"api_url":"https://other"}})"),
              managed("https://h", "k"));
}

TEST_F(ManagedProfileTest, ValuesAreTakenVerbatim) {
    EXPECT_EQ(profileFrom(R"({"api_url":" https://h/ \t","api_key":" \"k\" "})"),
              managed(" https://h/ \t", " \"k\" "));
    EXPECT_EQ(profileFrom(R"({"api_url":" ","api_key":" "})"), managed(" ", " "));
    EXPECT_EQ(profileFrom(R"({"api_url":"no url","api_key":"\u00fc\/"})"),
              managed("no url", "\u00fc/"));
}

TEST_F(ManagedProfileTest, AFileOfOneMebibyteIsReadOneByteMoreIsNot) {
    const std::string start = R"({"api_url":"https://h","api_key":"k"})";
    const std::string content = start + std::string(1'048'576 - start.size(), ' ');
    EXPECT_EQ(profileFrom(content), managed("https://h", "k"));
    EXPECT_EQ(profileFrom(content + " "), std::nullopt);
}

TEST_F(ManagedProfileTest, AnEscapedNulStaysInTheValue) {
    EXPECT_EQ(profileFrom(R"({"api_url":"https://h\u0000x","api_key":"k\u0000"})"),
              managed("https://h\0x"s, "k\0"s));
}

TEST_F(ManagedProfileTest, WithoutUrlOrKeyThereIsNoProfile) {
    for (const char* content : {
             R"({})",
             R"({"api_url":"https://h"})",
             R"({"api_key":"k"})",
             R"({"api_url":"","api_key":"k"})",
             R"({"api_url":"https://h","api_key":""})",
             R"({"api_url":1,"api_key":"k"})",
             R"({"api_url":"https://h","api_key":1})",
             R"({"api_url":null,"api_key":"k"})",
             R"({"api_url":"https://h","api_key":null})",
             R"({"api_url":true,"api_key":"k"})",
             R"({"api_url":"https://h","api_key":false})",
             R"({"api_url":{},"api_key":"k"})",
             R"({"api_url":"https://h","api_key":{"a":"k"}})",
             R"({"api_url":["https://h"],"api_key":"k"})",
             R"({"api_url":"https://h","api_key":["k"]})",
             R"({"API_URL":"https://h","api_key":"k"})",
             R"({"api_url":"https://h","API_KEY":"k"})",
             R"({"config":{"api_url":"https://h","api_key":"k"}})",
         }) {
        SCOPED_TRACE(content);
        EXPECT_EQ(profileFrom(content), std::nullopt);
    }
}

TEST_F(ManagedProfileTest, WhatIsNoJsonObjectGivesNoProfile) {
    for (const std::string& content : {
             ""s,
             " \n"s,
             "null"s,
             "true"s,
             "1"s,
             R"("api_url")"s,
             R"([{"api_url":"https://h","api_key":"k"}])"s,
             R"({"api_url":"https://h","api_key":"k")"s,
             R"({"api_url":"https://h","api_key":"k"} x)"s,
             R"({'api_url':'https://h','api_key':'k'})"s,
             "api_url = https://h\napi_key = k\n"s,
             "{\"api_url\":\"https://h\",\"api_key\":\"k\"}\0"s,
             "{\"api_url\":\"https://h\",\"api_key\":\"k\0\"}"s,
             "{\"api_url\":\"https://h\",\"api_key\":\"\xFC\"}"s,
         }) {
        SCOPED_TRACE(testing::PrintToString(content));
        EXPECT_EQ(profileFrom(content), std::nullopt);
    }
}

TEST_F(ManagedProfileTest, OfARepeatedKeyTheFirstCounts) {
    EXPECT_EQ(profileFrom(R"({"api_url":"https://1","api_key":"k1",
                              "api_url":"https://2","api_key":"k2"})"),
              managed("https://1", "k1"));
    EXPECT_EQ(profileFrom(R"({"api_url":"https://h","api_key":"","api_key":"k"})"), std::nullopt);
}

TEST_F(ManagedProfileTest, WithoutAFileThereIsNoProfileAndNothingIsMade) {
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
    EXPECT_THAT(namesIn(root()), IsEmpty());
}

TEST_F(ManagedProfileTest, TheFileIsReadOnEveryCall) {
    EXPECT_EQ(profileFrom(R"({"api_url":"https://1","api_key":"k1"})"), managed("https://1", "k1"));
    EXPECT_EQ(profileFrom(R"({"api_url":"https://2","api_key":"k2"})"), managed("https://2", "k2"));
    fs::remove(file());
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
    EXPECT_EQ(profileFrom(R"({"api_url":"https://3","api_key":"k3"})"), managed("https://3", "k3"));
}

TEST_F(ManagedProfileTest, TheFileStaysAsItIsAndNothingIsLogged) {
    const std::string content = R"({"api_key":"k", "api_url":"https://h"})";
    writeFile(file(), content);
    fs::permissions(file(), fs::perms(0600));
    const auto written = fs::last_write_time(file());
    (void)OrvaneConfig::managedProfile();
    EXPECT_EQ(readFile(file()), content);
    EXPECT_EQ(modeOf(file()), 0600U);
    EXPECT_TRUE(fs::last_write_time(file()) == written);
    EXPECT_THAT(namesIn(setup()), ElementsAre("enroll-config.json"));
    EXPECT_THAT(namesIn(root()), ElementsAre("private"));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ManagedProfileTest, ALinkToTheFileIsFollowed) {
    writeFile(root() / "elsewhere", R"({"api_url":"https://h","api_key":"k"})");
    fs::create_directories(setup());
    fs::create_symlink(root() / "elsewhere", file());
    EXPECT_EQ(OrvaneConfig::managedProfile(), managed("https://h", "k"));
}

TEST_F(ManagedProfileTest, ADanglingLinkGivesNoProfile) {
    fs::create_directories(setup());
    fs::create_symlink(root() / "nowhere", file());
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
    EXPECT_TRUE(fs::is_symlink(file()));
}

TEST_F(ManagedProfileTest, ADirectoryGivesNoProfile) {
    fs::create_directories(file());
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
    EXPECT_TRUE(fs::is_directory(file()));
}

TEST_F(ManagedProfileTest, AFifoDoesNotHoldTheCaller) {
    fs::create_directories(setup());
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
}

TEST_F(ManagedProfileTest, AnUnreadableFileGivesNoProfile) {
    writeFile(file(), R"({"api_url":"https://h","api_key":"k"})");
    fs::permissions(root(), fs::perms(0755));
    EXPECT_TRUE(asOrdinaryUser([] { return OrvaneConfig::managedProfile().has_value(); }));
    fs::permissions(file(), fs::perms::none);
    EXPECT_TRUE(asOrdinaryUser([] { return !OrvaneConfig::managedProfile().has_value(); }));
}

TEST_F(ManagedProfileTest, AHugeFileGivesNoProfile) {
    writeFile(file(), "");
    fs::resize_file(file(), std::uintmax_t{10} * 1024 * 1024 * 1024);
    EXPECT_EQ(OrvaneConfig::managedProfile(), std::nullopt);
}

TEST_F(ManagedProfileTest, ThreadsMayAskAtTheSameTime) {
    enroll("https://h", "k");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            EXPECT_THAT(OrvaneConfig::managedProfile(), Optional(managed("https://h", "k")));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace orvane::test
