// Packages registered in a test's platform root, signed with a throwaway
// certificate, for the caller-identity checks.
#pragma once

#include <package_manager_admin.h>

#include <string>
#include <vector>

#include "test_certs.h"

namespace certtest {

// Registers package with the one application app in the platform root, signed
// by the author certificate cert (unsigned when withCert is false); returns
// the package manager's result.
inline int AddSignedPackage(const TestCert &cert, const std::string &package,
                            const std::string &app, bool withCert = true)
{
    std::vector<unsigned char> der = ReadBytes(cert.der);
    package_manager_cert_s c{PACKAGE_INFO_AUTHOR_SIGNER_CERT, der.data(), der.size()};
    const char *apps[] = {app.c_str()};
    return package_manager_add_package(package.c_str(), apps, 1, withCert ? &c : nullptr,
                                       withCert ? 1 : 0);
}

} // namespace certtest
