#include "emulator/check/trusted_authority.h"

#include "emulator/bad_input.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <cstdlib>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

namespace orvane::emulator {
namespace {

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

std::filesystem::path& currentDirectory() {
    static std::filesystem::path directory;
    return directory;
}

std::filesystem::path makeDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "orvane-check-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw BadInput("cannot make a directory like " + name);
    }
    return name;
}

/// The first name of a certificate with this subject that is free in `directory`, by the rules of
/// openssl-rehash(1).
std::filesystem::path hashedName(const std::filesystem::path& directory, X509* certificate) {
    for (int number = 0;; ++number) {
        std::ostringstream name;
        name << std::hex << std::setw(8) << std::setfill('0') << X509_subject_name_hash(certificate)
             << '.' << std::dec << number;
        if (!std::filesystem::exists(directory / name.str())) {
            return directory / name.str();
        }
    }
}

void store(X509* certificate, const std::filesystem::path& directory) {
    const std::filesystem::path place = hashedName(directory, certificate);
    const Bio file(BIO_new_file(place.c_str(), "w"), BIO_free);
    if (file == nullptr || PEM_write_bio_X509(file.get(), certificate) != 1) {
        throw BadInput("cannot write " + place.string());
    }
}

/// How many certificates of `file` are now in `directory`.
int storeAll(const std::filesystem::path& file, const std::filesystem::path& directory) {
    const Bio source(BIO_new_file(file.c_str(), "r"), BIO_free);
    int count = 0;
    while (source != nullptr) {
        const Certificate certificate(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr),
                                      X509_free);
        if (certificate == nullptr) {
            break;
        }
        store(certificate.get(), directory);
        ++count;
    }
    ERR_clear_error();  // the end of the file is one
    return count;
}

}  // namespace

TrustedAuthority::TrustedAuthority(const std::filesystem::path& file) {
    currentDirectory() = makeDirectory();
    try {
        if (storeAll(file, currentDirectory()) == 0) {
            throw BadInput("there is no certificate in PEM format in " + file.string());
        }
    } catch (const BadInput&) {
        forget();
        throw;
    }
}

TrustedAuthority::~TrustedAuthority() {
    forget();
}

void TrustedAuthority::forget() {
    std::error_code ignored;
    std::filesystem::remove_all(currentDirectory(), ignored);
    currentDirectory().clear();
}

const std::filesystem::path& TrustedAuthority::directory() {
    return currentDirectory();
}

}  // namespace orvane::emulator
