#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace orvane::front {

using TlsContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

/// What servers show the certificate chain with, both PEM, and choose HTTP/2 with where clients
/// offer it, else HTTP/1.1. Throws std::runtime_error when the TLS library cannot use them.
TlsContext contextFor(const std::string& certificatePem, const std::string& privateKeyPem);

}  // namespace orvane::front
