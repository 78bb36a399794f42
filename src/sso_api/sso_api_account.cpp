// Synchronous account queries: answered on the caller's thread from the
// settings store and the cached public account document, without the
// service; and the two synchronous reads of raw data from the service.
#include <sso_api/sso_api.h>
#include <sso_api/sso_api_service_data.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ICVConf.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"
#include "sso_ss_data_storage.h"

namespace {

const char kAccountUiAppId[] = "com.veltra.tv.CSAccount";

// The login-state gate of the getters: true only when signed in. On a
// signed-out device they never touch secure storage.
bool IsSignedIn()
{
    sso_login_state state = SSO_NOT_LOGIN;
    int result = sso_get_login_state(&state);
    if (result == -1 || state != SSO_LOGEDIN) {
        SSO_LOGE("result [%d], Login State [%d]. Return (%s)", result, static_cast<int>(state),
                 "Not login state");
        // A state that could not be read keeps the reader's cause.
        if (result == 0)
            SSOAPIError::Set(SSO_ERROR_NOT_SIGNED_IN);
        return false;
    }
    return true;
}

// -1 for a value the active account lacks: the account data could not be
// read (recorded by the read), or it does not hold the value (cause).
int MissingFromTheAccount(sso_error_e cause)
{
    if (SSOAPIError::Last() == SSO_ERROR_NONE)
        SSOAPIError::Set(cause);
    return -1;
}

// One text of the active account that a getter hands out.
struct AccountText {
    std::string sso_accounts_info::*field;
    const char *missing; // logged when the account lacks it
    sso_error_e missingCause;
    int outOfMemory;                    // the getter's result when no copy could be had
    bool outOfMemoryWithLength = false; // that line says how much was asked for
};

constexpr AccountText kGuid{&sso_accounts_info::strLoginGUID, "SSO not login, please login first.",
                            SSO_ERROR_NOT_SIGNED_IN, -101};
constexpr AccountText kUid{&sso_accounts_info::strLoginUID, "SSO not login, please login first.",
                           SSO_ERROR_NOT_SIGNED_IN, -1};
constexpr AccountText kAuthToken{&sso_accounts_info::strAccountAuth,
                                 "SSO not login, please login first.", SSO_ERROR_NOT_SIGNED_IN,
                                 -101};
constexpr AccountText kDeviceId{&sso_accounts_info::userDeviceID, "userDeviceID is empty",
                                SSO_ERROR_NOT_FOUND, -1, true};

// The account read of the getters: false (logged under the getter's name)
// when nobody is signed in or the account data cannot be read.
bool ReadSignedInAccount(const char *getter, sso_accounts_info &info)
{
    if (!IsSignedIn())
        return false;
    SSOAPIError::Set(SSO_ERROR_NONE);
    if (!SSOAPIClientUtil::GetAccountsInfo(info)) {
        SSO_LOGE_FOR(getter, "Failed to SSOAPIClientUtil::GetAccountsInfo()");
        return false;
    }
    return true;
}

// Hands one text of the active account out through *out: 0, or the getter's
// failure (logged under its name).
int HandOutAccountText(const char *getter, const AccountText &text, char **out)
{
    sso_accounts_info info;
    if (!ReadSignedInAccount(getter, info))
        return -1;
    const std::string &value = info.*text.field;
    if (value.empty()) {
        SSO_LOGE_FOR(getter, "%s", text.missing);
        return MissingFromTheAccount(text.missingCause);
    }
    char *buffer = sso_private_copy_out(value);
    if (buffer == nullptr) {
        if (text.outOfMemoryWithLength)
            SSO_LOGE_FOR(getter, "Failed to malloc(). len(%d)", static_cast<int>(value.size()));
        else
            SSO_LOGE_FOR(getter, "SSO_API_CHECK_NULL_RETURN. Return (%s)", "Failed to malloc()");
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, text.outOfMemory);
    }
    *out = buffer;
    return 0;
}

} // namespace

char *sso_private_copy_out(const std::string &text)
{
    char *buffer = static_cast<char *>(calloc(text.size() + 1, 1));
    if (buffer != nullptr)
        memcpy(buffer, text.data(), text.size());
    return buffer;
}

extern "C" {

SSO_API int sso_get_login_state(sso_login_state *state)
try {
    if (state == nullptr) {
        SSO_LOG_CHECK_NULL("state is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    *state = SSO_NOT_LOGIN;
    int value = 0;
    if (!ICVConf::GetLoginState(value)) {
        SSO_LOGE("Failed to ICVConf::GetLoginState()");
        // A state the service never wrote: nobody has signed in.
        if (SSOAPIError::Last() == SSO_ERROR_NOT_FOUND)
            SSOAPIError::Set(SSO_ERROR_NOT_SIGNED_IN);
        return -1;
    }
    // Any stored value other than 1 reads as signed out.
    *state = value == 1 ? SSO_LOGEDIN : SSO_NOT_LOGIN;
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_account_number(int *count)
try {
    if (count == nullptr) {
        SSO_LOG_CHECK_NULL("count is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    int value = 0;
    if (!ICVConf::GetAccountCount(value)) {
        SSO_LOGE("Failed to ICVConf::GetAccountCount()");
        *count = 0;
        return -1;
    }
    *count = value;
    SSO_LOGY("account count = %d", value);
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_guid(char **guid)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(guid == nullptr, "guid is null");
    if (int result = HandOutAccountText(__func__, kGuid, guid))
        return result;
    SSO_LOG_DEVEL("guid : %s", *guid);
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_login_vd_uid(char **uid)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(uid == nullptr, "uid is null");
    if (int result = HandOutAccountText(__func__, kUid, uid))
        return result;
    SSO_LOG_DEVEL("uid value is %s", *uid);
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_auth_token(char **auth_token)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(auth_token == nullptr, "auth_token is null");
    if (int result = HandOutAccountText(__func__, kAuthToken, auth_token))
        return result;
    // The auth token is never logged, not even on a debug device.
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_device_id(char **device_id)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(device_id == nullptr, "device_id is null");
    if (int result = HandOutAccountText(__func__, kDeviceId, device_id))
        return result;
    SSO_LOG_DEVEL("device_id : %s", *device_id);
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_login_info(sso_login_info_s *login_info)
try {
    SSO_LOG_START();
    if (login_info == nullptr) {
        SSO_LOGE("the input param is nullptr, please check.");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    sso_accounts_info info;
    if (!ReadSignedInAccount(__func__, info))
        return -1;
    // Bounded one byte short of each field; the rest of the caller's record
    // is left as it is.
    snprintf(login_info->login_id, sizeof(login_info->login_id) - 1, "%s", info.strLoginID.c_str());
    snprintf(login_info->password, sizeof(login_info->password) - 1, "%s",
             info.strLoginPassword.c_str());
    snprintf(login_info->guid, sizeof(login_info->guid) - 1, "%s", info.strLoginGUID.c_str());
    snprintf(login_info->uid, sizeof(login_info->uid) - 1, "%s", info.strLoginUID.c_str());
    snprintf(login_info->user_icon_path, sizeof(login_info->user_icon_path) - 1, "%s",
             info.strUserIconPath.c_str());
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_login_user_id(char **user_id)
try {
    SSO_LOG_START();
    if (user_id == nullptr) {
        SSO_LOG_CHECK_NULL("user_id is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    if (!IsSignedIn())
        return -1;
    sso_login_info_s info;
    memset(&info, 0, sizeof(info));
    if (sso_get_login_info(&info) != 0) {
        SSO_LOGE("Failed to get Login Info.");
        return -1;
    }
    char *buffer = sso_private_copy_out(info.login_id);
    if (buffer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to malloc()");
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, -1);
    }
    *user_id = buffer;
    SSO_LOGP("User id: %s", buffer);
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_login_json_info(char **json)
try {
    SSO_LOG_START();
    if (json == nullptr) {
        SSO_LOG_CHECK_NULL("json is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    if (!IsSignedIn())
        return -1;
    sso_accounts_info info;
    if (!SSOAPIClientUtil::GetAccountsInfo(info))
        SSO_LOGE("Failed to SSOAPIClientUtil::GetAccountsInfo()");
    SSOAPIUtil::PrintActiveAccountInfo(info);
    int result = 0;
    if (!SSOAPIClientUtil::GetJsonStringLoginInfo(info, json)) {
        SSO_LOGE("Failed to SSOAPIClientUtil::GetJsonStringLoginInfo()");
        result = sso_private_fail(SSO_ERROR_INTERNAL, -1);
    }
    SSO_LOG_END_F("ssoResult: %d", result);
    return result;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_accounts(char **accounts)
try {
    SSO_LOG_START();
    if (accounts == nullptr) {
        SSO_LOG_CHECK_NULL("accounts is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    CSSOSSData *cache =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSSData>::GetInstance() : nullptr;
    if (cache == nullptr) {
        SSO_LOG_CHECK_NULL("pSSDataInstance is null");
        return sso_private_fail(SSO_ERROR_UNLOADING, -1);
    }
    // No login gate: the document is handed out whatever the state. A failed
    // read still hands out an (empty) text, which the caller frees.
    int result = 0;
    std::string text;
    if (!cache->GetAccountData(text)) {
        SSO_LOGE("Failed to GetAccountData()");
        result = sso_private_fail(SSO_ERROR_STORAGE_UNREADABLE, -1);
    }
    char *buffer = sso_private_copy_out(text);
    if (buffer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to malloc()");
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, -1);
    }
    *accounts = buffer;
    SSO_LOG_END_F("ssoResult: %d", result);
    return result;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_popup_state(int *state)
try {
    if (state == nullptr) {
        SSO_LOGE("the input param is nullptr, please check.");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    *state = 0;
    int value = 0;
    if (!ICVConf::GetViewState(value)) {
        SSO_LOGE("Failed to ICVConf::GetViewState()");
        return -1;
    }
    *state = value == 1 ? 1 : 0;
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_get_account_ui_application_package_id(char **package_id)
try {
    if (package_id == nullptr) {
        SSO_LOG_CHECK_NULL("package_id is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    char *buffer = sso_private_copy_out(kAccountUiAppId);
    if (buffer == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to malloc()");
        return sso_private_fail(SSO_ERROR_OUT_OF_MEMORY, -1);
    }
    *package_id = buffer;
    return 0;
}
SSO_API_CATCH(-1)

} // extern "C"

// -------------------------------------------- synchronous reads from the service

SSO_API bool sso_private_get_public_account_data(std::string &out)
try {
    out.clear();
    SSO_LOG_START();
    SSORequestFrame frame("sso_private_get_public_account_data");
    bool ok = frame.Open() && frame.ReadData({}, out, "pPublicAccountData is null");
    if (ok)
        SSO_LOGY("accountData size[%zu]", out.size());
    SSO_LOG_END_F("bRet [%d]", ok ? 1 : 0);
    return ok;
}
SSO_API_CATCH(false)

SSO_API bool sso_private_get_extracted_application_data(const std::string &packageId,
                                                        const std::string &appId,
                                                        const std::string &key, std::string &out)
try {
    out.clear();
    SSO_LOG_START();
    // Empty inputs answer true with an empty result, without asking the
    // service; callers tell the case by the empty text.
    if (packageId.empty() || appId.empty() || key.empty()) {
        SSO_LOGE("packageId or appId or key is empty");
        return true;
    }
    SSORequestFrame frame("sso_private_get_extracted_application_data");
    bool ok =
        frame.Open() && frame.ReadData({packageId, appId, key}, out, "pExtractedAppData is null");
    if (ok)
        SSO_LOGY("applicationData size[%zu]", out.size());
    SSO_LOG_END_F("bRet [%d]", ok ? 1 : 0);
    return ok;
}
SSO_API_CATCH(false)
