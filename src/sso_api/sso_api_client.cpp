// The exported C API. Every entry point is a thin shell: it checks its
// arguments, calls into the C++ core, and lets no exception escape.
#include <sso_api/sso_api.h>

#include <cstdint>
#include <exception>

#include "SSOAPIClientLifeCycle.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_log.h"

// Must stay the first static object of this module: it is constructed before,
// and destroyed after, every other one (the login-state callback map among
// them), so the client is alive for all of them.
static SSOAPIClientLifeCycle s_clientLifeCycle;

static_assert(sizeof(sso_login_info_s) == 1536, "sso_login_info_s is 1536 bytes");
static_assert(sizeof(sso_user_info) == 1536, "sso_user_info is 1536 bytes");

namespace {

void DropParameters(GVariant *parameters)
{
    if (parameters != nullptr)
        g_variant_unref(g_variant_ref_sink(parameters));
}

// Application callback forms, by shape of the client method.
using StringResultCb = int (*)(void *, int, char *);
using ResultOnlyCb = int (*)(void *, int);
using TwoStringsCb = int (*)(void *, int, char *, char *);
using NameCheckCb = int (*)(void *, bool, char *, char *, char *);
using UserInfoCb = int (*)(void *, int, sso_user_info);

template <typename Fn> Fn AsFunction(gint64 value)
{
    return reinterpret_cast<Fn>(static_cast<intptr_t>(value));
}

void *AsPointer(gint64 value)
{
    return reinterpret_cast<void *>(static_cast<intptr_t>(value));
}

} // namespace

// ------------------------------------------------------------ request frame

bool sso_private_call_dbus_method_to_server(std::string methodName, GVariant *parameters,
                                            GVariant **reply)
{
    SSO_LOG_START();
    SSO_LOGE("---> methodName [%s]", methodName.c_str());
    // The first transport of the process is created and connected here, which
    // can take up to the 10-second start-up hand-shake.
    CSSOSvcGdbus *transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        DropParameters(parameters);
        return false;
    }
    // Cheap after the first time: only the first registration takes effect,
    // and it is in place before the first result can arrive.
    transport->RegisterCallback(sso_handle_api_response, nullptr);
    if (!transport->CallMethodToServer(methodName, parameters, reply, SSO_REQUEST_TIMEOUT_MS)) {
        SSO_LOGE("Failed to CallMethodToServer(). methodName [%s]", methodName.c_str());
        return false;
    }
    SSO_LOG_END();
    return true;
}

int sso_private_request_method(const char *methodName, GVariant *parameters, GVariant **reply)
{
    GVariant *localReply = nullptr;
    if (reply == nullptr)
        reply = &localReply;
    *reply = nullptr;
    if (methodName == nullptr) {
        SSO_LOG_CHECK_NULL("pMethodName is null");
        DropParameters(parameters);
        return -1;
    }
    SSO_LOG_START_F("pMethodName [%s]", methodName);

    int ssoResult = -1;
    int result = -1;
    if (!sso_private_call_dbus_method_to_server(methodName, parameters, reply)) {
        if (*reply != nullptr) {
            g_variant_unref(*reply);
            *reply = nullptr;
        }
        SSO_LOGE("sso_private_call_dbus_method_to_server() return false");
    } else {
        if (*reply != nullptr && g_variant_is_of_type(*reply, G_VARIANT_TYPE("(i)")))
            g_variant_get(*reply, "(i)", &ssoResult);
        if (*reply != nullptr) {
            g_variant_unref(*reply);
            *reply = nullptr;
        }
        if (ssoResult != 1)
            SSO_LOGE("result(%d) is not 1", ssoResult);
        else
            result = 0;
    }
    SSO_LOG_END_F("pMethodName[%s] sso_result[%d] result[%d]", methodName, result, ssoResult);
    return result;
}

// --------------------------------------------------------- response dispatch

void sso_handle_api_response(GDBusConnection *, const char *, const char *, const char *,
                             const char *methodName, GVariant *parameters,
                             GDBusMethodInvocation *invocation, void *)
{
    SSO_LOG_START();
    SSO_LOGE("<--- Client Method Name [%s]", methodName != nullptr ? methodName : "(null)");

    // The service is always answered with an empty reply, at once: it never
    // waits for the application and learns nothing of what follows.
    bool answered = false;
    auto answer = [&] {
        if (!answered && invocation != nullptr)
            g_dbus_method_invocation_return_value(invocation, nullptr);
        answered = true;
    };

    gchar *objName = nullptr;
    gint64 callback = 0;
    gint64 threadId = 0;
    gint32 result = -1;
    gint64 userData = 0;
    gchar *s[9] = {nullptr};
    gint32 aeIndex = 0;
    gchar *methodCall = nullptr;
    CLIENT_DBUS_METHOD_TYPE type = CLIENT_METHOD_NONE;

    try {
        if (!SSOAPIUtil::IsClientAlive()) {
            answer();
            return;
        }
        if (methodName == nullptr || parameters == nullptr) {
            SSO_LOGE("method_name or parameters is null");
            answer();
            return;
        }
        type = SSOAPIClientUtil::GetClientDBusMethodType(methodName);
        if (type == CLIENT_METHOD_NONE) {
            SSO_LOGE("clientMethodType is CLIENT_METHOD_NONE");
            answer();
            return;
        }
        std::string format = SSOAPIClientUtil::GetClientDBusMethodParameterFormat(type);
        if (format.empty()) {
            SSO_LOGE("parameterFormat is empty");
            answer();
            return;
        }

        // GDBus has checked the arguments against the introspection already;
        // the type test only keeps a table that ever disagreed from turning
        // into a decoding fault.
        bool decodable = g_variant_is_of_type(parameters, G_VARIANT_TYPE(format.c_str()));
        if (!decodable)
            SSO_LOGE("Unhandled clientMethodType: (%d)", static_cast<int>(type));
        else if (type == CLIENT_METHOD_STRING_RESULT)
            g_variant_get(parameters, "(sxxsixis)", &objName, &callback, &threadId, &s[0], &result,
                          &userData, &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_RESULT_ONLY)
            g_variant_get(parameters, "(sxxixis)", &objName, &callback, &threadId, &result,
                          &userData, &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_RESULT_STRING)
            g_variant_get(parameters, "(sxxisxis)", &objName, &callback, &threadId, &result, &s[0],
                          &userData, &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_USERDATA_RESULT_STRING)
            g_variant_get(parameters, "(sxxxisis)", &objName, &callback, &threadId, &userData,
                          &result, &s[0], &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_USERDATA_RESULT_2STRINGS)
            g_variant_get(parameters, "(sxxxissis)", &objName, &callback, &threadId, &userData,
                          &result, &s[0], &s[1], &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_USERDATA_RESULT_3STRINGS)
            g_variant_get(parameters, "(sxxxisssis)", &objName, &callback, &threadId, &userData,
                          &result, &s[0], &s[1], &s[2], &aeIndex, &methodCall);
        else if (type == CLIENT_METHOD_USERDATA_RESULT_9STRINGS)
            g_variant_get(parameters, "(sxxxisssssssssis)", &objName, &callback, &threadId,
                          &userData, &result, &s[0], &s[1], &s[2], &s[3], &s[4], &s[5], &s[6],
                          &s[7], &s[8], &aeIndex, &methodCall);
        else
            SSO_LOGE("Unhandled clientMethodType: (%d)", static_cast<int>(type));

        SSO_LOGY("pObjName(%s) pCallback(%lld) threadId(%lld)",
                 objName != nullptr ? objName : "(null)", static_cast<long long>(callback),
                 static_cast<long long>(threadId));
        answer();

        if (!SSOAPIClientUtil::IsThreadIdEqualToDBusProxy(threadId)) {
            // Addressed to another (earlier) monitor thread: dropped.
        } else if (callback == 0) {
            SSO_LOGE("pCallback is 0");
        } else {
            SSO_LOGD("[START] [%s]'s Return-Callback : result(%d)", methodName, result);
            void *appData = AsPointer(userData);
            switch (type) {
            case CLIENT_METHOD_STRING_RESULT:
            case CLIENT_METHOD_RESULT_STRING:
            case CLIENT_METHOD_USERDATA_RESULT_STRING:
                SSO_LOG_DEVEL("pData(%s)", s[0]);
                AsFunction<StringResultCb>(callback)(appData, result, s[0]);
                break;
            case CLIENT_METHOD_RESULT_ONLY:
                if (g_strcmp0(methodName, "sso_generate_token_with_authcode_dsc") == 0)
                    AsFunction<ResultOnlyCb>(callback)(appData, result);
                break;
            case CLIENT_METHOD_USERDATA_RESULT_2STRINGS:
                if (g_strcmp0(methodName, "sso_identify_current_user_info") == 0) {
                    SSO_LOG_DEVEL("birthday(%s) identify_url(%s)", s[0], s[1]);
                    AsFunction<TwoStringsCb>(callback)(appData, result, s[0], s[1]);
                }
                break;
            case CLIENT_METHOD_USERDATA_RESULT_3STRINGS:
                if (g_strcmp0(methodName, "sso_get_namecheck_auth_info") == 0) {
                    sso_name_check_auth_info_s info;
                    SSOAPIClientUtil::SetNameCheckAuthInfo(info, s[0], s[1], s[2]);
                    SSO_LOG_DEVEL("info_birth_date(%s) info_age(%s) check_url(%s)", info.birth_date,
                                  info.age, info.check_url);
                    // A success flag, not the result code.
                    AsFunction<NameCheckCb>(callback)(appData, result == 0, info.birth_date,
                                                      info.age, info.check_url);
                }
                break;
            case CLIENT_METHOD_USERDATA_RESULT_9STRINGS:
                if (g_strcmp0(methodName, "sso_get_user_info") == 0) {
                    sso_user_info info;
                    SSOAPIClientUtil::SetUserInfo(info, s[0], s[1], s[2], s[3], s[4], s[5], s[6],
                                                  s[7], s[8]);
                    SSO_LOG_DEVEL("user_id(%s) prefix_name(%s) first_name(%s) last_name(%s) "
                                  "birth_date(%s) zip_code(%s) mobile_num(%s) "
                                  "receive_email(%s) auth(%s)",
                                  info.user_id, info.prefix_name, info.first_name, info.last_name,
                                  info.birth_date, info.zip_code, info.mobile_num,
                                  info.receive_email, info.auth);
                    AsFunction<UserInfoCb>(callback)(appData, result, info);
                }
                break;
            default:
                SSO_LOGE("Invalid clientMethodType: (%d)", static_cast<int>(type));
                break;
            }
            SSO_LOGD("[END] [%s] Return-Callback", methodName);
        }
    } catch (const std::exception &e) {
        SSO_LOGE("exception while delivering [%s]: %s", methodName, e.what());
    } catch (...) {
        SSO_LOGE("exception while delivering [%s]", methodName);
    }
    answer();
    g_free(objName);
    for (gchar *text : s)
        g_free(text);
    g_free(methodCall);
    SSO_LOG_END();
}

// ------------------------------------------------------------- exported API

extern "C" {

SSO_API int get_size_of_sso_login_info_s(void)
{
    return static_cast<int>(sizeof(sso_login_info_s));
}

SSO_API int sso_get_term_state(const char *term_id)
{
    SSO_LOG_START_F("term_id [%s]", term_id != nullptr ? term_id : "(null)");
    return -1;
}

SSO_API int sso_check_alive(void)
try {
    SSO_LOG_START();
    long long threadId = SSOAPIClientUtil::GetDBusProxyThreadId();
    std::string objectName = SSOAPIClientUtil::GetDBusObjectName();
    GVariant *parameters = g_variant_new("(sxs)", objectName.c_str(), static_cast<gint64>(threadId),
                                         "sso_check_alive");
    GVariant *reply = nullptr;
    return sso_private_request_method("sso_check_alive", parameters, &reply);
}
SSO_API_CATCH(-1)

SSO_API void sso_give_proxy(void)
try {
    CSSOSvcGdbus *transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        return;
    }
    transport->GiveProxy();
}
SSO_API_CATCH_VOID

} // extern "C"
