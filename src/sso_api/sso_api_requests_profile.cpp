// Profile, identity and group queries, the JSON adapter of the profile, and
// the retired partner-authentication and content-provider mapping entry
// points, which stay so that older applications still link and run.
#include <sso_api/sso_api.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"

namespace {

// What sso_get_user_json_info needs when the profile arrives.
struct UserJsonInfoContext {
    sso_user_json_info_cb callback;
    void *userData;
};

// Contexts of requests whose result may still come. A refused request keeps
// its context here for good: a request that timed out may yet be delivered,
// so freeing it would risk a use after free. Allocated once and never
// destroyed, so a late delivery during unload still finds it.
struct PendingContexts {
    std::mutex mutex;
    std::set<UserJsonInfoContext *> contexts;
};

PendingContexts &Pending()
{
    static PendingContexts *pending = new PendingContexts();
    return *pending;
}

// Runs on the SSOProxyMonitor thread, in place of the application's callback.
int sso_get_user_json_info_cb(void *context, int result, sso_user_info info)
{
    SSO_LOG_START();
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOGE("SSOAPIClientLifeCycle is deleted");
        return 0;
    }
    auto *ctx = static_cast<UserJsonInfoContext *>(context);
    {
        std::lock_guard<std::mutex> lock(Pending().mutex);
        if (Pending().contexts.erase(ctx) == 0) {
            SSO_LOGE("unknown user json info context");
            return -1;
        }
    }
    char *json = nullptr;
    if (!SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode(info, &json)) {
        SSO_LOGE("Failed to SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode()");
        delete ctx;
        return -1;
    }
    if (ctx->callback == nullptr)
        SSO_LOG_CHECK_NULL("sso_get_user_json_info's callback is null");
    else
        ctx->callback(ctx->userData, result, json);
    free(json);
    delete ctx;
    SSO_LOG_END();
    return 0;
}

} // namespace

// -------------------------------------------------- partner authentication

int sso_private_request_partner_auth_info(const char *authKey, const char *authValue,
                                          const char *method, sso_response_data_cb callback,
                                          void *userData)
{
    SSO_LOG_START();
    SSO_REFUSE_IF(authKey == nullptr || method == nullptr || callback == nullptr,
                  "pAauthKey or pMethod or pCallback is null");
    // Not a mandatory argument, but a tuple cannot carry a null string.
    SSO_REFUSE_IF_NULL(authValue == nullptr, "pAuthValue is null");
    return sso_private_send_request(
        __func__, {authKey, authValue, method}, callback, userData,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "authKey = %s, pAuthValue = %s, pMethod = %s, pCallback = %lld, "
                              "dbusProxyTid = %lld",
                              authKey, authValue, method, sso_private_pointer_log(callback),
                              dbusProxyTid);
        });
}

extern "C" {

// ----------------------------------------------------------------- profile

SSO_API int sso_get_user_info_v4(sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "get_user_info_common_cb is null");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);
    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "get_user_info_common_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_get_user_info(sso_get_user_info_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "get_user_info_cb is nullptr");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);
    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "get_user_info_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_identify_current_user_info(sso_identify_user_info_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "sso_identify_current_user_info_cb is nullptr");
    // Identity verification serves a device nobody has signed in to yet.
    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "identify_user_info_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_get_namecheck_auth_info(sso_get_namecheck_auth_info_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "get_namecheck_auth_info_cb is nullptr");
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);
    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "get_namecheck_auth_info_cb = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_get_dynamic_my_account_list(sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NULL(callback == nullptr, "callback is nullptr");
    return sso_private_send_request(
        __func__, {}, callback, user_data, [&](const char *fn, long long dbusProxyTid) {
            SSO_LOGY_FOR(fn, "callback = %lld, dbusProxyTid = %lld",
                         sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// ------------------------------------------------------------------ groups

SSO_API int sso_get_user_family_group(const char *app_id, const char *access_token,
                                      sso_response_data_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"access_token", access_token});
    SSO_REFUSE_IF(app_id == nullptr || access_token == nullptr || callback == nullptr,
                  "app_id, access_token or get_user_family_group_cb is nullptr");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    return sso_private_send_request(
        __func__, {app_id, access_token}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(fn,
                              "app_id = %s, access_token = %s, get_user_family_group_cb = %lld, "
                              "dbusProxyTid = %lld",
                              app_id, access_token, sso_private_pointer_log(callback),
                              dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

SSO_API int sso_get_user_group_users(const char *app_id, const char *access_token,
                                     const char *group_id, sso_response_data_cb callback,
                                     void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"access_token", access_token},
                           {"group_id", group_id});
    SSO_REFUSE_IF(app_id == nullptr || access_token == nullptr || group_id == nullptr ||
                      callback == nullptr,
                  "app_id, access_token, group_id or get_user_group_users_cb is nullptr");
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    return sso_private_send_request(
        __func__, {app_id, access_token, group_id}, callback, user_data,
        [&](const char *fn, long long dbusProxyTid) {
            SSO_LOG_DEVEL_FOR(
                fn,
                "app_id = %s, access_token = %s, group_id = %s, get_user_group_users_cb = "
                "%lld, dbusProxyTid = %lld",
                app_id, access_token, group_id, sso_private_pointer_log(callback), dbusProxyTid);
        });
}
SSO_API_CATCH(-1)

// --------------------------------------------------------- profile as JSON

SSO_API int sso_get_user_json_info(sso_user_json_info_cb callback, void *user_data)
try {
    SSO_LOG_START();
    // The application's callback is not checked here: the request carries
    // the adapter's own, and a null one is only met when the result arrives.
    auto *context = new UserJsonInfoContext{callback, user_data};
    {
        std::lock_guard<std::mutex> lock(Pending().mutex);
        Pending().contexts.insert(context);
    }
    int result = sso_get_user_info(sso_get_user_json_info_cb, context);
    SSO_LOG_END();
    return result;
}
SSO_API_CATCH(-1)

// ------------------------------------------------------------ retired APIs

SSO_API int sso_get_partner_auth_info(const char *, sso_response_data_cb, void *)
try {
    SSO_LOGE("'sso_get_partner_auth_info' API has been deprecated.");
    return sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
}
SSO_API_CATCH(-1)

SSO_API int sso_save_partner_auth_info(const char *, const char *, sso_response_data_cb, void *)
try {
    SSO_LOGE("'sso_save_partner_auth_info' API has been deprecated.");
    return sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
}
SSO_API_CATCH(-1)

SSO_API int sso_clear_partner_auth_info(const char *, sso_response_data_cb, void *)
try {
    SSO_LOGE("'sso_clear_partner_auth_info' API has been deprecated.");
    return sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
}
SSO_API_CATCH(-1)

SSO_API int sso_get_cp_account_info(const char *, char **)
try {
    SSO_LOG_START();
    return sso_private_fail(SSO_ERROR_NOT_SUPPORTED, -1);
}
SSO_API_CATCH(-1)

// The mapping stubs answer by login state, as their callers expect.
SSO_API int sso_get_cp_account_mapping_list(sso_response_data_cb, void *)
try {
    SSO_LOGE("Call sso_private_return_by_login_state_as_deprecated_api()");
    return sso_private_return_by_login_state_as_deprecated_api();
}
SSO_API_CATCH(-1)

SSO_API int sso_add_cp_account_mapping_info(const char *, const char *, sso_response_data_cb,
                                            void *)
try {
    SSO_LOGE("Call sso_private_return_by_login_state_as_deprecated_api()");
    return sso_private_return_by_login_state_as_deprecated_api();
}
SSO_API_CATCH(-1)

SSO_API int sso_remove_cp_account_mapping_info(const char *, sso_response_data_cb, void *)
try {
    SSO_LOGE("Call sso_private_return_by_login_state_as_deprecated_api()");
    return sso_private_return_by_login_state_as_deprecated_api();
}
SSO_API_CATCH(-1)

} // extern "C"
