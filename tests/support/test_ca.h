// A certificate authority that lives for one test, made with the openssl command.
#pragma once

#include "support/scripted_server.h"
#include "support/test_files.h"

#include <filesystem>
#include <string>

namespace orvane::test {

class TestCa {
  public:
    TestCa();

    /// A server certificate for `subjectAltName` ("DNS:localhost,IP:127.0.0.1"), valid from
    /// `startDays` to `endDays` days from now.
    [[nodiscard]] TlsIdentity issue(const std::string& subjectAltName, int startDays = -1,
                                    int endDays = 1) const;

    /// The usual one, for localhost and 127.0.0.1.
    [[nodiscard]] TlsIdentity issueForLoopback() const;

    /// Puts the CA's certificate into `directory` under its hashed name, as a machine's trust store
    /// has it.
    void trustIn(const std::filesystem::path& directory) const;

    [[nodiscard]] std::filesystem::path certificate() const;

  private:
    TempDirectory directory_;
};

}  // namespace orvane::test
