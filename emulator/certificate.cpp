#include "emulator/certificate.h"

#include "emulator/bad_input.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <system_error>

namespace orvane::emulator {
namespace {

template <auto release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const {
        release(object);
    }
};

using Bio = std::unique_ptr<BIO, Releaser<BIO_free>>;
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;

constexpr long secondsPerDay = 86'400;
/// The most that Apple's systems take.
constexpr long validDays = 825;

/// For what only fails when there is no memory.
template <typename Result>
Result required(Result result) {
    if (!result) {
        throw BadInput("the TLS library cannot make a certificate");
    }
    return result;
}

Key makeKey() {
    std::string curve = "P-256";
    return Key(required(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve.data())));
}

void extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(
        required(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str())));
    required(X509_add_ext(certificate, extension.get(), -1));
}

void setSerial(X509* certificate) {
    std::uint64_t serial = 0;
    required(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
    required(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1U));
}

/// A certificate for `key`, not signed yet.
Certificate unsignedFor(const std::string& name, EVP_PKEY* key) {
    constexpr long version3 = 2;
    Certificate certificate(required(X509_new()));
    X509_set_version(certificate.get(), version3);
    setSerial(certificate.get());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -secondsPerDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validDays * secondsPerDay);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    required(X509_set_pubkey(certificate.get(), key));
    return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    required(X509_sign(certificate, issuerKey, EVP_sha256()) > 0);
}

Certificate makeAuthority(EVP_PKEY* key) {
    Certificate authority = unsignedFor("Orvane local control plane, for tests", key);
    extend(authority.get(), authority.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    extend(authority.get(), authority.get(), NID_key_usage, "critical,keyCertSign");
    extend(authority.get(), authority.get(), NID_subject_key_identifier, "hash");
    sign(authority.get(), authority.get(), key);
    return authority;
}

Certificate makeCertificate(EVP_PKEY* key, X509* authority, EVP_PKEY* authorityKey,
                            const std::string& address) {
    Certificate certificate = unsignedFor("orvane-control-plane", key);
    X509* const made = certificate.get();
    extend(made, authority, NID_basic_constraints, "critical,CA:FALSE");
    extend(made, authority, NID_ext_key_usage, "serverAuth");
    extend(made, authority, NID_authority_key_identifier, "keyid");
    extend(made, authority, NID_subject_alt_name,
           "DNS:localhost,IP:127.0.0.1,IP:::1,IP:" + address);
    sign(made, authority, authorityKey);
    return certificate;
}

Bio memory() {
    return Bio(required(BIO_new(BIO_s_mem())));
}

/// What the others in `bio` have written.
std::string textIn(const Bio& bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string pemOf(X509* certificate) {
    const Bio bio = memory();
    required(PEM_write_bio_X509(bio.get(), certificate));
    return textIn(bio);
}

std::string pemOf(EVP_PKEY* key) {
    const Bio bio = memory();
    required(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr));
    return textIn(bio);
}

void write(const std::filesystem::path& file, const std::string& content) {
    std::ofstream stream(file, std::ios::binary);
    if (!(stream << content) || !stream.flush()) {
        throw BadInput("cannot write " + file.string());
    }
}

/// The key's file is nobody else's before there is anything in it.
void writeKey(const std::filesystem::path& file, const std::string& content) {
    write(file, "");
    constexpr mode_t mine = 0600;
    if (::chmod(file.c_str(), mine) != 0) {
        throw BadInput("cannot write " + file.string());
    }
    write(file, content);
}

void make(const TlsFiles& files, const std::string& address) {
    const Key authorityKey = makeKey();
    const Key key = makeKey();
    const Certificate authority = makeAuthority(authorityKey.get());
    const Certificate certificate =
        makeCertificate(key.get(), authority.get(), authorityKey.get(), address);
    writeKey(files.privateKey, pemOf(key.get()));
    write(files.certificate, pemOf(certificate.get()));
    write(files.authority, pemOf(authority.get()));
}

}  // namespace

void checkPair(const std::string& certificatePem, const std::string& privateKeyPem) {
    const Bio certificateText(
        BIO_new_mem_buf(certificatePem.data(), static_cast<int>(certificatePem.size())));
    const Bio keyText(
        BIO_new_mem_buf(privateKeyPem.data(), static_cast<int>(privateKeyPem.size())));
    const Certificate certificate(
        PEM_read_bio_X509(certificateText.get(), nullptr, nullptr, nullptr));
    const Key key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
    if (!certificate) {
        throw BadInput("the certificate is not in PEM format");
    }
    if (!key) {
        throw BadInput("the private key is not in PEM format");
    }
    if (X509_check_private_key(certificate.get(), key.get()) != 1) {
        throw BadInput("the private key is not the one of the certificate");
    }
}

TlsFiles makeTlsFiles(const std::filesystem::path& directory, const std::string& address) {
    TlsFiles files{directory / "ca.pem", directory / "certificate.pem", directory / "key.pem"};
    std::error_code failed;
    std::filesystem::create_directories(directory, failed);
    if (failed) {
        throw BadInput("cannot make the directory " + directory.string() + ": " + failed.message());
    }
    for (const auto& file : {files.authority, files.certificate, files.privateKey}) {
        if (!std::filesystem::exists(file)) {
            make(files, address);
            break;
        }
    }
    return files;
}

}  // namespace orvane::emulator
