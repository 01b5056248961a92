// Which certificates count when the trust store and the HTTP library's own bundle disagree.
#include "platform/own_mounts_linux.h"
#include "platform/tls_test.h"
#include "support/in_child.h"

#include <filesystem>
#include <string>

namespace orvane::test {

namespace {

/// The HTTP library's own bundle, by system.
constexpr const char* bundles[] = {"/etc/ssl/certs/ca-certificates.crt",
                                   "/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/cert.pem"};

/// A machine whose bundle holds the test's authority alone, and whose trust store holds files under
/// certain names.
class TlsBundleTest : public TlsTest {
  protected:
    /// Whether a server of the test's authority is trusted ("yes", else the error) when the trust
    /// store has a file `name`; or why that cannot be found out here.
    std::string isTrustedBeside(const std::string& name) {
        const auto directory = paths::certificateDirectory();
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        std::filesystem::copy_file(ca.certificate(), directory / name);
        return inChild([this] {
            const std::string refusal = useOwnMounts();
            if (!refusal.empty()) {
                return "skip: " + refusal;
            }
            for (const char* bundle : bundles) {
                if (std::filesystem::exists(bundle)) {
                    mountOver(ca.certificate(), bundle);
                }
            }
            const ScriptedServer server(ca.issueForLoopback());
            return ask(server).error().value_or("yes");
        });
    }
};

TEST_F(TlsBundleTest, WithoutHashedNamesInTheTrustStoreTheLibrarysBundleCounts) {
    for (const char* name : {"ca.pem", "0123456.00", "01234567.00", "01234567.", "0123456g.0",
                             "01234567-0", "0123456789", "012345678.", "ABCDEF01.0", ".0"}) {
        SCOPED_TRACE(name);
        const std::string answer = isTrustedBeside(name);
        if (answer.starts_with("skip: ")) {
            GTEST_SKIP() << answer.substr(6);
        }
        EXPECT_EQ(answer, "yes");
    }
}

TEST_F(TlsBundleTest, WithHashedNamesOfOthersItCountsToo) {
    for (const char* name : {"01234567.0", "89abcdef.9"}) {
        SCOPED_TRACE(name);
        const std::string answer = isTrustedBeside(name);
        if (answer.starts_with("skip: ")) {
            GTEST_SKIP() << answer.substr(6);
        }
        EXPECT_EQ(answer, "yes");
    }
}

}  // namespace

}  // namespace orvane::test
