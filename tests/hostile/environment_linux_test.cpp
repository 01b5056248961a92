// Which variables of the environment a poll cycle asks for: docs/security.md lists them all.
#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"
#include "support/virtual_clock.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

namespace {

std::mutex mutex;
std::set<std::string>* asked = nullptr;  // while it is of interest

void note(const char* name) {
    const std::lock_guard lock(mutex);
    if (asked != nullptr) {
        asked->insert(name);
    }
}

char* askLibrary(const char* function, const char* name) {
    note(name);
    using Function = char*(const char*);
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, function))(name);
}

}  // namespace

// These take the place of the C library's in this program, for all other libraries too.
extern "C" {

char* getenv(const char* name) noexcept {
    return askLibrary("getenv", name);
}

char* secure_getenv(const char* name) noexcept {
    return askLibrary("secure_getenv", name);
}

}  // extern "C"

namespace orvane::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

/// The table's own section of the page.
std::string page() {
    const std::string text = readFile(ORVANE_SECURITY_PAGE);
    const auto start = text.find("\n## The environment\n");
    return text.substr(start, text.find("\n## ", start + 1) - start);
}

class EnvironmentVariablesTest : public DaemonTest {
  protected:
    /// The names that a poll cycle asks for at `url`, from the first use of every library on.
    std::set<std::string> askedByACycleAt(const std::string& url) {
        writeFile(orvane() / "config", "[default]\napi_url=" + url + "\napi_key=key-1\n");
        virtual_clock::onSleep([](double) { throw virtual_clock::EndOfLoop(); });
        std::set<std::string> names;
        {
            const std::lock_guard lock(mutex);
            asked = &names;
        }
        EXPECT_THROW(PolicyRunner().run(), virtual_clock::EndOfLoop);
        const std::lock_guard lock(mutex);
        asked = nullptr;
        return names;
    }
};

TEST_F(EnvironmentVariablesTest, AllThatACycleAsksForAreInTheTable) {
    const TestCa ca;
    ca.trustIn(root() / "etc/ssl/certs");
    ScriptedServer server(ca.issueForLoopback());
    server.on(pollPath, {answer(200, "{}"), answer(500)});
    server.on(effectivePath, {answer(404)});
    auto names = askedByACycleAt(server.url());
    // For another machine's address proxies count. They are looked up in this order.
    ::setenv("ALL_PROXY", "http://127.0.0.1:1", 1);
    names.merge(askedByACycleAt("https://192.0.2.1"));
    EXPECT_THAT(names, IsSupersetOf({"ORVANE_API_KEY", "JOURNAL_STREAM", "https_proxy",
                                     "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy"}));
    // LLVM's unwinder, which only builds with libc++ have, asks what to print of its own work.
    std::erase_if(names, [](const std::string& name) { return name.starts_with("LIBUNWIND_"); });
    for (const std::string& name : names) {
        EXPECT_THAT(page(), HasSubstr("`" + name + "`"));
    }
    EXPECT_EQ(server.requestsTo(pollPath).size(), 2U);
}

TEST_F(EnvironmentVariablesTest, NoneBringsOtherCertificates) {
    const TestCa ca;
    ScriptedServer server(ca.issueForLoopback());
    ca.trustIn(root() / "elsewhere");
    for (const char* name : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}) {
        ::setenv(name, ca.certificate().c_str(), 1);
    }
    ::setenv("SSL_CERT_DIR", (root() / "elsewhere").c_str(), 1);
    (void)askedByACycleAt(server.url());
    EXPECT_THAT(logged("error"), ::testing::Contains(HasSubstr("certificate")));
    EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace orvane::test
