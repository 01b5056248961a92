#include "call.h"
#include "emulator/bad_input.h"
#include "emulator/certificate.h"
#include "emulator/control_plane.h"
#include "emulator/policy_file.h"
#include "sample_account.h"
#include "scratch_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>

namespace orvane::emulator {
namespace {

using AServerWithACertificate = ScratchDirectory;

TEST_F(AServerWithACertificate, SpeaksHttpsAndHoldsPollsThere) {
    const TlsFiles files = makeTlsFiles(path_ / "tls", "127.0.0.2");
    Options options;
    options.account = anAccount();
    options.certificatePem = *readFile(files.certificate);
    options.privateKeyPem = *readFile(files.privateKey);
    ControlPlane plane(options);
    EXPECT_EQ(plane.baseUrl(), "https://127.0.0.1:" + std::to_string(plane.port()));

    Call poll(plane.baseUrl() + pollPath + "?wait=1");
    poll.trust(files.authority).header("X-Orv-Key: key");
    EXPECT_EQ(poll.send().status, 304);
    plane.setPolicy(firstText);
    EXPECT_EQ(poll.send().body, firstText);
}

TEST_F(AServerWithACertificate, IsTrustedByThoseWhoTrustTheAuthorityAlone) {
    const TlsFiles files = makeTlsFiles(path_, "127.0.0.1");
    const TlsFiles others = makeTlsFiles(path_ / "others", "127.0.0.1");
    Options options;
    options.certificatePem = *readFile(files.certificate);
    options.privateKeyPem = *readFile(files.privateKey);
    const ControlPlane plane(options);
    const std::string byName = "https://localhost:" + std::to_string(plane.port()) + "/faults";
    EXPECT_EQ(Call(byName).trust(files.authority).send().status, 200);
    EXPECT_EQ(Call(byName).trust(others.authority).send().result, CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(AServerWithACertificate, KeepsItAndItsKeyToItself) {
    const TlsFiles files = makeTlsFiles(path_, "127.0.0.1");
    const auto certificate = readFile(files.certificate);
    makeTlsFiles(path_, "127.0.0.1");
    EXPECT_EQ(readFile(files.certificate), certificate);
    EXPECT_EQ(std::filesystem::status(files.privateKey).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path_), {}), 3);
}

TEST_F(AServerWithACertificate, CannotMakeOneWhereItCannotWrite) {
    write("file", "");
    EXPECT_THROW(makeTlsFiles(path_ / "file", "127.0.0.1"), BadInput);
    EXPECT_THROW(makeTlsFiles("/proc", "127.0.0.1"), BadInput);
}

std::string refusalOf(const std::string& certificate, const std::string& key) {
    Options options;
    options.certificatePem = certificate;
    options.privateKeyPem = key;
    try {
        const ControlPlane plane(options);
        return "none";
    } catch (const BadInput& mistake) {
        return mistake.what();
    }
}

TEST_F(AServerWithACertificate, DoesNotStartWithOneThatIsUnusable) {
    const TlsFiles files = makeTlsFiles(path_, "127.0.0.1");
    const TlsFiles others = makeTlsFiles(path_ / "others", "127.0.0.1");
    const std::string certificate = *readFile(files.certificate);
    EXPECT_EQ(refusalOf("nonsense", *readFile(files.privateKey)),
              "the certificate is not in PEM format");
    EXPECT_EQ(refusalOf(certificate, "nonsense"), "the private key is not in PEM format");
    EXPECT_EQ(refusalOf(certificate, *readFile(others.privateKey)),
              "the private key is not the one of the certificate");
}

}  // namespace
}  // namespace orvane::emulator
