// Launching the device's account UI applications: the account pages (the
// show family, whose end is learnt from the view-state key) and the account
// verification and PIN flows (whose end is the launched application's reply).
// Everything here runs on the application's main-loop thread.
#include <sso_api/sso_api.h>

#include <app_control.h>
#include <json/json.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_glib_ptr.h"
#include "sso_log.h"

namespace {

constexpr const char *kAccountAppId = "com.veltra.tv.CSAccount";
constexpr const char *kAccountPinAppId = "com.veltra.tv.CSAccountPIN";
constexpr const char *kWebAccountAppId = "QHVMP48x7k.WebAccountExtension";

constexpr const char *kActionDefault = "Default";

// The action of a PIN flow by its pin type: 1 and 2 pick their own, any
// other type the plain one.
struct PinActions {
    const char *plain;
    const char *type1;
    const char *type2;
};

const char *PinAction(int pin_type, const PinActions &actions)
{
    return pin_type == 1 ? actions.type1 : pin_type == 2 ? actions.type2 : actions.plain;
}

// The account data given to the switch-account and voice pages identifies a
// user: only a debug device shows it in the log.
const char *ShownData(const std::string &text, bool identifying)
{
    return (!identifying || sso_log_detail::IsDevelMode()) ? text.c_str() : "<hidden>";
}

// A malloc'ed extra of a handle, or nothing.
bool GetExtra(app_control_h handle, const char *key, std::string &value)
{
    sso_glib::MallocPtr<char> raw;
    int result = app_control_get_extra_data(handle, key, sso_glib::Out(raw));
    if (result != APP_CONTROL_ERROR_NONE || raw == nullptr)
        return false;
    value = raw.get();
    return true;
}

bool IsPinSuccessResponse(const std::string &response)
{
    return response == "PINSkip" || response == "PINSuccess" || response == "PINVerification" ||
           response == "PINVerificationMax";
}

} // namespace

// The pending account-action callback: one slot for the whole process. A
// newer request replaces an older one's callback without calling it. Atomic
// only so a stray call from another thread stays well defined.
static std::atomic<sso_account_ui_result_cb> s_account_action_finished_cb{nullptr};

// Runs on the thread of the main context that was the default when the
// request was sent (the application's main loop).
void sso_account_action_reply_cb(app_control_h request, app_control_h reply,
                                 app_control_result_e result, void *userData)
try {
    (void)request;
    SSO_LOG_START();
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOGE("SSOAPIClientLifeCycle is deleted");
        return;
    }
    if (userData == nullptr)
        SSO_LOGY("Input user data is null.");

    std::string replyCode;
    std::string replyData;
    if (result != APP_CONTROL_RESULT_SUCCEEDED) {
        SSO_LOGE("[m_SendCallback] APP_CONTROL_RESULT_FAILED.");
    } else {
        std::string resultText;
        std::string responseText;
        if (reply == nullptr || !GetExtra(reply, "Result", resultText)) {
            SSO_LOGE("Failed to get Result from callee.");
        } else if (!GetExtra(reply, "Response", responseText)) {
            SSO_LOGE("Failed to get Response from callee.");
        } else {
            SSO_LOGY("result is [%s].", resultText.c_str());
            SSO_LOGY("response is [%s].", responseText.c_str());
            std::string mapped = "success";
            if (resultText == "PINComplete") {
                replyCode = "0";
                if (responseText == "PINChangeAccount")
                    mapped = "change_account";
                else if (!IsPinSuccessResponse(responseText))
                    mapped = "failed";
            } else if (resultText == "Complete" || resultText == "LoginDone") {
                replyCode = "0";
            } else {
                replyCode = "-1";
                mapped = "failed";
            }
            Json::Value root(Json::objectValue);
            root["result"] = mapped;
            root["response"] = responseText;
            Json::StreamWriterBuilder writer;
            writer["emitUTF8"] = true;
            replyData = Json::writeString(writer, root);
            SSO_LOGY("strReplyResult is [%s].", replyCode.c_str());
            SSO_LOGY("strReplyData is [%s].", replyData.c_str());
        }
    }

    const int replyResult = replyCode == "0" ? 0 : -1;
    if (s_account_action_finished_cb.load() != nullptr) {
        if (!SSOAPIUtil::IsClientAlive()) {
            SSO_LOGE("SSOAPIClientLifeCycle is deleted");
        } else {
            SSO_LOGD("[START] s_account_action_finished_cb. replyResult [%d]", replyResult);
            // Cleared after its one call: a request the callback itself makes
            // fills the slot first and is cleared with it, so that request is
            // never called back.
            sso_account_ui_result_cb callback = s_account_action_finished_cb.load();
            if (callback != nullptr)
                callback(userData, replyResult, const_cast<char *>(replyData.c_str()));
            s_account_action_finished_cb.store(nullptr);
            SSO_LOGD("[END] s_account_action_finished_cb. replyResult [%d]", replyResult);
        }
    }
    SSO_LOG_END();
} catch (const std::exception &e) {
    SSO_LOGE("exception in the account action reply: %s", e.what());
} catch (...) {
    SSO_LOGE("exception in the account action reply");
}

int sso_private_request_account_action(const char *appId, const char *accountId,
                                       sso_account_ui_result_cb callback, void *userData,
                                       const char *action)
{
    SSO_LOG_START();
    if (accountId == nullptr || callback == nullptr || action == nullptr) {
        SSO_LOGE("accountid or account_action_cb or account_action is null");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    if (!sso_private_is_login_state_login()) {
        SSO_LOGE("NOT Login State");
        return sso_private_fail(SSO_ERROR_NOT_SIGNED_IN, -1);
    }

    const std::string strAppId = appId != nullptr ? appId : kAccountPinAppId;
    s_account_action_finished_cb.store(callback);
    SSO_LOGY("strAppId(%s) strAccountID(%s) strAccountAction(%s)", strAppId.c_str(), accountId,
             action);

    app_control_h handle = nullptr;
    int ret = app_control_create(&handle);
    if (ret != APP_CONTROL_ERROR_NONE) {
        SSO_LOGE("Failed to app_control_create(). ret(%d)", ret);
        handle = nullptr;
    } else {
        app_control_set_operation(handle, APP_CONTROL_OPERATION_DEFAULT);
        app_control_set_app_id(handle, strAppId.c_str());
        app_control_add_extra_data(handle, "LAUNCH_TYPE", "Verification");
        app_control_add_extra_data(handle, "ACCOUNT_ID", accountId);
        app_control_add_extra_data(handle, "ACTION", action);
        // Only plain verification opens in the platform's default mode; every
        // other flow is grouped with the caller.
        if (strcmp(action, kActionDefault) != 0)
            app_control_set_launch_mode(handle, APP_CONTROL_LAUNCH_MODE_GROUP);

        ret = app_control_send_launch_request(handle, sso_account_action_reply_cb, userData);
        app_control_destroy(handle);
        if (ret == APP_CONTROL_ERROR_NONE) {
            SSO_LOGY("Succeed to launch [%s]", strAppId.c_str());
            SSO_LOG_END();
            return 0;
        }
        SSO_LOGE("Fail to launch [%s]. ret(%d)", strAppId.c_str(), ret);
    }

    // Nothing was launched: the caller hears of it twice, through the -1 and
    // through its callback.
    SSO_LOGE("retValue is SSO_FALSE");
    SSO_LOGD("[START] s_account_action_finished_cb. result [-1]");
    sso_account_ui_result_cb pending = s_account_action_finished_cb.load();
    if (pending != nullptr)
        pending(userData, -1, const_cast<char *>(""));
    s_account_action_finished_cb.store(nullptr);
    SSO_LOGD("[END] s_account_action_finished_cb. result [-1]");
    return sso_private_fail(SSO_ERROR_LAUNCH_FAILED, -1);
}

extern "C" {

SSO_API int sso_show(int type, const char *data, const char *caller_id,
                     sso_account_ui_result_cb callback, void *user_data)
try {
    SSO_LOG_START_F("type [%d]", type);
    if (caller_id == nullptr || callback == nullptr) {
        SSO_LOGE("the input param is nullptr, please check first");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    // The login state is not consulted: the account pages include sign-in.
    sso_private_arm_view_state_callback(callback, user_data);

    // The account UI reads at most two characters of page number.
    char page[3] = {0};
    std::snprintf(page, sizeof(page), "%d", type);
    std::string dataText = data != nullptr ? data : "0";
    bool identifying = false;
    // Joined as text: the account UI expects the given value verbatim between
    // the quotes, so it is not escaped.
    if (data != nullptr && type == 10) {
        dataText = std::string("{\"request_action\":\"switch_account\",\"guid\":\"") + data +
                   "\",\"mode\":\"1\"}";
        identifying = true;
    } else if (data != nullptr && type == 9) {
        dataText = std::string("{\"request_action\":\"voice_registration\",\"account_id\":\"") +
                   data + "\",\"mode\":\"1\"}";
        identifying = true;
    }

    SSO_LOGY("%sAppID:[%s], CallerID:[%s], Data:[%s], Page:[%s]",
             identifying && sso_log_detail::IsDevelMode() ? "[DEVEL] " : "", kAccountAppId,
             caller_id, ShownData(dataText, identifying), page);
    app_control_h handle = nullptr;
    if (app_control_create(&handle) != APP_CONTROL_ERROR_NONE) {
        SSO_LOGE("create app_control handle failed.");
        SSO_LOG_END();
        return sso_private_fail(SSO_ERROR_LAUNCH_FAILED, 1);
    }
    int retPage = app_control_add_extra_data(handle, "page", page);
    int retData = app_control_add_extra_data(handle, "data", dataText.c_str());
    int retCaller = app_control_add_extra_data(handle, "caller", caller_id);
    int retAppId = app_control_set_app_id(handle, kAccountAppId);
    SSO_LOGY("return of set extra data:[page = %d, data = %d, caller = %d], return of set "
             "app_id:[%d]",
             retPage, retData, retCaller, retAppId);

    switch (type) {
    case 1:
    case 30:
        app_control_add_extra_data(handle, "LAUNCH_TYPE", "RemoteLoginQR_Signin");
        break;
    case 6:
    case 9: {
        int retTask = app_control_add_extra_data(handle, "task", "lazy");
        SSO_LOGY("return of set extra data:[task lazy = %d", retTask);
        break;
    }
    case 10:
        app_control_add_extra_data(handle, "task", "lazy");
        app_control_add_extra_data(handle, "LAUNCH_TYPE", "Verification");
        break;
    case 7:
    case 8: {
        // The web pages about the account and its terms: grouped with the
        // caller, and reported closed at once since they never set the view
        // state.
        app_control_set_app_id(handle, kWebAccountAppId);
        app_control_set_operation(handle, APP_CONTROL_OPERATION_DEFAULT);
        app_control_add_extra_data(handle, "path", "/AboutVeltraAccount");
        app_control_set_launch_mode(handle, APP_CONTROL_LAUNCH_MODE_GROUP);
        SSO_LOGY("app_control_set_launch_mode APP_CONTROL_LAUNCH_MODE_GROUP");
        int ret = app_control_send_launch_request(handle, nullptr, nullptr);
        // The launch request no longer needs the handle, whatever happened.
        app_control_destroy(handle);
        if (ret != APP_CONTROL_ERROR_NONE) {
            SSO_LOGE("Failed to launch [%s], result is [%d]", kAccountAppId, ret);
            sso_private_disarm_view_state_callback();
            return sso_private_fail(SSO_ERROR_LAUNCH_FAILED, 1);
        }
        SSO_LOGY("Succeeded to launch [%s]", kAccountAppId);
        // Stays armed: a later close of the account view fires it once more.
        callback(user_data, 0, nullptr);
        SSO_LOGY("Launch Terms Popup Success");
        return 0;
    }
    default:
        break;
    }

    int result = 0;
    int ret = app_control_send_launch_request(handle, nullptr, nullptr);
    if (ret != APP_CONTROL_ERROR_NONE) {
        SSO_LOGE("Failed to launch [%s], result is [%d]", kAccountAppId, ret);
        result = sso_private_fail(SSO_ERROR_LAUNCH_FAILED, 1);
        sso_private_disarm_view_state_callback();
    } else {
        SSO_LOGY("Succeeded to launch [%s]", kAccountAppId);
    }
    app_control_destroy(handle);
    SSO_LOG_END();
    return result;
}
SSO_API_CATCH(-1)

SSO_API int sso_show_term_page(void *window, void *reserved, const char *caller_id,
                               sso_account_ui_result_cb callback, void *user_data)
try {
    (void)reserved;
    if (window == nullptr || caller_id == nullptr || callback == nullptr) {
        SSO_LOGE("one of the input param is nullptr, please check first");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    return sso_show(7, nullptr, caller_id, callback, user_data);
}
SSO_API_CATCH(-1)

SSO_API int sso_show_with_transparent_win(int type, const char *caller_id,
                                          sso_account_ui_result_cb callback, void *user_data,
                                          bool transparent)
try {
    if (caller_id == nullptr || callback == nullptr) {
        SSO_LOGE("the input param is nullptr, please check first");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    std::string data;
    if (transparent) {
        const int mode = 1;
        SSO_LOGY("sso show with transparent window, mode is [%d]", mode);
        data = "{\"mode\":\"" + std::to_string(mode) + "\"}";
    } else {
        SSO_LOGY("by default, sso show with none transparent window");
        data = " ";
    }
    return sso_show(type, data.c_str(), caller_id, callback, user_data);
}
SSO_API_CATCH(-1)

SSO_API int sso_request_account_verification(const char *account_id,
                                             sso_account_ui_result_cb callback, void *user_data)
try {
    return sso_private_request_account_action(kAccountAppId, account_id, callback, user_data,
                                              kActionDefault);
}
SSO_API_CATCH(-1)

SSO_API int sso_request_account_verification_using_pin(const char *account_id,
                                                       sso_account_ui_result_cb callback,
                                                       void *user_data, int pin_type)
try {
    return sso_private_request_account_action(
        kAccountPinAppId, account_id, callback, user_data,
        PinAction(pin_type, {kActionDefault, "PINVerify", "PINVerify_NAccount"}));
}
SSO_API_CATCH(-1)

SSO_API int sso_request_account_setup_pin(const char *account_id, sso_account_ui_result_cb callback,
                                          void *user_data, int pin_type)
try {
    return sso_private_request_account_action(
        kAccountPinAppId, account_id, callback, user_data,
        PinAction(pin_type, {"PINSetup", "PINSetup_High", "PINSetup_NAccount"}));
}
SSO_API_CATCH(-1)

} // extern "C"
