// Whitelist access tokens: issued by the service only to packages whose
// signing certificate it trusts. The request sends the caller's app id,
// package id and certificate signature; the synchronous read takes the token
// the service already stored in the current account's application data. Both
// ask the caller identity first whether the named package is the caller's.
// The "signature" functions are aliases of the whitelist ones.
#include <sso_api/sso_api.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "CallerInformation.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_glib_ptr.h"
#include "sso_log.h"
#include "sso_ss_data_storage.h"

namespace {

// The service's key of a whitelist token in the application data, followed
// directly by the app id. The spelling is the service's and must not change.
constexpr const char *kWhitelistTokenKeyPrefix = "DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_";
// The kind of check both paths ask the caller identity for.
constexpr int kCheckCallerPackage = 1;

} // namespace

// A new `var` holding the library's `Type` singleton; -1 with
// SSO_ERROR_UNLOADING, `reason` logged, once the library is unloading.
#define SSO_SINGLETON_OR_FAIL(Type, var, reason)                                                   \
    Type *var = SSOAPISingleton<Type>::GetInstance();                                              \
    if (var == nullptr) {                                                                          \
        SSO_LOG_CHECK_NULL(reason);                                                                \
        return sso_private_fail(SSO_ERROR_UNLOADING, -1);                                          \
    }                                                                                              \
    static_cast<void>(0)
#define SSO_CALLER_INFO_OR_FAIL(var)                                                               \
    SSO_SINGLETON_OR_FAIL(CCallerInformation, var, "pCallerInfoInstance is null")
// -1 with SSO_ERROR_NOT_ALLOWED unless `package` is the caller's own.
#define SSO_REFUSE_UNLESS_CALLER_PACKAGE(callerInfo, package)                                      \
    do {                                                                                           \
        if (!(callerInfo)->CheckCaller(kCheckCallerPackage, (package))) {                          \
            SSO_LOGE("not allowed with this package name (%s)", (package));                        \
            return sso_private_fail(SSO_ERROR_NOT_ALLOWED, -1);                                    \
        }                                                                                          \
    } while (0)

extern "C" {

SSO_API int sso_api_request_whitelist_accesstoken(const char *app_id, const char *packagename,
                                                  const char *signature, const char *scope,
                                                  sso_request_whitelist_accesstoken_cb callback,
                                                  void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"packagename", packagename},
                           {"signature", signature}, {"scope", scope});
    SSO_REFUSE_IF_NULL(app_id == nullptr, "app_id is nullptr");
    SSO_REFUSE_IF_NULL(packagename == nullptr, "packagename is nullptr");
    SSO_REFUSE_IF_NULL(signature == nullptr, "signature is nullptr");
    SSO_REFUSE_IF_NULL(callback == nullptr, "request_whitelist_accesstoken_cb is nullptr");
    SSO_CALLER_INFO_OR_FAIL(pCallerInfoInstance);
    SSO_REFUSE_UNLESS_CALLER_PACKAGE(pCallerInfoInstance, packagename);
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    return sso_private_send_request(
        __func__, {app_id, packagename, signature, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "app_id = %s, pakagename = %s, signature = %s, paramScope = %s, "
                              "request_whitelist_accesstoken_cb = %lld, dbusProxyTid = %lld",
                              app_id, packagename, signature, paramScope.c_str(),
                              sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// A package without an author signer certificate makes GetSignature throw;
// the catch below turns that into -1 like every other refusal.
SSO_API int sso_request_whitelist_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(app_id == nullptr, "app_id is nullptr");
    SSO_REFUSE_IF_NULL(callback == nullptr, "request_whitelist_accesstoken_cb is nullptr");
    SSO_CALLER_INFO_OR_FAIL(pCallerInfoInstance);
    std::string packageId = pCallerInfoInstance->GetPackageID();
    std::string signature = pCallerInfoInstance->GetSignature(true);
    int ret = sso_api_request_whitelist_accesstoken(app_id, packageId.c_str(), signature.c_str(),
                                                    scope, callback, user_data);
    SSO_LOG_END();
    return ret;
}
SSO_API_CATCH(-1)

SSO_API int sso_request_signature_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data)
try {
    SSO_LOG_START();
    int ret = sso_request_whitelist_accesstoken(app_id, scope, callback, user_data);
    SSO_LOG_END();
    return ret;
}
SSO_API_CATCH(-1)

SSO_API int sso_api_get_whitelist_accesstoken(const char *app_id, const char *packagename,
                                              char **access_token)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(app_id == nullptr, "app_id is nullptr");
    SSO_REFUSE_IF_NULL(packagename == nullptr, "packagename is nullptr");
    // Purely local: no liveness check, the login state comes first.
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);
    SSO_CALLER_INFO_OR_FAIL(pCallerInfoInstance);
    SSO_REFUSE_UNLESS_CALLER_PACKAGE(pCallerInfoInstance, packagename);
    sso_glib::MallocPtr<char> guidBuffer;
    int guidResult = sso_get_guid(sso_glib::Out(guidBuffer));
    if (guidResult != 0 || guidBuffer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to get GUID");
        return -1;
    }
    std::string guid = guidBuffer.get();

    std::string dataKey = std::string(kWhitelistTokenKeyPrefix) + app_id;
    SSO_SINGLETON_OR_FAIL(CSSOSSData, pSSDataInstance, "pSSDataInstance is null");
    std::string value;
    if (!pSSDataInstance->ExtractApplicationData(packagename, guid, dataKey, value)) {
        SSO_LOGE("Failed to GetExtractApplicationData()");
        return -1;
    }
    char *buffer = sso_private_copy_out(value);
    if (buffer == nullptr) {
        SSO_LOGE("malloc() failed!");
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, -1);
    }
    if (access_token == nullptr) {
        // Nowhere to hand the copy to: nothing stays allocated.
        free(buffer);
        SSO_LOG_CHECK_NULL("access_token is nullptr");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    *access_token = buffer;
    SSO_LOG_DEVEL("access_token = %s", buffer);
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_whitelist_accesstoken(const char *app_id, char **access_token)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(app_id == nullptr, "app_id is nullptr");
    SSO_CALLER_INFO_OR_FAIL(pCallerInfoInstance);
    std::string packageId = pCallerInfoInstance->GetPackageID();
    return sso_api_get_whitelist_accesstoken(app_id, packageId.c_str(), access_token);
}
SSO_API_CATCH(-1)

SSO_API int sso_get_signature_accesstoken(const char *app_id, char **access_token)
try {
    SSO_LOG_START();
    int ret = sso_get_whitelist_accesstoken(app_id, access_token);
    SSO_LOG_END();
    return ret;
}
SSO_API_CATCH(-1)

// Identifies the caller now rather than at its first token request.
SSO_API int sso_pre_init_callerInformation(void)
try {
    SSO_LOG_START();
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOG_CHECK_NULL("pCallerInfoInstance is null");
        return -1;
    }
    CCallerInformation *pCallerInfoInstance = SSOAPISingleton<CCallerInformation>::GetInstance();
    if (pCallerInfoInstance == nullptr) {
        SSO_LOG_CHECK_NULL("pCallerInfoInstance is null");
        return -1;
    }
    pCallerInfoInstance->CheckInit();
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

} // extern "C"
