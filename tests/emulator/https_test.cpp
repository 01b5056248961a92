#include "call.h"
#include "emulator/control_plane.h"
#include "emulator/policy_file.h"
#include "sample_account.h"
#include "scratch_directory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace orvane::emulator {
namespace {

using AServerWithACertificate = ScratchDirectory;

TEST_F(AServerWithACertificate, SpeaksHttpsAndHoldsPollsThere) {
    const std::string key = path_ / "key.pem";
    const std::string certificate = path_ / "certificate.pem";
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
        "-subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 -keyout '" +
        key + "' -out '" + certificate + "' 2>'" + (path_ / "log").string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    Options options;
    options.account = anAccount();
    options.certificatePem = *readFile(certificate);
    options.privateKeyPem = *readFile(key);
    ControlPlane plane(options);
    EXPECT_EQ(plane.baseUrl(), "https://127.0.0.1:" + std::to_string(plane.port()));

    Call poll(plane.baseUrl() + pollPath + "?wait=1");
    poll.trust(certificate).header("X-Orv-Key: key");
    EXPECT_EQ(poll.send().status, 304);
    plane.setPolicy(firstText);
    EXPECT_EQ(poll.send().body, firstText);
}

TEST(AServerWithAnUnusableCertificate, DoesNotStart) {
    Options options;
    options.certificatePem = "nonsense";
    options.privateKeyPem = "nonsense";
    EXPECT_THROW(ControlPlane{options}, std::runtime_error);
}

}  // namespace
}  // namespace orvane::emulator
