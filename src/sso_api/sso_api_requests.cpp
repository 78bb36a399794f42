// Token, auth-code and account-operation requests. Every asynchronous one
// checks its arguments and preconditions, takes an ae_index, packs one tuple
// and hands it to the request frame; the service later delivers the result
// on the client method named in the tuple's last field.
#include <sso_api/sso_api.h>

#include <cstdint>
#include <string>

#include "SSOAPIClientUtil.h"
#include "SSOAPISystemInfo.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"

// Never reset: the index simply wraps.
std::atomic<int32_t> s_aync_event_index{0};
std::atomic<bool> s_is_sso_service_alive{false};

int32_t sso_private_take_event_index()
{
    return s_aync_event_index.fetch_add(1, std::memory_order_relaxed);
}

bool sso_private_is_sso_service_alive()
{
    if (s_is_sso_service_alive.load(std::memory_order_relaxed))
        return true;
    // Two threads may both ask before either succeeds; that only costs a
    // round trip.
    if (sso_check_alive() != 0)
        return false;
    s_is_sso_service_alive.store(true, std::memory_order_relaxed);
    return true;
}

namespace {

const char *OnOff(bool flag)
{
    return flag ? "on" : "off";
}

// Token creation sets up the device account: a hotel product refuses it
// before looking at anything.
bool RefusedOnHotel()
{
    if (!SSOAPISystemInfo::IsHotelModeSupported())
        return false;
    SSO_LOGE("Hotel TV is not supporting easysetup");
    sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
    return true;
}

// 0 when an account may be added for userId, else the refusal (logged).
int AddAccountRefusal(const char *userId)
{
    int iRet = SSOAPIClientUtil::IsAddAccountAvailable(userId);
    if (iRet != 0)
        SSO_LOGE("'Add Account' is not available. iRet(%d)", iRet);
    return iRet;
}

} // namespace

// ------------------------------------------------------------------- switch

int sso_private_request_switch_account_by_id_or_guid(const char *account_id, const char *guid,
                                                     sso_response_data_cb callback, void *user_data,
                                                     const char *extra)
{
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"account_id", account_id}, {"guid", guid}, {"extra", extra});
    SSO_REFUSE_IF(account_id == nullptr && guid == nullptr, "account_id and account_guid are null");
    SSO_REFUSE_IF_NULL(callback == nullptr, "switch_account_cb is null");
    // The account id wins when both are given.
    std::string accountInfo;
    const char *method = nullptr;
    bool byGuid = false;
    if (account_id != nullptr && account_id[0] != '\0') {
        accountInfo = account_id;
        method = "sso_switch_account";
    } else if (guid != nullptr && guid[0] != '\0') {
        accountInfo = guid;
        method = "sso_switch_account_by_guid";
        byGuid = true;
    }
    SSO_REFUSE_IF(accountInfo.empty(), "accountInfo is empty");
    // Unlike the other requests, an empty extra also counts as absent.
    std::string paramExtra = (extra == nullptr || extra[0] == '\0') ? "HAS_NO_VALUE" : extra;

    return sso_private_send_request(
        {method, __func__}, {accountInfo, paramExtra}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            // A GUID identifies the user: it goes only into the [DEVEL] line.
            SSO_LOGY_FOR(fn,
                         "methodName[%s] accountInfo[%s] switch_account_cb[%lld] "
                         "dbusProxyTid[%lld]",
                         method, byGuid ? "<hidden>" : accountInfo.c_str(),
                         sso_private_pointer_log(callback), dbusProxyTid);
            if (byGuid)
                SSO_LOG_DEVEL_FOR(fn, "accountInfo = %s", accountInfo.c_str());
        });
}

extern "C" {

// ---------------------------------------------------------- access tokens

SSO_API int sso_request_access_token_with_scope(const char *app_id, const char *secret_key,
                                                const char *scope,
                                                sso_request_access_token_cb callback,
                                                void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"secret_key", secret_key}, {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || secret_key == nullptr || callback == nullptr,
                  "app_id ,secret_key or request_access_token_cb is nullptr");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    return sso_private_send_request(
        __func__, {app_id, secret_key, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "app_id = %s, secret_key = %s, paramScope = %s, request_access_token_cb = %lld, "
                "dbusProxyTid = %lld",
                app_id, secret_key, paramScope.c_str(), sso_private_pointer_log(callback),
                dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_access_token(const char *app_id, const char *secret_key,
                                     sso_request_access_token_cb callback, void *user_data)
try {
    SSO_LOG_START();
    return sso_request_access_token_with_scope(app_id, secret_key, nullptr, callback, user_data);
}
SSO_API_CATCH(-1)

SSO_API int sso_request_access_token_using_authcode(const char *app_id, const char *secret_key,
                                                    const char *auth_code, const char *scope,
                                                    sso_request_access_token_cb callback,
                                                    void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"secret_key", secret_key}, {"auth_code", auth_code},
                           {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || secret_key == nullptr || auth_code == nullptr ||
                      callback == nullptr,
                  "app_id ,secret_key or auth_code or request_access_token_cb is NULL");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    // Sent to its own server method, but delivered like any access token.
    return sso_private_send_request(
        __func__, {app_id, secret_key, auth_code, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "app_id = %s, secret_key = %s, auth_code = %s, paramScope = %s, "
                              "request_access_token_cb = %lld, dbusProxyTid = %lld",
                              app_id, secret_key, auth_code, paramScope.c_str(),
                              sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// ------------------------------------------------------------- auth codes

SSO_API int sso_request_auth_code(const char *app_id, const char *scope,
                                  sso_request_auth_code_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr,
                  "app_id or request_auth_code_cb is NULL");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    return sso_private_send_request(
        __func__, {app_id, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(
                fn,
                "app_id = %s, paramScope = %s, request_auth_code_cb = %lld, dbusProxyTid = %lld",
                app_id, paramScope.c_str(), sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_user_authcode(const char *app_id, const char *scope,
                                      sso_request_auth_code_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr,
                  "app_id or request_authcode_cb is NULL");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    const char *pAuthCodeFor = "user";
    // User and device codes share one delivery method.
    return sso_private_send_request(__func__, {app_id, paramScope, pAuthCodeFor}, callback,
                                    user_data, [&](const char *fn, long long dbusProxyTid) {
                                        SSO_LOGY_FOR(fn,
                                                     "app_id = %s, paramScope = %s, pAuthCodeFor = "
                                                     "%s, request_user_auth_code_cb = %lld, "
                                                     "dbusProxyTid = %lld",
                                                     app_id, paramScope.c_str(), pAuthCodeFor,
                                                     sso_private_pointer_log(callback),
                                                     dbusProxyTid);
                                    });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_device_authcode(const char *app_id, const char *scope,
                                        sso_request_auth_code_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr,
                  "app_id or request_device_authcode_cb is NULL");
    // A device code needs nobody signed in.
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    const char *pAuthCodeFor = "device";
    return sso_private_send_request(
        __func__, {app_id, paramScope, pAuthCodeFor}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(
                fn,
                "app_id = %s, paramScope = %s, pAuthCodeFor = %s, request_device_auth_code_cb = "
                "%lld, dbusProxyTid = %lld",
                app_id, paramScope.c_str(), pAuthCodeFor, sso_private_pointer_log(callback),
                dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_auth_code_for_effortless_login(const char *app_id, const char *scope,
                                                       sso_request_auth_code_cb callback,
                                                       void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr,
                  "app_id or request_auth_code_cb is nullptr");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    return sso_private_send_request(
        __func__, {app_id, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "app_id = %s, paramScope = %s, request_auth_code_cb = %lld, dbusProxyTid = %lld",
                app_id, paramScope.c_str(), sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_authcode_with_ID_PWD(const char *app_id, const char *account_id,
                                             const char *passwd, const char *scope, void *user_data,
                                             sso_request_auth_code_cb callback)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"account_id", account_id}, {"passwd", passwd},
                           {"scope", scope});
    SSO_REFUSE_IF(account_id == nullptr || app_id == nullptr || passwd == nullptr ||
                      callback == nullptr,
                  "account_id or app_id or passwd or request_auth_code_cb is nullptr");

    std::string paramScope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    return sso_private_send_request(
        __func__, {app_id, account_id, passwd, paramScope}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(
                fn,
                "app_id = %s, account_id = %s, paramScope = %s, request_auth_code_cb = %lld, "
                "dbusProxyTid = %lld",
                app_id, account_id, paramScope.c_str(), sso_private_pointer_log(callback),
                dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_authcode_for_other_device(const char *dsc,
                                                  sso_request_auth_code_cb callback,
                                                  void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"dsc", dsc});
    SSO_REFUSE_IF_NULL(callback == nullptr, "request_auth_code_cb is nullptr");

    std::string paramDSC = SSOAPIClientUtil::GetParameterWithCheckNoValue(dsc);
    return sso_private_send_request(
        __func__, {paramDSC}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "paramDSC = %s, request_auth_code_for_other_device_cb = %lld, "
                              "dbusProxyTid = %lld",
                              paramDSC.c_str(), sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// ---------------------------------------------------------- token creation
//
// These create the device account, so they check neither liveness nor the
// login state; a hotel product refuses them before looking at anything.

SSO_API int sso_generate_token_with_authcode_dsc_noti(const char *authcode, const char *userid,
                                                      const char *dsc,
                                                      sso_token_with_authcode_cb callback,
                                                      void *user_data, bool use_notification)
try {
    SSO_LOG_START_F("use_notification [%d]", use_notification ? 1 : 0);
    SSO_REFUSE_IF_NOT_UTF8({"authcode", authcode}, {"userid", userid}, {"dsc", dsc});
    if (RefusedOnHotel())
        return -1;
    SSO_REFUSE_IF(authcode == nullptr || userid == nullptr, "NULL == authcode || NULL == userid");
    if (int refusal = AddAccountRefusal(userid))
        return refusal;

    std::string paramDSC = SSOAPIClientUtil::GetParameterWithCheckNoValue(dsc);
    int paramUseNotification = use_notification ? 1 : 0;
    // The flag follows the callback here, unlike in the deleteFlag variant.
    return sso_private_send_request(
        __func__, {authcode, userid, paramDSC}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "authcode = %s, userid = %s, paramDSC = %s, paramUseNotification = %d, "
                "request_oauth_token_cb = %lld, dbusProxyTid = %lld",
                authcode, userid, paramDSC.c_str(), paramUseNotification,
                sso_private_pointer_log(callback), dbusProxyTid);
        },
        {paramUseNotification});
}
SSO_API_CATCH(-1)

SSO_API int sso_generate_token_with_authcode_dsc(const char *authcode, const char *userid,
                                                 const char *dsc,
                                                 sso_token_with_authcode_cb callback,
                                                 void *user_data)
try {
    return sso_generate_token_with_authcode_dsc_noti(authcode, userid, dsc, callback, user_data,
                                                     true);
}
SSO_API_CATCH(-1)

SSO_API int sso_generate_token_with_authcode_dsc_deleteFlag(const char *userid,
                                                            const char *authcode, bool delete_flag,
                                                            const char *dsc,
                                                            sso_token_response_cb callback,
                                                            void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"userid", userid}, {"authcode", authcode}, {"dsc", dsc});
    if (RefusedOnHotel())
        return -1;
    SSO_REFUSE_IF(nullptr == userid || nullptr == authcode,
                  "nullptr == userid || nullptr == authcode");
    if (int refusal = AddAccountRefusal(userid))
        return refusal;

    std::string paramDSC = SSOAPIClientUtil::GetParameterWithCheckNoValue(dsc);
    int paramDeleteFlag = delete_flag ? 1 : 0;
    return sso_private_send_request(
        __func__, {userid, authcode, paramDSC, paramDeleteFlag}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "userid = %s, authcode = %s, paramDeleteFlag = %d, paramDSC = %s, "
                              "request_oauth_token_cb = %lld, dbusProxyTid = %lld",
                              userid, authcode, paramDeleteFlag, paramDSC.c_str(),
                              sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_generate_token_with_ID_PWD(const char *userid, const char *passwd, bool delete_flag,
                                           sso_token_response_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"userid", userid}, {"passwd", passwd});
    if (RefusedOnHotel())
        return -1;
    SSO_REFUSE_IF(nullptr == userid || nullptr == passwd, "nullptr == userid || nullptr == passwd");
    if (int refusal = AddAccountRefusal(userid))
        return refusal;

    int paramDeleteFlag = delete_flag ? 1 : 0;
    return sso_private_send_request(
        __func__, {userid, passwd, paramDeleteFlag}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn,
                         "userid = %s, paramDeleteFlag = %d, request_oauth_token_cb = %lld, "
                         "dbusProxyTid = %lld",
                         userid, paramDeleteFlag, sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_generate_token_with_authcode(const char *, const char *, sso_token_with_authcode_cb,
                                             void *)
try {
    SSO_LOG_START_F("'sso_generate_token_with_authcode() API was deprecated. Please, use "
                    "sso_generate_token_with_authcode_dsc() or "
                    "sso_generate_token_with_authcode_dsc_noti()");
    return sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
}
SSO_API_CATCH(-1)

// ------------------------------------------------------ account operations

SSO_API int sso_register_account(const char *account_id, const char *authcode, const char *dsc,
                                 sso_response_data_cb callback, void *user_data,
                                 bool perform_login_flag)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"account_id", account_id}, {"authcode", authcode}, {"dsc", dsc});
    SSO_REFUSE_IF(callback == nullptr || authcode == nullptr || account_id == nullptr,
                  "account_id or register_account_cb is NULL");
    // The DSC travels as given, without the "HAS_NO_VALUE" stand-in, and a
    // tuple cannot carry a null string: refuse it before anything is taken.
    SSO_REFUSE_IF_NULL(dsc == nullptr, "dsc is null");
    if (int refusal = AddAccountRefusal(account_id))
        return refusal;

    std::string paramDSC = SSOAPIClientUtil::GetParameterWithCheckNoValue(dsc);
    const char *performLogin = OnOff(perform_login_flag);
    return sso_private_send_request(
        __func__, {account_id, authcode, dsc, performLogin}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "account_id = %s, authcode = %s, paramDSC = %s, perform_login_flag = %s, "
                "register_account_cb = %lld, dbusProxyTid = %lld",
                account_id, authcode, paramDSC.c_str(), performLogin,
                sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_perform_logout(sso_response_data_cb callback, void *user_data,
                               const char *confirm_id)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"confirm_id", confirm_id});
    SSO_REFUSE_IF_NULL(callback == nullptr, "perform_logout_cb is null");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    std::string paramConfirmID = SSOAPIClientUtil::GetParameterWithCheckNoValue(confirm_id);
    return sso_private_send_request(
        __func__, {paramConfirmID}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "paramConfirmID = %s, perform_logout_cb = %lld, dbusProxyTid = %lld",
                         paramConfirmID.c_str(), sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_verify_password(const char *passwd, sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"passwd", passwd});
    SSO_REFUSE_IF(passwd == nullptr || callback == nullptr,
                  " passwd or verify_password_cb is NULL");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    return sso_private_send_request(
        __func__, {passwd}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "verify_password_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_account_list(sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "request_account_list_cb is null");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);

    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "request_account_list_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_set_passfw(const char *account_id, const char *password,
                           sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"account_id", account_id}, {"password", password});
    SSO_REFUSE_IF(account_id == nullptr || password == nullptr || callback == nullptr,
                  "account_id || password || callback is nullptr");

    return sso_private_send_request(
        __func__, {account_id, password}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "account_id = %s, callback = %lld, dbusProxyTid = %lld", account_id,
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_request_reset_passwd(const char *email, sso_response_data_cb callback,
                                     void *user_data)
try {
    SSO_REFUSE_IF_NOT_UTF8({"email", email});
    SSO_REFUSE_IF(email == nullptr || callback == nullptr, " email or reset_passwd_cb is nullptr");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);

    return sso_private_send_request(
        __func__, {email}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "email = %s, reset_passwd_cb = %lld, dbusProxyTid = %lld", email,
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_switch_account(const char *account_id, sso_response_data_cb callback,
                               void *user_data, const char *extra)
try {
    SSO_LOG_START();
    int result = sso_private_request_switch_account_by_id_or_guid(account_id, nullptr, callback,
                                                                  user_data, extra);
    SSO_LOG_END();
    return result;
}
SSO_API_CATCH(-1)

SSO_API int sso_switch_account_by_guid(const char *guid, sso_response_data_cb callback,
                                       void *user_data, const char *extra)
try {
    SSO_LOG_START();
    int result =
        sso_private_request_switch_account_by_id_or_guid(nullptr, guid, callback, user_data, extra);
    SSO_LOG_END();
    return result;
}
SSO_API_CATCH(-1)

SSO_API int sso_switch_account_with_usertoken(const char *account_id, sso_response_data_cb callback,
                                              void *user_data, const char *usertoken)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"account_id", account_id}, {"usertoken", usertoken});
    SSO_REFUSE_IF(account_id == nullptr || callback == nullptr || usertoken == nullptr,
                  "account_id or switch_account_cb or usertoken is nullptr");
    std::string accountId = account_id;
    SSO_REFUSE_IF(accountId.empty(), "account_id or switch_account_cb or usertoken is nullptr");

    return sso_private_send_request(
        __func__, {accountId, usertoken}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "account_id = %s, usertoken = %s, switch_account_cb = %lld, dbusProxyTid = %lld",
                accountId.c_str(), usertoken, sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// -------------------------------------------------- synchronous controls

SSO_API bool sso_is_account_switching_available(void)
try {
    SSO_LOG_START();
    bool available = sso_private_send_plain(__func__) == 0;
    SSO_LOG_END_F("return: %s", available ? "true" : "false");
    return available;
}
SSO_API_CATCH(false)

SSO_API int sso_request_current_account_noti(void)
try {
    SSO_LOG_START();
    // Login first: a signed-out device need not find out whether the
    // service runs.
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    return sso_private_send_plain(__func__);
}
SSO_API_CATCH(-1)

SSO_API int sso_reset(void)
try {
    SSO_LOG_START();
    return sso_private_send_plain(__func__);
}
SSO_API_CATCH(-1)

} // extern "C"
