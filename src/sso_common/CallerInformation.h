// CCallerInformation: who the calling application is, established once per
// process: its application id, its package id, the executable name from its
// command line, and on demand a fingerprint of the public key that signed its
// package. Also decides whether a package named in a request is the caller's
// own (two system packages may act for anyone).
#pragma once

#include <package_manager.h>

#include <cstddef>
#include <string>

#include "SSOAPISingleton.h"
#include "sso_glib_ptr.h"

class CCallerInformation : public SSOAPISingleton<CCallerInformation> {
public:
    CCallerInformation();
    ~CCallerInformation() override;

    CCallerInformation(const CCallerInformation &) = delete;
    CCallerInformation &operator=(const CCallerInformation &) = delete;

    // Runs the identification on first use. Not locked: two threads arriving
    // at once may both identify; the later results stand.
    void CheckInit();
    std::string GetPackageID();
    std::string GetBinaryID();
    // The package id when known, else the application id when known, else
    // the binary id.
    std::string GetUniqueID();
    // Upper-case hex of the SHA-1 (false) or SHA-256 (true) digest of the DER
    // SubjectPublicKeyInfo of the package's author signer certificate; empty
    // when it cannot be read. Computed afresh at every call. Throws
    // std::logic_error when the package has no author signer certificate at
    // all; exported callers turn that into their failure value.
    std::string GetSignature(bool useSha256);
    // Whether a request of the given kind (only 1 is served) may name this
    // package. packageId must not be null.
    bool CheckCaller(int type, const char *packageId);

private:
    bool m_Initialize();
    bool m_CheckBinaryID();
    bool m_CheckAppID();
    bool m_CheckPackageID();
    std::string m_GetCertInfo(std::string applicationId);
    static bool m_PackageInfoCheckCB(package_info_h handle, package_cert_type_e certType,
                                     const char *certValue, void *userData);
    bool m_DecodeCertificate(const char *text, size_t length,
                             sso_glib::MallocPtr<unsigned char> &decoded, int *decodedLength);
    std::string m_GetPackageSignature(bool useSha256);

    std::string m_applicationId;
    std::string m_packageId;
    std::string m_binaryId;
    bool m_bAppIdReady = false;
    bool m_bPackageIdReady = false;
    bool m_bBinaryIdReady = false;
    bool m_bInfoInitialized = false;
};
