#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"

#include <gmock/gmock.h>

namespace orvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PolicyStoreTest : public DaemonTest {
  protected:
    /// A 200 with `body`; the effective configuration is not there (404).
    void update(const std::optional<std::string>& body) {
        runner.handleUpdated(body, {"p", server.url(), "key-1", {}, {}});
    }
    [[nodiscard]] std::size_t effectiveFetches() const {
        return server.requestsTo(effectivePath).size();
    }
    [[nodiscard]] static std::filesystem::path policy() { return orvane() / "policy.json"; }
    [[nodiscard]] static std::filesystem::path etag() { return orvane() / "policy-etag.json"; }

    ScriptedServer server;
    PolicyRunner runner;
};

constexpr const char* endpointAbsent =
    "debug guard/effective endpoint not present yet (older controlplane)";

TEST_F(PolicyStoreTest, ABodyIsStoredByteForByte) {
    const std::string body = "\xEF\xBB\xBF { \"b\" : 1.50,\n\t\"a\":[ ],\"etag\":\"v1\" }\r\n";
    update(body);
    EXPECT_EQ(readFile(policy()), body);
    EXPECT_THAT(logLines(),
                ElementsAre("default policy updated (" + std::to_string(body.size()) + " bytes)",
                            endpointAbsent));
}

TEST_F(PolicyStoreTest, TheEtagGetsAFileOfItsOwn) {
    update(R"({"etag":"v1"})");
    EXPECT_EQ(readFile(etag()), R"({"etag":"v1"})");
    EXPECT_EQ(runner.loadEtag(), "v1");
}

TEST_F(PolicyStoreTest, ASlashInTheEtagIsEscapedInTheFileAndNotWhenRead) {
    update(R"({"etag":"a/b"})");
    EXPECT_EQ(readFile(etag()), R"({"etag":"a\/b"})");
    EXPECT_EQ(runner.loadEtag(), "a/b");
}

TEST_F(PolicyStoreTest, AnAbsentOrEmptyBodyChangesNothing) {
    for (const std::optional<std::string>& body : {std::optional<std::string>(), {""}}) {
        log.clear();
        update(body);
        EXPECT_THAT(logLines(), ElementsAre("error 200 with no body — skipping write"));
    }
    EXPECT_THAT(namesIn(orvane()), IsEmpty());
    EXPECT_EQ(effectiveFetches(), 0U);
}

TEST_F(PolicyStoreTest, ABodyThatIsNoJsonObjectChangesNothing) {
    writeFile(policy(), "old policy");
    writeFile(etag(), "old etag");
    for (const char* body :
         {"[]", "[{\"etag\":\"v1\"}]", "null", "true", "1", "\"text\"", "{", "{}x", "<html></html>",
          " ", "{\"etag\":\"v1\",}", "{\"a\":\"\xFF\"}"}) {
        SCOPED_TRACE(body);
        log.clear();
        update(body);
        EXPECT_THAT(logLines(), ElementsAre("error Couldn't parse policy JSON — skipping write"));
    }
    EXPECT_EQ(readFile(policy()), "old policy");
    EXPECT_EQ(readFile(etag()), "old etag");
    EXPECT_EQ(effectiveFetches(), 0U);
}

TEST_F(PolicyStoreTest, WithoutAUsableEtagTheStoredOneStays) {
    for (const char* body : {"{}", R"({"etag":""})", R"({"etag":7})", R"({"etag":null})",
                             R"({"etag":["v"]})", R"({"etag":{"etag":"v"}})"}) {
        SCOPED_TRACE(body);
        writeFile(etag(), R"({"etag":"old"})");
        update(body);
        EXPECT_EQ(readFile(policy()), body);
        EXPECT_EQ(readFile(etag()), R"({"etag":"old"})");
    }
}

TEST_F(PolicyStoreTest, OnlyATopLevelEtagCounts) {
    update(R"({"guard_config":{"etag":"inner"}})");
    EXPECT_FALSE(std::filesystem::exists(etag()));
}

TEST_F(PolicyStoreTest, TheUpdateIsLoggedAndTheEffectiveFetchMadeEvenWhenTheWritesFail) {
    writeFile(orvane(), "a plain file where the directory should be");
    update(R"({"etag":"v1"})");
    EXPECT_THAT(
        logLines(),
        ElementsAre("error atomic write to " + policy().string() + " failed: Not a directory",
                    "error atomic write to " + etag().string() + " failed: Not a directory",
                    "default policy updated (13 bytes)", endpointAbsent));
    EXPECT_EQ(effectiveFetches(), 1U);
}

TEST_F(PolicyStoreTest, WithoutAnEtagFileThereIsNoEtag) {
    EXPECT_EQ(runner.loadEtag(), std::nullopt);
}

TEST_F(PolicyStoreTest, OnlyAStringInATopLevelObjectIsLoaded) {
    const struct {
        const char* content;
        std::optional<std::string> etag;
    } cases[] = {
        {R"({"etag":"abc"})", "abc"},
        {R"({"x":[1],"etag":"abc","y":{}})", "abc"},
        {R"({"etag":""})", ""},
        {R"({"etag":1})", std::nullopt},
        {R"({"etag":null})", std::nullopt},
        {R"({"tag":"abc"})", std::nullopt},
        {R"(["etag"])", std::nullopt},
        {R"("abc")", std::nullopt},
        {R"({"etag":"abc")", std::nullopt},
        {"", std::nullopt},
        {"\xFF\xFE", std::nullopt},
    };
    for (const auto& [content, expected] : cases) {
        SCOPED_TRACE(content);
        writeFile(etag(), content);
        EXPECT_EQ(runner.loadEtag(), expected);
    }
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(PolicyStoreTest, AnEtagFileThatIsADirectoryIsNoEtag) {
    std::filesystem::create_directories(etag());
    EXPECT_EQ(runner.loadEtag(), std::nullopt);
    EXPECT_THAT(logLines(), IsEmpty());
}

}  // namespace
}  // namespace orvane::test
