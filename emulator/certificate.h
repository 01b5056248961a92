#pragma once

#include <filesystem>
#include <string>

namespace orvane::emulator {

/// Throws BadInput when the certificate and the private key, both PEM, cannot be read or do not
/// belong together.
void checkPair(const std::string& certificatePem, const std::string& privateKeyPem);

/// Files that together let a test speak HTTPS.
struct TlsFiles {
    std::filesystem::path authority;    ///< What agents have to trust.
    std::filesystem::path certificate;  ///< For localhost, the loopback addresses and `address`.
    std::filesystem::path privateKey;
};

/// The files in `directory`; makes them, and the directory, if one of them is missing. The
/// authority's own key is thrown away once it has signed, so that trusting it means trusting this
/// one certificate and no other. Throws BadInput when they cannot be made.
TlsFiles makeTlsFiles(const std::filesystem::path& directory, const std::string& address);

}  // namespace orvane::emulator
