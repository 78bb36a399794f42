#include "CallerInformation.h"

#include <app_common.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "SSOAPIUtil.h"
#include "SSOCrypto.h"
#include "sso_glib_ptr.h"
#include "sso_log.h"

namespace {
struct PackageInfoDestroy {
    void operator()(package_info_h handle) const { package_info_destroy(handle); }
};
using PackageInfoPtr = std::unique_ptr<std::remove_pointer_t<package_info_h>, PackageInfoDestroy>;

// Packages that may request on behalf of any package: the SSO service itself
// and the account application.
constexpr const char *kSsoServicePackage = "org.orvex.ssoservice";
constexpr const char *kAccountAppPackage = "com.veltra.orvex.veltra-account";
} // namespace

CCallerInformation::CCallerInformation()
{
    SSO_LOG_START();
}

CCallerInformation::~CCallerInformation()
{
    SSO_LOG_END();
}

void CCallerInformation::CheckInit()
{
    if (!m_bInfoInitialized) {
        SSO_LOGY("Need to initilalize");
        m_Initialize();
    }
}

std::string CCallerInformation::GetPackageID()
{
    CheckInit();
    SSO_LOGD("[END] m_packageId (%s)", m_packageId.c_str());
    return m_packageId;
}

std::string CCallerInformation::GetBinaryID()
{
    CheckInit();
    SSO_LOGD("[END] m_binaryId (%s)", m_binaryId.c_str());
    return m_binaryId;
}

std::string CCallerInformation::GetUniqueID()
{
    CheckInit();
    const std::string &uniqueId = m_bPackageIdReady ? m_packageId
                                  : m_bAppIdReady   ? m_applicationId
                                                    : m_binaryId;
    SSO_LOGD("[END] uniqueId (%s)", uniqueId.c_str());
    return uniqueId;
}

std::string CCallerInformation::GetSignature(bool useSha256)
{
    CheckInit();
    return m_GetPackageSignature(useSha256);
}

bool CCallerInformation::CheckCaller(int type, const char *packageId)
{
    CheckInit();
    if (type == 1) {
        if (m_packageId == kSsoServicePackage) {
            SSO_LOGD("[END] m_packageId is 'org.orvex.ssoservice'. pParamPackageId(%s)", packageId);
            return true;
        }
        if (m_packageId == kAccountAppPackage) {
            SSO_LOGD("[END] m_packageId is 'com.veltra.orvex.veltra-account'. pParamPackageId(%s)",
                     packageId);
            return true;
        }
        if (m_packageId == packageId) {
            SSO_LOGD("[END] m_packageId(%s) is equal to pParamPackageId(%s) ", m_packageId.c_str(),
                     packageId);
            return true;
        }
    }
    // A refusal here is an expected answer, not a fault: red, but on the main
    // buffer at error priority rather than the system buffer.
    SSO_LOG_AT(LOG_ID_MAIN, DLOG_ERROR,
               SSO_COLOR_RED "[END] m_packageId(%s) is not equal to pParamPackageId(%s). Return "
                             "false" SSO_COLOR_END,
               m_packageId.c_str(), packageId);
    return false;
}

bool CCallerInformation::m_Initialize()
{
    m_bBinaryIdReady = m_CheckBinaryID();
    m_bAppIdReady = m_CheckAppID();
    m_bPackageIdReady = m_CheckPackageID();
    m_bInfoInitialized = true;
    SSO_LOGD("[END] m_bBinaryIdReady (%d), m_bAppIdReady (%d), m_bPackageIdReady (%d)",
             m_bBinaryIdReady, m_bAppIdReady, m_bPackageIdReady);
    return true;
}

bool CCallerInformation::m_CheckBinaryID()
{
    std::ifstream stream("/proc/self/cmdline");
    if (!stream.is_open()) {
        SSO_LOGE("Failed to open '/proc/self/cmdline'");
        return false;
    }
    // The command line holds no newline, so this reads all of it, the NUL
    // separators of the arguments included.
    std::string cmdlineString;
    std::getline(stream, cmdlineString);
    if (cmdlineString.empty()) {
        SSO_LOGE("Failed to read '/proc/self/cmdline'");
        return false;
    }
    SSO_LOGY("cmdlineString (%s)", cmdlineString.c_str());
    // The last "/" of the whole content, arguments included: an argument
    // holding a path decides the name. Trailing NULs are kept.
    size_t slash = cmdlineString.rfind('/');
    m_binaryId = slash == std::string::npos ? cmdlineString : cmdlineString.substr(slash + 1);
    return true;
}

bool CCallerInformation::m_CheckAppID()
{
    bool bRet = false;
    sso_glib::MallocPtr<char> appId;
    int ret = app_get_id(sso_glib::Out(appId));
    if (ret == APP_ERROR_NONE && appId != nullptr) {
        m_applicationId = appId.get();
        bRet = true;
    } else {
        SSO_LOGE("Failed to app_get_id : (%d)", ret);
        m_applicationId = SSOAPIUtil::GetAppId(-1);
        bRet = !m_applicationId.empty();
    }
    SSO_LOGD("[END] bRet (%d), m_applicationId (%s)", bRet, m_applicationId.c_str());
    return bRet;
}

bool CCallerInformation::m_CheckPackageID()
{
    if (m_applicationId.empty()) {
        SSO_LOGE("m_applicationID is empty");
        return false;
    }
    sso_glib::MallocPtr<char> packageId;
    int ret =
        package_manager_get_package_id_by_app_id(m_applicationId.c_str(), sso_glib::Out(packageId));
    if (ret != PACKAGE_MANAGER_ERROR_NONE || packageId == nullptr) {
        SSO_LOGE("Failed to package_manager_get_package_id_by_app_id() : [%s]",
                 m_applicationId.c_str());
        return false;
    }
    SSO_LOGY("m_applicationId [%s], pPackageId [%s]", m_applicationId.c_str(), packageId.get());
    m_packageId = packageId.get();
    SSO_LOGD("[END] bRet (1), m_packageId (%s)", m_packageId.c_str());
    return true;
}

// The argument is unused: the certificate is always that of the caller's own
// package.
std::string CCallerInformation::m_GetCertInfo(std::string /*applicationId*/)
{
    PackageInfoPtr handle;
    if (package_info_create(m_packageId.c_str(), sso_glib::Out(handle)) !=
        PACKAGE_MANAGER_ERROR_NONE) {
        SSO_LOGE("Failed to package_info_create() : [%s]", m_packageId.c_str());
        return std::string();
    }
    sso_glib::MallocPtr<char> certValue;
    if (package_info_foreach_cert_info(handle.get(), &CCallerInformation::m_PackageInfoCheckCB,
                                       &certValue) != PACKAGE_MANAGER_ERROR_NONE) {
        SSO_LOGE("Fail to get package certificate() : [%s]", m_packageId.c_str());
        return std::string();
    }
    handle.reset();
    // A package without an author signer certificate has no text to build
    // the result from; that case leaves as this exception (as constructing a
    // string from null would), and the exported functions catch it.
    if (certValue == nullptr)
        throw std::logic_error("basic_string: construction from null is not valid");
    return std::string(certValue.get());
}

bool CCallerInformation::m_PackageInfoCheckCB(package_info_h /*handle*/,
                                              package_cert_type_e certType, const char *certValue,
                                              void *userData)
{
    if (certType != PACKAGE_INFO_AUTHOR_SIGNER_CERT || certValue == nullptr)
        return true; // the next one
    // The last one found stands.
    static_cast<sso_glib::MallocPtr<char> *>(userData)->reset(strdup(certValue));
    return false; // found: stop
}

bool CCallerInformation::m_DecodeCertificate(const char *text, size_t length,
                                             sso_glib::MallocPtr<unsigned char> &decoded,
                                             int *decodedLength)
{
    // Base64 yields 3 bytes per 4 characters: 1.5 times the length is ample.
    size_t bufferSize = static_cast<size_t>(static_cast<double>(length) * 1.5);
    sso_glib::MallocPtr<unsigned char> buffer(static_cast<unsigned char *>(calloc(bufferSize, 1)));
    if (buffer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to calloc()");
        return false;
    }
    const SSOCryptoApi *crypto = SSOCrypto();
    if (crypto == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to load libcrypto");
        return false;
    }
    SSOBioPtr source(crypto->BIO_new_mem_buf(text, static_cast<int>(length)));
    if (source == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to BIO_new_mem_buf()");
        return false;
    }
    SSOBioPtr base64(crypto->BIO_new(crypto->BIO_f_base64()));
    if (base64 == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to BIO_new()");
        return false;
    }
    // The registry stores the text on one line.
    crypto->BIO_set_flags(base64.get(), BIO_FLAGS_BASE64_NO_NL);
    // The chain owns both: freeing it frees the source too.
    SSOBioPtr chain(crypto->BIO_push(base64.release(), source.release()));
    int decodedSize = crypto->BIO_read(chain.get(), buffer.get(), static_cast<int>(length));
    SSO_LOGY("decoded size = %d", decodedSize);
    *decodedLength = decodedSize < 0 ? 0 : decodedSize;
    decoded = std::move(buffer);
    SSO_LOGD("[END] decodedSize = %d", *decodedLength);
    return true;
}

std::string CCallerInformation::m_GetPackageSignature(bool useSha256)
{
    const unsigned int digestLength = useSha256 ? 32 : 20;
    std::string certificate = m_GetCertInfo(m_applicationId);
    if (certificate.empty()) {
        SSO_LOGE("Failed to m_GetCertInfo()");
        return std::string();
    }
    sso_glib::MallocPtr<unsigned char> der;
    int derLength = 0;
    if (!m_DecodeCertificate(certificate.c_str(), certificate.size(), der, &derLength)) {
        SSO_LOGE("Failed to m_DecodeCertificate()");
        return std::string();
    }
    // m_DecodeCertificate succeeded, so libcrypto is loaded.
    const SSOCryptoApi *crypto = SSOCrypto();
    const unsigned char *cursor = der.get();
    SSOX509Ptr x509(crypto->d2i_X509(nullptr, &cursor, derLength));
    der.reset();
    if (x509 == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to d2i_X509()");
        return std::string();
    }

    X509_PUBKEY *publicKey = crypto->X509_get_X509_PUBKEY(x509.get());
    int keyLength = crypto->i2d_X509_PUBKEY(publicKey, nullptr);
    if (keyLength < 1) {
        SSO_LOGE("Failed to i2d_X509_PUBKEY()");
        return std::string();
    }
    sso_glib::MallocPtr<unsigned char> keyDer(static_cast<unsigned char *>(malloc(keyLength)));
    if (keyDer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to scopedDerPubkey()");
        return std::string();
    }
    unsigned char *out = keyDer.get();
    crypto->i2d_X509_PUBKEY(publicKey, &out);
    unsigned char digest[EVP_MAX_MD_SIZE] = {0};
    unsigned int length = 0;
    if (crypto->EVP_Digest(keyDer.get(), static_cast<size_t>(keyLength), digest, &length,
                           useSha256 ? crypto->EVP_sha256() : crypto->EVP_sha1(), nullptr) != 1) {
        SSO_LOGE("Failed to EVP_Digest()");
        return std::string();
    }
    SSO_LOGY("length = [%d]", static_cast<int>(digestLength));
    std::string signature;
    char hex[3];
    for (unsigned int i = 0; i < digestLength && i < length; ++i) {
        snprintf(hex, sizeof(hex), "%02X", digest[i]);
        signature += hex;
    }
    return signature;
}
