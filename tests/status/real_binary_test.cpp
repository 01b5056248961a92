// The program as it ships, for all accounts of a machine: a root directory of its own with two of
// them.
#include "process/private_root_test.h"
#include "status/program.h"
#include "status/status_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <sstream>

namespace orvane::status {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class StatusOfAllTest : public test::PrivateRootTest {
  protected:
    static constexpr uid_t alice = 3001;
    static constexpr uid_t bob = 3002;

    void SetUp() override {
        PrivateRootTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        test::writeFile(
            root.path() / "etc/passwd",
            "root:x:0:0::/root:/bin/sh\nalice:x:3001:3001::/home/alice:/bin/sh\n"
            "greeter:x:901:901::/home/alice:/bin/sh\nfrank:x:3003:3003::/nonexistent:/bin/sh\n"
            "bob:x:3002:3002::/home/bob:/bin/sh\n");
        enroll("https://control.example");
        const test::StatusFiles healthy;
        fs::copy(healthy.setup() / "capture-policy.json", root.setup() / "capture-policy.json");
        for (const auto& [name, user] : {std::pair{"alice", alice}, {"bob", bob}}) {
            const fs::path home = root.path() / "home" / name;
            fs::create_directories(home);
            fs::copy(healthy.orvane(), home / ".orvane", fs::copy_options::recursive);
            test::StatusFiles::setAge(home / ".orvane/policy.json", std::chrono::hours(1));
            give(home, user);
        }
        fs::permissions(root.setup(), fs::perms(0755));
        fs::permissions(root.setup() / "enroll-config.json", fs::perms(0644));
    }

    /// Makes `user` the owner of `path` and all below, and keeps others out.
    static void give(const fs::path& path, uid_t user) {
        for (const auto& entry : fs::recursive_directory_iterator(path)) {
            ASSERT_EQ(::lchown(entry.path().c_str(), user, user), 0);
        }
        ASSERT_EQ(::lchown(path.c_str(), user, user), 0);
        fs::permissions(path, fs::perms(0700));
    }

    [[nodiscard]] fs::path orvaneOf(const std::string& name) const {
        return root.path() / "home" / name / ".orvane";
    }

    [[nodiscard]] test::ProgramResult status(std::vector<std::string> arguments) const {
        const auto setup = root.daemon(ORVANE_STATUS);
        return test::runProgram(setup.program, std::move(arguments), {"PATH=/usr/bin:/bin"},
                                setup.prepare);
    }
    /// The objects of --json by account.
    [[nodiscard]] std::map<std::string, nlohmann::json> objects() const {
        std::map<std::string, nlohmann::json> found;
        std::istringstream output(status({"--all", "--json"}).output);
        for (std::string line; std::getline(output, line);) {
            auto object = nlohmann::json::parse(line);
            found[object["account"]] = object;
        }
        return found;
    }
};

TEST_F(StatusOfAllTest, EveryAccountWithAHomeIsInIt) {
    const auto all = objects();
    ASSERT_EQ(all.size(), 2U);
    for (const char* name : {"alice", "bob"}) {
        ASSERT_EQ(all.count(name), 1U);
        EXPECT_EQ(all.at(name).at("verdict"), "healthy") << all.at(name);
    }
    const auto result = status({"--all"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith("alice                  healthy      304, "));
    EXPECT_THAT(result.output, HasSubstr("\nbob                    healthy      304, "));
    EXPECT_EQ(result.lastLine(), "healthy");
}

TEST_F(StatusOfAllTest, TheWorstAccountIsTheVerdict) {
    test::writeFile(orvaneOf("bob") / "policy-etag.json", R"({"etag":"other"})");
    fs::remove_all(orvaneOf("alice") / "logs");
    const auto result = status({"--all"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.lastLine(), StartsWith("not working: alice: no poll is on record; "));
}

TEST_F(StatusOfAllTest, NothingIsReadWithRootsRights) {
    const fs::path secret = root.path() / "secret.json";
    test::writeFile(secret, R"({"etag":"secret"})");
    fs::permissions(secret, fs::perms(0600));
    fs::remove(orvaneOf("bob") / "policy-etag.json");
    fs::create_symlink("/secret.json", orvaneOf("bob") / "policy-etag.json");
    const auto bobs = objects().at("bob");
    EXPECT_THAT(bobs.dump(), Not(HasSubstr("secret")));
    EXPECT_EQ(bobs.at("problem"), "tag-differs");
}

TEST_F(StatusOfAllTest, AnAccountCannotHoldUpTheOthers) {
    fs::remove_all(orvaneOf("bob") / "logs");
    fs::create_directory(orvaneOf("bob") / "logs");
    ASSERT_EQ(::mkfifo((orvaneOf("bob") / "logs/policy-daemon.activity.jsonl").c_str(), 0666), 0);
    fs::remove(orvaneOf("bob") / "policy.json");
    ASSERT_EQ(::mkfifo((orvaneOf("bob") / "policy.json").c_str(), 0666), 0);
    const auto all = objects();
    EXPECT_EQ(all.at("alice").at("verdict"), "healthy");
    EXPECT_EQ(all.at("bob").at("problem"), "log-unreadable");
}

TEST_F(StatusOfAllTest, MetricsOfOneKindAreGrouped) {
    const auto result = status({"--all", "--prometheus"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.output,
        HasSubstr("# TYPE orvane_policy_status gauge\norvane_policy_status{account=\"alice\"} 0\n"
                  "orvane_policy_status{account=\"bob\"} 0\n# HELP "));
}

}  // namespace
}  // namespace orvane::status
