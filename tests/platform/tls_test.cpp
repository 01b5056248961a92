// HTTPS: who is trusted, and that nothing is sent to anyone else.
#include "platform/tls_test.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace orvane::test {

namespace {

using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::StartsWith;
using namespace std::string_literals;

// The protocol's own version numbers.
constexpr int tls11 = 0x0302;
constexpr int tls12 = 0x0303;

constexpr const char* noSecureConnection =
    "An SSL error has occurred and a secure connection to the server cannot be made. (";

TEST_F(TlsTest, AServerWithATrustedCertificateGetsTheRequest) {
    ScriptedServer server(ca.issueForLoopback());
    server.on("/p", {answer(200, "secret")});
    const auto result = ask(server);
    EXPECT_FALSE(result.error()) << *result.error();
    EXPECT_THAT(result.response().value().body, Optional("secret"s));
    EXPECT_THAT(server.requests().at(0).header("X-Orv-Key"), Optional("key-1"s));
}

TEST_F(TlsTest, AnAddressIsCheckedLikeAName) {
    const ScriptedServer server(ca.issueForLoopback());
    const auto result = fetch(session, "https://127.0.0.1:" + std::to_string(server.port()) + "/p");
    EXPECT_FALSE(result.error()) << *result.error();

    const ScriptedServer nameOnly(ca.issue("DNS:localhost"));
    const auto refused =
        fetch(session, "https://127.0.0.1:" + std::to_string(nameOnly.port()) + "/p");
    EXPECT_THAT(refused.error(), Optional(StartsWith(invalidCertificate("127.0.0.1"))));
    EXPECT_THAT(nameOnly.requests(), IsEmpty());
}

TEST_F(TlsTest, ConnectionsAreReusedAsWithoutTls) {
    const ScriptedServer server(ca.issueForLoopback());
    EXPECT_FALSE(ask(server).error());
    EXPECT_FALSE(ask(server).error());
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(TlsTest, ACertificateOfAnUnknownAuthorityIsNotTrusted) {
    const TestCa other;
    expectUntrusted(other.issueForLoopback());
}

TEST_F(TlsTest, AServerThatRequiresAClientCertificateIsNamed) {
    auto identity = ca.issueForLoopback();
    identity.wantsClientCertificate = true;
    const ScriptedServer server(identity);
    EXPECT_THAT(ask(server).error(),
                Optional("The server requires a client certificate, and none is "
                         "ever sent (TLS alert 116)."s));
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(TlsTest, AnExpiredCertificateIsNotTrusted) {
    expectUntrusted(ca.issue("DNS:localhost", -3, -1));
}

TEST_F(TlsTest, ACertificateThatIsNotYetValidIsNotTrusted) {
    expectUntrusted(ca.issue("DNS:localhost", 1, 3));
}

TEST_F(TlsTest, ACertificateForAnotherNameIsNotTrusted) {
    expectUntrusted(ca.issue("DNS:localhost.example,DNS:example.localhost"));
}

TEST_F(TlsTest, ASelfSignedCertificateIsNotTrusted) {
    const TempDirectory directory;
    const std::string command =
        "cd " + directory.path().string() +
        " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
        " -subj /CN=localhost -addext subjectAltName=DNS:localhost"
        " -keyout server.key -out server.pem >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    expectUntrusted({directory.path() / "server.pem", directory.path() / "server.key"});
}

TEST_F(TlsTest, TheCheckIsRepeatedForEveryRequest) {
    const TestCa other;
    const ScriptedServer server(other.issueForLoopback());
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(ask(server).error(), Optional(StartsWith(invalidCertificate("localhost"))));
    }
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(TlsTest, ATrustStoreThatIsFilledAfterAnErrorCounts) {
    std::filesystem::remove_all(paths::certificateDirectory());
    const ScriptedServer server(ca.issueForLoopback());
    EXPECT_TRUE(ask(server).error());
    ca.trustIn(paths::certificateDirectory());
    EXPECT_FALSE(ask(server).error());
}

TEST_F(TlsTest, TheTrustStoreIsSearchedToItsEnd) {
    for (int i = 0; i < 20; ++i) {
        writeFile(paths::certificateDirectory() / ("a" + std::to_string(i) + ".pem"), "");
    }
    const ScriptedServer server(ca.issueForLoopback());
    EXPECT_FALSE(ask(server).error());
}

TEST_F(TlsTest, AMissingTrustStoreTrustsNoUnknownAuthority) {
    std::filesystem::remove_all(paths::certificateDirectory());
    expectUntrusted(ca.issueForLoopback());
}

// --- The protocol

TEST_F(TlsTest, Tls12IsSpoken) {
    TlsIdentity identity = ca.issueForLoopback();
    identity.highestVersion = tls12;
    const ScriptedServer server(identity);
    const auto result = ask(server);
    EXPECT_FALSE(result.error()) << *result.error();
}

TEST_F(TlsTest, NothingOlderIsSpokenWhateverTheLibrarysConfigurationAllows) {
    const TempDirectory directory;
    writeFile(directory.path() / "openssl.cnf",
              "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\nsystem_default = lax\n[lax]\n"
              "MinProtocol = TLSv1\nCipherString = DEFAULT@SECLEVEL=0\n");
    // Counts only when no test before this one has used the library in this process.
    ::setenv("OPENSSL_CONF", (directory.path() / "openssl.cnf").c_str(), 1);
    TlsIdentity identity = ca.issueForLoopback();
    identity.highestVersion = tls11;
    const ScriptedServer server(identity);
    const auto result = ask(server);
    ::unsetenv("OPENSSL_CONF");
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(StartsWith(noSecureConnection)));
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(TlsTest, AServerThatSpeaksNoTlsLearnsNothing) {
    ScriptedServer server;
    std::string heard;
    server.onConnect([&](Connection& connection, const ReceivedRequest&) {
        heard = connection.receive(4096);
        (void)connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        return false;
    });
    const auto result =
        fetch(session, requestFor("https://localhost:" + std::to_string(server.port()) + "/p",
                                  {{"X-Orv-Key", "key-1"}}));
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(StartsWith(noSecureConnection)));
    EXPECT_EQ(heard.find("key-1"), std::string::npos);
}

TEST_F(TlsTest, AConnectionLostInTheHandshakeIsAnSslError) {
    ScriptedServer server(ca.issueForLoopback());
    server.onConnect(closeAtOnce());
    const auto result = ask(server);
    EXPECT_FALSE(result.response());
    EXPECT_THAT(result.error(), Optional(StartsWith(noSecureConnection)));
}

TEST_F(TlsTest, AConnectionLostWithinTheBodyKeepsTheStatusOnly) {
    ScriptedServer server(ca.issueForLoopback());
    server.on("/p", {sendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf")});
    const auto result = ask(server);
    EXPECT_EQ(result.response().value().status, 200);
    EXPECT_EQ(result.response().value().body, std::nullopt);
    EXPECT_THAT(result.error(), Optional("The network connection was lost."s));
}

}  // namespace

}  // namespace orvane::test
