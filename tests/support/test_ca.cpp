#include "support/test_ca.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace orvane::test {

namespace {

void run(const std::string& command) {
    const std::string quiet = "(" + command + ") >/dev/null 2>&1";
    if (std::system(quiet.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

/// The GeneralizedTime form that `openssl ca` takes.
std::string dateInDays(int days) {
    constexpr std::time_t secondsPerDay = 86400;
    const std::time_t then = std::time(nullptr) + days * secondsPerDay;
    std::tm utc{};
    gmtime_r(&then, &utc);
    std::array<char, 20> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%d%H%M%SZ", &utc);
    return text.data();
}

constexpr const char* configuration = R"([ca]
default_ca = only
[only]
dir = .
new_certs_dir = .
database = index.txt
serial = serial
default_md = sha256
policy = anything
email_in_dn = no
unique_subject = no
[anything]
commonName = supplied
)";

}  // namespace

TestCa::TestCa() {
    const auto& path = directory_.path();
    writeFile(path / "openssl.cnf", configuration);
    writeFile(path / "index.txt", "");
    writeFile(path / "serial", "01\n");
    run("cd " + path.string() +
        " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
        " -subj '/CN=Orvane test CA' -keyout ca.key -out ca.pem");
}

TlsIdentity TestCa::issue(const std::string& subjectAltName, int startDays, int endDays) const {
    const auto& path = directory_.path();
    writeFile(path / "ext.cnf", "subjectAltName=" + subjectAltName + "\n");
    run("cd " + path.string() +
        " && openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj '/CN=server'"
        " -keyout server.key -out server.csr"
        " && openssl ca -batch -config openssl.cnf -keyfile ca.key -cert ca.pem -in server.csr"
        " -out server.pem -notext -extfile ext.cnf -startdate " +
        dateInDays(startDays) + " -enddate " + dateInDays(endDays));
    return {path / "server.pem", path / "server.key"};
}

TlsIdentity TestCa::issueForLoopback() const {
    return issue("DNS:localhost,IP:127.0.0.1");
}

void TestCa::trustIn(const std::filesystem::path& directory) const {
    std::filesystem::create_directories(directory);
    std::filesystem::copy_file(certificate(), directory / "orvane-test-ca.pem");
    run("openssl rehash " + directory.string());
}

std::filesystem::path TestCa::certificate() const {
    return directory_.path() / "ca.pem";
}

}  // namespace orvane::test
