#include "guard/capture_policy.h"

#include "platform/system_calls.h"
#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using namespace std::string_literals;

using ::testing::ElementsAre;

using guard::CapturePolicy;

// What a guard policy says.

struct Derivation {
    const char* policy;
    CapturePolicy capture;
};

void expectAll(const std::vector<Derivation>& examples) {
    for (const auto& [policy, capture] : examples) {
        SCOPED_TRACE(policy);
        EXPECT_EQ(guard::deriveCapturePolicy(policy), capture);
    }
}

TEST(CaptureDerivationTest, AllThreeMembers) {
    expectAll({
        {R"({"guard_config":{"capture":{"enabled":true,"hosts":["a","b"],"suppress_ech":true}}})",
         {true, {"a", "b"}, true}},
        {R"({"etag":"1","guard_config":{"x":[],"capture":{"suppress_ech":true,"mode":"all",
             "hosts":["b","a"],"enabled":false}}})",
         {false, {"b", "a"}, true}},
        {R"({"guard_config":{"capture":{"enabled":true,"hosts":[],"suppress_ech":false}}})",
         {true, {}, false}},
    });
}

TEST(CaptureDerivationTest, WhatIsMissingOrOfAnotherTypeHasADefault) {
    expectAll({
        {R"({"guard_config":{"capture":{}}})", {}},
        {R"({"guard_config":{"capture":{"enabled":true}}})", {true, {}, false}},
        {R"({"guard_config":{"capture":{"hosts":["a"]}}})", {false, {"a"}, false}},
        {R"({"guard_config":{"capture":{"suppress_ech":true}}})", {false, {}, true}},
        {R"({"guard_config":{"capture":{"enabled":"true","hosts":"a","suppress_ech":"true"}}})",
         {}},
        {R"({"guard_config":{"capture":{"enabled":1,"hosts":{"a":"b"},"suppress_ech":1}}})", {}},
        {R"({"guard_config":{"capture":{"enabled":null,"hosts":null,"suppress_ech":null}}})", {}},
        {R"({"guard_config":{"capture":{"enabled":[true],"hosts":true,"suppress_ech":{}}}})", {}},
        {R"({"guard_config":{"capture":{"Enabled":true,"intercept_hosts":["a"]}}})", {}},
    });
}

TEST(CaptureDerivationTest, HostsAreAllStringsOrNone) {
    expectAll({
        {R"({"guard_config":{"capture":{"hosts":["a",1,"b"]}}})", {}},
        {R"({"guard_config":{"capture":{"hosts":[null]}}})", {}},
        {R"({"guard_config":{"capture":{"hosts":["a",true]}}})", {}},
        {R"({"guard_config":{"capture":{"hosts":[["a"]]}}})", {}},
        {R"({"guard_config":{"capture":{"hosts":[{"a":"b"},"c"]}}})", {}},
        {R"({"guard_config":{"capture":{"hosts":["","a","a"," A "]}}})",
         {false, {"", "a", "a", " A "}, false}},
        {R"({"guard_config":{"capture":{"enabled":true,"hosts":[1],"suppress_ech":true}}})",
         {true, {}, true}},
    });
}

TEST(CaptureDerivationTest, ConfigStandsInForAGuardConfigThatIsNoObject) {
    expectAll({
        {R"({"config":{"capture":{"enabled":true,"hosts":["a"],"suppress_ech":true}}})",
         {true, {"a"}, true}},
        {R"({"guard_config":"x","config":{"capture":{"enabled":true}}})", {true, {}, false}},
        {R"({"guard_config":null,"config":{"capture":{"hosts":["a"]}}})", {false, {"a"}, false}},
        {R"({"guard_config":[],"config":{"capture":{"suppress_ech":true}}})", {false, {}, true}},
        {R"({"config":{"capture":{"enabled":true}},"guard_config":1})", {true, {}, false}},
    });
}

TEST(CaptureDerivationTest, OfBothObjectsOnlyTheGuardConfigCounts) {
    expectAll({
        {R"({"config":{"capture":{"enabled":true,"hosts":["c"],"suppress_ech":true}},
             "guard_config":{"capture":{"hosts":["g"]}}})",
         {false, {"g"}, false}},
        {R"({"guard_config":{"capture":{}},"config":{"capture":{"enabled":true}}})", {}},
    });
}

TEST(CaptureDerivationTest, WithoutACaptureObjectThereIsNone) {
    for (const char* policy : {
             "",
             "not json",
             "null",
             R"([{"guard_config":{"capture":{}}}])",
             R"({"guard_config":{"capture":{}})",
             R"({"guard_config":{"capture":{}}} x)",
             "{}",
             R"({"capture":{"enabled":true}})",
             R"({"guard_config":{}})",
             R"({"config":{}})",
             R"({"guard_config":{"capture":null}})",
             R"({"guard_config":{"capture":true}})",
             R"({"guard_config":{"capture":"{}"}})",
             R"({"guard_config":{"capture":[{"enabled":true}]}})",
             R"({"config":{"capture":[]}})",
             R"({"guard_config":"x","config":"y"})",
             R"({"guard_config":[{"capture":{"enabled":true}}]})",
             R"({"guard_config":{},"config":{"capture":{"enabled":true}}})",
             R"({"guard_config":{"capture":1},"config":{"capture":{"enabled":true}}})",
             R"({"guard_config/capture":{"enabled":true}})",
             R"({"guard_config":{"config":{"capture":{}}}})",
         }) {
        SCOPED_TRACE(policy);
        EXPECT_EQ(guard::deriveCapturePolicy(policy), std::nullopt);
    }
}

TEST(CaptureDerivationTest, OfRepeatedKeysTheFirstCounts) {
    expectAll({
        {R"({"guard_config":{"capture":{"enabled":true,"enabled":false}}})", {true, {}, false}},
        {R"({"guard_config":{"capture":{}},"guard_config":{"capture":{"enabled":true}}})", {}},
        {R"({"guard_config":1,"guard_config":{"capture":{}},"config":{"capture":{"enabled":true}}})",
         {true, {}, false}},
    });
}

// What the capture file says.

bool saysTheSame(std::string_view existing, const CapturePolicy& wanted) {
    const auto comparison = guard::comparisonWith(wanted);
    return comparison->add(existing) && comparison->isSame();
}

TEST(CaptureComparisonTest, AFileThatSaysTheSame) {
    struct {
        const char* existing;
        CapturePolicy wanted;
    } const examples[] = {
        {R"({"enabled":true,"intercept_hosts":["a","b"],"suppress_ech":true})",
         {true, {"a", "b"}, true}},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":false})", {}},
        {R"( { "suppress_ech" : false , "x":1, "intercept_hosts" : [ "a" ], "enabled" : true } )",
         {true, {"a"}, false}},
        {R"({"enabled":false,"intercept_hosts":[]})", {}},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":null})", {}},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":1})", {}},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":"true"})", {}},
    };
    for (const auto& [existing, wanted] : examples) {
        SCOPED_TRACE(existing);
        EXPECT_TRUE(saysTheSame(existing, wanted));
    }
}

TEST(CaptureComparisonTest, AFileThatDiffers) {
    const CapturePolicy nothing;
    struct {
        const char* existing;
        CapturePolicy wanted;
    } const examples[] = {
        {"", nothing},
        {"not json", nothing},
        {"null", nothing},
        {R"([{"enabled":false,"intercept_hosts":[]}])", nothing},
        {R"({"enabled":false,"intercept_hosts":[])", nothing},
        {"{}", nothing},
        {R"({"intercept_hosts":[],"suppress_ech":false})", nothing},
        {R"({"enabled":false,"suppress_ech":false})", nothing},
        {R"({"enabled":true,"intercept_hosts":[],"suppress_ech":false})", nothing},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":false})", {true, {}, false}},
        {R"({"enabled":0,"intercept_hosts":[]})", nothing},
        {R"({"enabled":null,"intercept_hosts":[]})", nothing},
        {R"({"enabled":"false","intercept_hosts":[]})", nothing},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":true})", nothing},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":false})", {false, {}, true}},
        {R"({"enabled":false,"intercept_hosts":[]})", {false, {}, true}},
        {R"({"enabled":false,"intercept_hosts":[],"suppress_ech":1})", {false, {}, true}},
        {R"({"enabled":false,"intercept_hosts":["a"]})", nothing},
        {R"({"enabled":false,"intercept_hosts":[]})", {false, {"a"}, false}},
        {R"({"enabled":false,"intercept_hosts":["a","b"]})", {false, {"b", "a"}, false}},
        {R"({"enabled":false,"intercept_hosts":["a","b"]})", {false, {"a"}, false}},
        {R"({"enabled":false,"intercept_hosts":["A"]})", {false, {"a"}, false}},
        {R"({"enabled":false,"intercept_hosts":["a",1]})", {false, {"a"}, false}},
        {R"({"enabled":false,"intercept_hosts":[1]})", nothing},
        {R"({"enabled":false,"intercept_hosts":null})", nothing},
        {R"({"enabled":false,"intercept_hosts":""})", nothing},
        {R"({"enabled":false,"hosts":[]})", nothing},
    };
    for (const auto& [existing, wanted] : examples) {
        SCOPED_TRACE(existing);
        EXPECT_FALSE(saysTheSame(existing, wanted));
    }
}

TEST(CaptureTextTest, OneCompactObjectOfThreeMembers) {
    EXPECT_EQ(guard::captureFileText({true, {"a.example", "b"}, false}),
              R"({"enabled":true,"intercept_hosts":["a.example","b"],"suppress_ech":false})");
    EXPECT_EQ(guard::captureFileText({}),
              R"({"enabled":false,"intercept_hosts":[],"suppress_ech":false})");
    EXPECT_EQ(guard::captureFileText({false, {"b", "a"}, true}),
              R"({"enabled":false,"intercept_hosts":["b","a"],"suppress_ech":true})");
}

TEST(CaptureTextTest, SpecialCharactersAreEscaped) {
    EXPECT_EQ(guard::captureFileText({false, {"a/b\"\\\n\x01\u00fc"}, false}),
              "{\"enabled\":false,\"intercept_hosts\":[\"a\\/b\\\"\\\\\\n\\u0001\u00fc\"],"
              "\"suppress_ech\":false}");
}

TEST(CaptureTextTest, WhatIsWrittenSaysTheSame) {
    const CapturePolicy policies[] = {{},
                                      {true, {"a", "b"}, true},
                                      {true, {"", "*.x/y", "\u00fc\0z"s}, false},
                                      {false, {"a"}, true}};
    for (const CapturePolicy& policy : policies) {
        EXPECT_TRUE(saysTheSame(guard::captureFileText(policy), policy));
    }
}

// The file.

constexpr const char* policyA =
    R"({"guard_config":{"capture":{"enabled":true,"hosts":["a","b"],"suppress_ech":true}}})";
constexpr const char* captureA =
    R"({"enabled":true,"intercept_hosts":["a","b"],"suppress_ech":true})";
constexpr const char* messageA =
    "default capture-policy applied from guard cascade: enabled=true hosts=2 suppress_ech=true";

/// The process's file-creation mask for as long as it lives.
class FileMask {
  public:
    explicit FileMask(mode_t mask) : former_(::umask(mask)) {}
    FileMask(const FileMask&) = delete;
    FileMask& operator=(const FileMask&) = delete;
    ~FileMask() { (void)::umask(former_); }

  private:
    mode_t former_;
};

/// What changes whenever a file is written again.
struct FileVersion {
    ino_t number;
    fs::file_time_type time;
    unsigned mode;

    bool operator==(const FileVersion&) const = default;
};

FileVersion versionOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return {status.st_ino, fs::last_write_time(path), modeOf(path)};
}

class CaptureFileTest : public DaemonTest {
  protected:
    static fs::path policyFile() { return orvane() / "policy.json"; }
    void apply() const { guard::applyCapturePolicy(policyFile(), logger_); }
    void applyPolicy(std::string_view policy) const {
        writeFile(policyFile(), policy);
        apply();
    }
    static std::string writeFailed(std::errc why) {
        return "error capture-policy write failed: " + std::make_error_code(why).message();
    }

  private:
    Logger logger_{"dev.orvane.setup", "policy-daemon"};
};

TEST_F(CaptureFileTest, ItIsMadeWithItsDirectory) {
    applyPolicy(policyA);
    EXPECT_EQ(readFile(captureFile()), captureA);
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json"));
    EXPECT_THAT(logLines(), ElementsAre(messageA));
}

TEST_F(CaptureFileTest, TheMessageSaysWhatWasWritten) {
    applyPolicy(R"({"config":{"capture":{"enabled":true,"hosts":["a","b","c"]}}})");
    applyPolicy(R"({"config":{"capture":{"suppress_ech":true}}})");
    EXPECT_THAT(
        logLines(),
        ElementsAre("default capture-policy applied from guard cascade: enabled=true hosts=3 "
                    "suppress_ech=false",
                    "default capture-policy applied from guard cascade: enabled=false hosts=0 "
                    "suppress_ech=true"));
}

TEST_F(CaptureFileTest, ACaptureWithoutMembersIsWrittenAsDefaults) {
    applyPolicy(R"({"guard_config":{"capture":{}}})");
    EXPECT_EQ(readFile(captureFile()),
              R"({"enabled":false,"intercept_hosts":[],"suppress_ech":false})");
}

TEST_F(CaptureFileTest, ASecondTimeNothingIsWrittenOrLogged) {
    applyPolicy(policyA);
    fs::last_write_time(captureFile(), fs::file_time_type::clock::now() - std::chrono::hours(1));
    const FileVersion before = versionOf(captureFile());
    log.clear();
    apply();
    EXPECT_EQ(versionOf(captureFile()), before);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(CaptureFileTest, AFileWithEquivalentContentStays) {
    const std::string existing = R"({"x":1, "intercept_hosts":["a"], "enabled":true})";
    writeFile(captureFile(), existing);
    fs::permissions(captureFile(), fs::perms(0600));
    const FileVersion before = versionOf(captureFile());
    applyPolicy(R"({"guard_config":{"capture":{"enabled":true,"hosts":["a"]}}})");
    EXPECT_EQ(readFile(captureFile()), existing);
    EXPECT_EQ(versionOf(captureFile()), before) << "its mode included";
    EXPECT_EQ(log.raw(), "");
}

TEST_F(CaptureFileTest, ALargeFileThatSaysTheSameStays) {
    std::string hosts = R"("a")";
    for (int i = 0; i < 100'000; ++i) {
        hosts += R"(,"host-)" + std::to_string(i) + R"(.example.com")";
    }
    writeFile(captureFile(), R"({"intercept_hosts":[)" + hosts + R"(],"enabled":true})");
    const FileVersion before = versionOf(captureFile());
    applyPolicy(R"({"config":{"capture":{"enabled":true,"hosts":[)" + hosts + "]}}}");
    EXPECT_EQ(versionOf(captureFile()), before);
    applyPolicy(R"({"config":{"capture":{"enabled":true,"hosts":[)" + hosts + R"(,"b"]}}})");
    EXPECT_NE(versionOf(captureFile()), before);
}

/// A file that its owner, who may be another account, has paid nothing for.
TEST_F(CaptureFileTest, AHugeSparseFileIsReplaced) {
    for (const std::uintmax_t size : {std::uintmax_t{255} << 20, std::uintmax_t{1} << 40}) {
        writeFile(captureFile(), captureA);
        fs::resize_file(captureFile(), size);
        applyPolicy(policyA);
        EXPECT_EQ(readFile(captureFile()), captureA);
    }
}

/// Nothing limits how long a file of another account may be.
TEST_F(CaptureFileTest, AFileThatTakesTooLongToCompareIsReplaced) {
    writeFile(policyFile(), policyA);
    const std::string existing = captureA + std::string(std::size_t{150} * 1024, ' ');
    std::chrono::milliseconds pieceTime{1000};
    SystemCallHooks hooks;
    hooks.read = [&](int descriptor, std::size_t) -> std::optional<ssize_t> {
        if (pathOf(descriptor) == captureFile()) {
            virtual_clock::advance(pieceTime);
        }
        return std::nullopt;
    };
    const WithSystemCallHooks installed(hooks);
    writeFile(captureFile(), existing);
    apply();
    EXPECT_TRUE(readFile(captureFile()) == existing);
    pieceTime = guard::comparisonLimit / 2;
    apply();
    EXPECT_EQ(readFile(captureFile()), captureA);
    EXPECT_THAT(logLines(), ElementsAre(messageA));
}

TEST_F(CaptureFileTest, AFileThatSaysSomethingElseIsReplaced) {
    for (const char* existing : {
             "",
             "not json",
             "[]",
             R"({"enabled":false,"intercept_hosts":["a","b"],"suppress_ech":true})",
             R"({"enabled":true,"intercept_hosts":["b","a"],"suppress_ech":true})",
             R"({"enabled":true,"intercept_hosts":["a","b"],"suppress_ech":false})",
             R"({"enabled":true,"intercept_hosts":["a","b"]})",
             R"({"intercept_hosts":["a","b"],"suppress_ech":true})",
             R"({"enabled":true,"suppress_ech":true})",
         }) {
        SCOPED_TRACE(existing);
        writeFile(captureFile(), existing);
        log.clear();
        applyPolicy(policyA);
        EXPECT_EQ(readFile(captureFile()), captureA);
        EXPECT_THAT(logLines(), ElementsAre(messageA));
    }
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json"));
}

TEST_F(CaptureFileTest, ARemovedFileIsWrittenAgain) {
    applyPolicy(policyA);
    fs::remove_all(setup());
    apply();
    EXPECT_EQ(readFile(captureFile()), captureA);
    EXPECT_THAT(logLines(), ElementsAre(messageA, messageA));
}

TEST_F(CaptureFileTest, AnUnusablePolicyLeavesTheFileAlone) {
    writeFile(captureFile(), captureA);
    const FileVersion before = versionOf(captureFile());
    for (const char* policy :
         {"", "not json", "[]", "{}", R"({"guard_config":{}})", R"({"guard_config":{"capture":1}})",
          R"({"guard_config":{},"config":{"capture":{}}})"}) {
        SCOPED_TRACE(policy);
        applyPolicy(policy);
        EXPECT_EQ(versionOf(captureFile()), before);
    }
    EXPECT_EQ(readFile(captureFile()), captureA);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(CaptureFileTest, APolicyThatCannotBeReadLeavesTheFileAlone) {
    writeFile(captureFile(), captureA);
    const FileVersion before = versionOf(captureFile());
    apply();
    EXPECT_EQ(versionOf(captureFile()), before) << "no policy";
    fs::create_directories(policyFile());
    apply();
    EXPECT_EQ(versionOf(captureFile()), before) << "a directory";
    fs::remove(policyFile());
    ASSERT_EQ(::mkfifo(policyFile().c_str(), 0600), 0);
    apply();
    EXPECT_EQ(versionOf(captureFile()), before) << "a FIFO";
    fs::remove(policyFile());
    writeFile(policyFile(), R"({"guard_config":{"capture":{}}})");
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(policyFile(), fs::perms::none);
    EXPECT_TRUE(asOrdinaryUser([this] {
        apply();
        return true;
    }));
    EXPECT_EQ(versionOf(captureFile()), before) << "no permission";
    EXPECT_EQ(log.raw(), "");
}

TEST_F(CaptureFileTest, WithoutAPolicyNothingIsMade) {
    apply();
    applyPolicy("{}");
    EXPECT_THAT(namesIn(root()), ElementsAre("home"));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(CaptureFileTest, AnyoneMayReadItWhateverTheMask) {
    for (const mode_t mask : std::initializer_list<mode_t>{0000, 0022, 0077, 0177}) {
        SCOPED_TRACE(mask);
        const FileMask set(mask);
        fs::remove(captureFile());
        applyPolicy(policyA);
        EXPECT_EQ(modeOf(captureFile()), 0644U);
    }
}

TEST_F(CaptureFileTest, ItsDirectoryGetsTheMasksMode) {
    for (const mode_t mask : std::initializer_list<mode_t>{0000, 0022, 0077}) {
        SCOPED_TRACE(mask);
        const FileMask set(mask);
        fs::remove_all(setup());
        applyPolicy(policyA);
        EXPECT_EQ(modeOf(setup()), 0777U & ~mask);
    }
}

TEST_F(CaptureFileTest, TheModeIsSetWithEveryWrite) {
    for (const unsigned mode : {0600U, 0666U, 0777U}) {
        SCOPED_TRACE(mode);
        writeFile(captureFile(), "{}");
        fs::permissions(captureFile(), fs::perms(mode));
        applyPolicy(policyA);
        EXPECT_EQ(modeOf(captureFile()), 0644U);
    }
}

TEST_F(CaptureFileTest, ALinkInItsPlaceIsReplacedAndItsTargetStays) {
    writeFile(root() / "target", "precious");
    fs::permissions(root() / "target", fs::perms(0600));
    fs::create_directories(setup());
    fs::create_symlink(root() / "target", captureFile());
    applyPolicy(policyA);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(captureFile())));
    EXPECT_EQ(readFile(captureFile()), captureA);
    EXPECT_EQ(readFile(root() / "target"), "precious");
    EXPECT_EQ(modeOf(root() / "target"), 0600U);
}

TEST_F(CaptureFileTest, ADanglingLinkInItsPlaceIsReplaced) {
    fs::create_directories(setup());
    fs::create_symlink(root() / "nowhere", captureFile());
    applyPolicy(policyA);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(captureFile())));
    EXPECT_FALSE(fs::exists(root() / "nowhere"));
}

TEST_F(CaptureFileTest, AFifoInItsPlaceIsReplaced) {
    fs::create_directories(setup());
    ASSERT_EQ(::mkfifo(captureFile().c_str(), 0600), 0);
    applyPolicy(policyA);
    EXPECT_EQ(readFile(captureFile()), captureA);
}

TEST_F(CaptureFileTest, ADirectoryInItsPlaceIsAFailureAndStays) {
    writeFile(captureFile() / "inside", "kept");
    fs::permissions(captureFile(), fs::perms(0700));
    applyPolicy(policyA);
    EXPECT_THAT(logLines(), ElementsAre(writeFailed(std::errc::is_a_directory)));
    EXPECT_EQ(readFile(captureFile() / "inside"), "kept");
    EXPECT_EQ(modeOf(captureFile()), 0700U);
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json"));
}

TEST_F(CaptureFileTest, AFileInThePlaceOfItsDirectoryIsAFailureAndStays) {
    writeFile(setup(), "kept");
    applyPolicy(policyA);
    EXPECT_THAT(logLines(), ElementsAre(writeFailed(std::errc::not_a_directory)));
    EXPECT_EQ(readFile(setup()), "kept");
}

TEST_F(CaptureFileTest, AFailureIsLoggedEveryTime) {
    writeFile(setup(), "");
    applyPolicy(policyA);
    apply();
    EXPECT_THAT(logLines(), ElementsAre(writeFailed(std::errc::not_a_directory),
                                        writeFailed(std::errc::not_a_directory)));
}

TEST_F(CaptureFileTest, ADirectoryWithoutWritePermissionIsAFailure) {
    writeFile(captureFile(), "{}");
    writeFile(policyFile(), policyA);
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(setup(), fs::perms(0555));
    const FileVersion before = versionOf(captureFile());
    EXPECT_TRUE(asOrdinaryUser([this] {
        apply();
        return true;
    }));
    EXPECT_THAT(logLines(), ElementsAre(writeFailed(std::errc::permission_denied)));
    EXPECT_EQ(versionOf(captureFile()), before);
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json"));
    fs::permissions(setup(), fs::perms(0755));
}

TEST_F(CaptureFileTest, ThePolicyItselfStaysAsItIs) {
    applyPolicy(policyA);
    EXPECT_EQ(readFile(policyFile()), policyA);
    EXPECT_THAT(namesIn(orvane()), ElementsAre("policy.json"));
}

}  // namespace
}  // namespace orvane::test
