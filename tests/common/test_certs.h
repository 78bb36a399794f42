// Throwaway certificates for the caller-identity tests, made with the openssl
// command, and the public-key fingerprints the openssl command computes for
// them, to check the library's against.
#pragma once

#include <cctype>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "sso_test_harness.h"

namespace certtest {

struct TestCert {
    std::string pem; // path of the PEM certificate
    std::string der; // path of the same certificate in DER
};

// A fresh self-signed EC certificate under dir, named by stem.
inline TestCert MakeCert(const std::string &dir, const std::string &stem = "cert")
{
    TestCert cert{dir + "/" + stem + ".pem", dir + "/" + stem + ".der"};
    const std::string key = dir + "/" + stem + ".key";
    auto made = ssotest::RunCommand({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                     "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=test",
                                     "-days", "1", "-keyout", key, "-out", cert.pem});
    if (made.status != 0)
        throw std::runtime_error("openssl req failed");
    auto converted = ssotest::RunCommand(
        {"openssl", "x509", "-in", cert.pem, "-outform", "DER", "-out", cert.der});
    if (converted.status != 0)
        throw std::runtime_error("openssl x509 failed");
    return cert;
}

inline std::vector<unsigned char> ReadBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
}

// Upper-case hex digest ("sha1" or "sha256") of the DER SubjectPublicKeyInfo
// of a PEM certificate, as the openssl command computes it.
inline std::string OpensslKeyDigest(const std::string &pem, const std::string &digest)
{
    auto result = ssotest::RunCommand({"sh", "-c",
                                       "openssl x509 -in '" + pem +
                                           "' -pubkey -noout | openssl pkey -pubin -outform DER | "
                                           "openssl dgst -" +
                                           digest + " -r"});
    if (result.status != 0)
        throw std::runtime_error("openssl dgst failed");
    std::string hex = result.out.substr(0, result.out.find(' '));
    for (char &c : hex)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return hex;
}

} // namespace certtest
