// A peer that cannot prove to be the server gets not one byte of a credential, on every endpoint.
#include "hostile/hostile_cycle.h"
#include "platform/machine/paths.h"
#include "support/http_library.h"
#include "support/test_ca.h"

#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using namespace std::string_literals;

/// The authority that the daemon trusts here.
const TestCa& authority() {
    static const TestCa ca;
    return ca;
}

class HostileTlsTest : public HostileCycleTest {
  protected:
    HostileTlsTest() {
        authority().trustIn(paths::certificateDirectory());
        const TlsIdentity identity = authority().issueForLoopback();
        // The library's configuration forbids nothing here: what is refused, the daemon refuses.
        const auto configuration = root() / "openssl.cnf";
        writeFile(configuration,
                  "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\nsystem_default = lax\n[lax]\n"
                  "MinProtocol = TLSv1\nCipherString = DEFAULT@SECLEVEL=0\n");
        (void)::setenv("OPENSSL_CONF", configuration.c_str(), 1);
        server = std::make_unique<ScriptedServer>(identity);
        (void)::unsetenv("OPENSSL_CONF");
    }
};

TEST_P(HostileTlsTest, LearnsNoCredential) {
    expectEndured(GetParam());
    for (const char* secret : {"key-1", "device-1", "tenant-1"}) {
        EXPECT_THAT(receivedMeanwhile, Not(HasSubstr(secret)));
    }
    // The good cycle shows that it would have been seen.
    EXPECT_THAT(server->received(), HasSubstr("X-Orv-Key: key-"));
}

ServerFault shows(std::string name, std::function<TlsIdentity()> identity) {
    return {
        std::move(name),
        {0, 0,
         "The certificate for this server is invalid. You might be connecting to a server that "
         "is pretending to be “localhost” which could put your confidential information at "
         "risk. ("},
        [identity = std::move(identity)](const FaultContext& context) {
            context.server.show(identity());
        },
        [](const FaultContext& context) { context.server.show(authority().issueForLoopback()); }};
}

/// A certificate that vouches for itself.
TlsIdentity selfSigned() {
    static const TempDirectory directory;
    const std::string command =
        "cd " + directory.path().string() +
        " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
        " -subj /CN=localhost -addext subjectAltName=DNS:localhost"
        " -keyout server.key -out server.pem >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return {directory.path() / "server.pem", directory.path() / "server.key"};
}

TlsIdentity ofAnotherAuthority() {
    static const TestCa other;
    return other.issueForLoopback();
}

const std::vector<ServerFault> certificates{
    shows("Expired", [] { return authority().issue("DNS:localhost", -3, -1); }),
    shows("NotYetValid", [] { return authority().issue("DNS:localhost", 1, 3); }),
    shows("WrongName", [] { return authority().issue("DNS:localhost.example,IP:127.0.0.2"); }),
    shows("NameInTheSubjectOnly", [] { return authority().issue("email:localhost"); }),
    shows("WildcardForEverything", [] { return authority().issue("DNS:*,DNS:*.*"); }),
    shows("SelfSigned", &selfSigned),
    shows("UnknownAuthority", &ofAnotherAuthority),
    shows("MeantForClients",
          [] { return authority().issue("DNS:localhost\nextendedKeyUsage=clientAuth"); }),
};
INSTANTIATE_TEST_SUITE_P(Certificates, HostileTlsTest, onEveryEndpoint(certificates), nameOf);

const ExpectedResult noSecureConnection{
    0, 0, "An SSL error has occurred and a secure connection to the server cannot be made. ("};

ServerFault speaksTls11Only() {
    ServerFault fault = shows("SpeaksTls11Only", [] {
        TlsIdentity identity = authority().issueForLoopback();
        identity.highestVersion = TLS1_1_VERSION;
        return identity;
    });
    fault.expected = noSecureConnection;
    return fault;
}

/// Hears what the daemon says first, then answers with `bytes` in the clear.
ServerFault answersInTheClear(std::string name, std::string bytes) {
    return onConnect(std::move(name), noSecureConnection, [bytes](const FaultContext&) {
        return [bytes](Connection& connection, const ReceivedRequest&) {
            (void)connection.receive(4096);
            (void)connection.send(bytes);
            return false;
        };
    });
}

const std::vector<ServerFault> handshakes{
    speaksTls11Only(),
    onConnect("HandshakeStall", timedOut(), stall()),
    onConnect("HandshakeStallAfterHalfAMessage", timedOut(), stall("\x16\x03\x03\x00\x7A\x02"s)),
    answersInTheClear("PlaintextOnTheTlsPort", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
    answersInTheClear("RedirectInTheClear",
                      "HTTP/1.1 302 X\r\nLocation: http://127.0.0.1/\r\n\r\n"),
    answersInTheClear("AlertInTheHandshake", "\x15\x03\x03\x00\x02\x02\x28"s),
    answersInTheClear("ClosesInTheHandshake", ""),
    answersInTheClear("ClosesWithinAMessage", "\x16\x03\x03\x00\x7A\x02"s),
};
INSTANTIATE_TEST_SUITE_P(Handshakes, HostileTlsTest, onEveryEndpoint(handshakes), nameOf);

// --- A line that somebody cuts in the middle must not pass for an end

class HostileTlsEndTest : public HostileTlsTest {};

TEST_P(HostileTlsEndTest, IsNotMistakenForTheEndOfTheResponse) {
    expectEndured(GetParam());
}

ServerFault cutsAfter(std::string name, ExpectedResult expected, const std::string& bytes) {
    return onRequest(std::move(name), std::move(expected),
                     Step([=](Connection& connection, const ReceivedRequest&) {
                         (void)connection.send(bytes);
                         connection.cut();
                         return false;
                     }));
}

const std::vector<ServerFault> cuts{
    cutsAfter("Request", failed(), ""),
    cutsAfter("HalfAHeader", failed(), "HTTP/1.1 200 OK\r\nContent-Le"),
    cutsAfter("Header", failed(200), "HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n"),
    cutsAfter("HalfABody", failed(200),
              "HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n{\"etag\":\"x\"}"),
    // Where the library takes this for an end, what came so far cannot be a JSON object.
    cutsAfter("HalfABodyWithoutLength",
              http_library::tellsACutFromAnEnd() ? lost(200) : answered(200, 11),
              "HTTP/1.1 200 OK\r\n\r\n{\"etag\":\"x\""),
};
INSTANTIATE_TEST_SUITE_P(Cut, HostileTlsEndTest, onEveryEndpoint(cuts), nameOf);

}  // namespace
}  // namespace orvane::test
