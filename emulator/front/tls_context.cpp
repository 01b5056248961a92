#include "emulator/front/tls_context.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <stdexcept>

namespace orvane::front {
namespace {

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Bio bioOf(const std::string& text) {
    return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free};
}

Certificate nextIn(const Bio& bio) {
    return {PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), X509_free};
}

bool use(SSL_CTX* context, const std::string& certificatePem, const std::string& privateKeyPem) {
    const Bio chain = bioOf(certificatePem);
    const Bio keyText = bioOf(privateKeyPem);
    const Certificate certificate = nextIn(chain);
    const Key key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    bool isUsable = certificate && key &&
                    SSL_CTX_use_certificate(context, certificate.get()) == 1 &&
                    SSL_CTX_use_PrivateKey(context, key.get()) == 1;
    while (const Certificate issuer = nextIn(chain)) {
        isUsable = isUsable && SSL_CTX_add1_chain_cert(context, issuer.get()) == 1;
    }
    ERR_clear_error();  // the end of the chain counts as one
    return isUsable;
}

/// An SSL_CTX_alpn_select_cb_func.
int choose(SSL* /*ssl*/, const unsigned char** chosen, unsigned char* length,
           const unsigned char* offered, unsigned offeredLength, void* /*argument*/) {
    static constexpr std::array<unsigned char, 12> ours{2,   'h', '2', 8,   'h', 't',
                                                        't', 'p', '/', '1', '.', '1'};
    unsigned char* choice = nullptr;
    const int found =
        SSL_select_next_proto(&choice, length, ours.data(), ours.size(), offered, offeredLength);
    *chosen = choice;
    return found == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

}  // namespace

TlsContext contextFor(const std::string& certificatePem, const std::string& privateKeyPem) {
    TlsContext context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!context || !use(context.get(), certificatePem, privateKeyPem)) {
        throw std::runtime_error("the TLS library does not take the certificate");
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
    // Thousands of connections are idle most of the time, and tickets need no memory here.
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                        SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_alpn_select_cb(context.get(), choose, nullptr);
    return context;
}

}  // namespace orvane::front
