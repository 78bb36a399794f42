// Login-state and view-state notification: the settings watches on
// "db/sso/login_status" and "memory/sso/view_status", the single subscriber,
// the map of registered callbacks and the one-shot view callback.
#include <sso_api/sso_api.h>

#include <vconf.h>

#include <cstring>
#include <exception>
#include <map>
#include <string>

#include "ICVConf.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"

// Login-state notification. Not locked: applications subscribe, register and
// receive notifications on their main-loop thread.
static sso_login_state_changed_cb s_login_state_changed_callback = nullptr;
static void *s_login_state_changed_cb_user_data = nullptr;
static bool s_is_login_state_changed_extra = false;
// Constructed after, and so destroyed before, the life-cycle object (this
// file links after sso_api_client.cpp).
static std::map<sso_login_state_changed_multi_cb, void *> map_multi_login_state_callback;
static bool s_is_vconf_notify_login_state_registered = false;
// The one-shot notice that the account view closed, armed by the account UI
// launcher.
static sso_account_ui_result_cb s_account_view_state_changed_callback = nullptr;
static bool s_is_vconf_notify_view_state_registered = false;

namespace {

const char *LoginStateName(sso_login_state state)
{
    return state == SSO_LOGEDIN ? "SSO_LOGEDIN" : "SSO_NOT_LOGIN";
}

// A GUID (or a text that carries one) as the log may show it.
const char *Shown(const std::string &identifying)
{
    return sso_log_detail::IsDevelMode() ? identifying.c_str() : "<hidden>";
}

// The name of the key a settings watch reports, or null when the library is
// going away or the node names nothing; the reason is logged under the
// handler's name.
const char *ChangedKeyName(const char *handler, keynode_t *key)
{
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOGE_FOR(handler, "SSOAPIClientLifeCycle is deleted");
        return nullptr;
    }
    if (key == nullptr) {
        SSO_LOGE_FOR(handler, "SSO_API_CHECK_NULL_RETURN. Return (%s)", "key is null");
        return nullptr;
    }
    const char *keyName = vconf_keynode_get_name(key);
    if (keyName == nullptr)
        SSO_LOGE_FOR(handler, "pKeyName is null");
    return keyName;
}

// The debug marker for a line that shows such a value.
const char *ShownTag()
{
    return sso_log_detail::IsDevelMode() ? "[DEVEL] " : "";
}

} // namespace

bool sso_private_is_login_state_login()
{
    sso_login_state state = SSO_NOT_LOGIN;
    int result = sso_get_login_state(&state);
    if (result == 0 && state == SSO_LOGEDIN) {
        SSO_LOGY("loginState = SSO_LOGEDIN");
        return true;
    }
    SSO_LOGE("ssoResult(%d) loginState(%d)", result, static_cast<int>(state));
    return false;
}

int sso_private_return_by_login_state_as_deprecated_api()
{
    return sso_private_is_login_state_login() ? 0 : -1;
}

bool sso_private_subscribe_vconf_login_state_change()
{
    if (s_is_vconf_notify_login_state_registered) {
        SSO_LOGY("Already registered vconf [%s] changed callback", VCONF_LOGIN_STATE);
        return true;
    }
    if (vconf_notify_key_changed(VCONF_LOGIN_STATE, sso_vconf_login_state_changed_cb, nullptr) !=
        0) {
        SSO_LOGE("Fail to register vconf [%s] changed callback", VCONF_LOGIN_STATE);
        return false;
    }
    SSO_LOGY("Succeed to register vconf [%s] changed callback", VCONF_LOGIN_STATE);
    s_is_vconf_notify_login_state_registered = true;
    return true;
}

void sso_private_unsubscribe_vconf_login_state_change()
{
    SSO_LOG_START_F("s_is_vconf_notify_login_state_registered [%d]",
                    s_is_vconf_notify_login_state_registered ? 1 : 0);
    if (!s_is_vconf_notify_login_state_registered)
        return;
    vconf_ignore_key_changed(VCONF_LOGIN_STATE, sso_vconf_login_state_changed_cb);
    s_is_vconf_notify_login_state_registered = false;
}

void sso_private_clear_vconf_view_state_callback()
{
    if (s_is_vconf_notify_view_state_registered) {
        SSO_LOGY("Clear vconf view state callback");
        vconf_ignore_key_changed(VCONF_VIEW_STATE, sso_vconf_changed_cb);
        s_is_vconf_notify_view_state_registered = false;
    }
    s_account_view_state_changed_callback = nullptr;
}

void sso_private_drop_settings_watches()
{
    sso_private_clear_vconf_view_state_callback();
    sso_private_unsubscribe_vconf_login_state_change();
}

void sso_private_arm_view_state_callback(sso_account_ui_result_cb callback, void *userData)
{
    // The watch is installed once: the user data later handed to the view
    // callback is the one of the call that installed it.
    if (!s_is_vconf_notify_view_state_registered) {
        if (vconf_notify_key_changed(VCONF_VIEW_STATE, sso_vconf_changed_cb, userData) == 0) {
            s_is_vconf_notify_view_state_registered = true;
            SSO_LOGY("Succeed to register [%s] changed callback", VCONF_VIEW_STATE);
        } else {
            SSO_LOGE("Fail to register [%s] changed callback", VCONF_VIEW_STATE);
        }
    }
    s_account_view_state_changed_callback = callback;
}

void sso_private_disarm_view_state_callback()
{
    s_account_view_state_changed_callback = nullptr;
}

sso_account_ui_result_cb sso_private_armed_view_state_callback()
{
    return s_account_view_state_changed_callback;
}

// Runs on the thread of the main loop that subscribed.
void sso_vconf_login_state_changed_cb(keynode_t *key, void *)
try {
    const char *keyName = ChangedKeyName(__func__, key);
    if (keyName == nullptr)
        return;
    if (strcmp(keyName, VCONF_LOGIN_STATE) != 0) {
        SSO_LOGE("pKeyName is not [%s]", VCONF_LOGIN_STATE);
        return;
    }
    if (s_login_state_changed_callback == nullptr && map_multi_login_state_callback.empty()) {
        SSO_LOGE("both s_login_state_changed_callback and map_multi_login_state_callback are "
                 "null");
        return;
    }

    int value = vconf_keynode_get_int(key);
    SSO_LOGY("SSO_VCONF_LOGIN_STATE [%d]", value);
    std::string loginId;
    std::string guid;
    char *iconPath = nullptr;
    sso_login_info_s info;
    // Cleared first: if the read fails right after the key turned to 1, the
    // callbacks get empty texts.
    memset(&info, 0, sizeof(info));
    sso_login_state state = SSO_NOT_LOGIN;
    if (value == 1) {
        sso_get_login_info(&info);
        loginId = info.login_id;
        guid = info.guid;
        iconPath = info.user_icon_path;
        state = SSO_LOGEDIN;
    } else {
        ICVConf::GetPreviousLoginId(loginId);
        ICVConf::GetPreviousLoginGuid(guid);
    }

    std::string text = loginId;
    std::string shownText = loginId;
    const char *shownTag = "";
    if (s_is_login_state_changed_extra) {
        std::string subType = SSOAPIClientUtil::GetAccountEventSubType();
        text = loginId + "|" + guid + "|" + subType;
        shownText = loginId + "|" + Shown(guid) + "|" + subType;
        shownTag = ShownTag();
    }

    // The single subscriber first, then the map in ascending pointer order.
    if (s_login_state_changed_callback != nullptr) {
        SSO_LOGD("%s(START) s_login_state_changed_callback [%s][%s]", shownTag,
                 LoginStateName(state), shownText.c_str());
        s_login_state_changed_callback(s_login_state_changed_cb_user_data, 0, state,
                                       const_cast<char *>(text.c_str()), iconPath);
        SSO_LOGD("(END) s_login_state_changed_callback [%s]", LoginStateName(state));
    }
    SSO_LOGY("map size %zu", map_multi_login_state_callback.size());
    // A copy is walked, so a callback that registers or unregisters does not
    // pull the map from under the walk. The registered user data is not what
    // the entries receive: the third argument is the icon path.
    const auto entries = map_multi_login_state_callback;
    for (const auto &entry : entries) {
        SSO_LOGD("%s(START) map_multi_login_state_callback [%s][%s]", ShownTag(),
                 LoginStateName(state), Shown(guid));
        if (entry.first != nullptr)
            entry.first(state, const_cast<char *>(guid.c_str()), iconPath);
        SSO_LOGD("(END) map_multi_login_state_callback [%s]", LoginStateName(state));
    }
    SSO_LOGD("[END]");
} catch (const std::exception &e) {
    SSO_LOGE("exception in the login state notification: %s", e.what());
} catch (...) {
    SSO_LOGE("exception in the login state notification");
}

// Runs on the thread of the main loop that armed the view callback.
void sso_vconf_changed_cb(keynode_t *key, void *userData)
try {
    const char *keyName = ChangedKeyName(__func__, key);
    if (keyName == nullptr)
        return;
    if (strcmp(keyName, VCONF_VIEW_STATE) != 0)
        return;
    if (s_account_view_state_changed_callback == nullptr) {
        SSO_LOG_CHECK_NULL("s_account_view_state_changed_callback is null");
        return;
    }
    int value = vconf_keynode_get_int(key);
    SSO_LOGY("SSO_VCONF_VIEW_STATE [%d]", value);
    if (value != 0) {
        SSO_LOGY("Ignore! s_account_view_state_changed_callback will not be invoked.");
        return;
    }
    // The view closed (SSO_POPUP_OFF): fired once per arming. The watch stays.
    SSO_LOGD("(START) s_account_view_state_changed_callback [SSO_POPUP_OFF]");
    sso_account_ui_result_cb callback = s_account_view_state_changed_callback;
    s_account_view_state_changed_callback = nullptr;
    callback(userData, 0, nullptr);
    SSO_LOGD("(END) s_account_view_state_changed_callback [SSO_POPUP_OFF]");
} catch (const std::exception &e) {
    SSO_LOGE("exception in the view state notification: %s", e.what());
} catch (...) {
    SSO_LOGE("exception in the view state notification");
}

extern "C" {

SSO_API int sso_subscribe_login_state_change(sso_login_state_changed_cb callback, void *user_data)
try {
    if (!sso_private_subscribe_vconf_login_state_change()) {
        s_login_state_changed_callback = nullptr;
        s_login_state_changed_cb_user_data = nullptr;
        SSO_LOGE("Can't subcribe login state changed callback.");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    SSO_LOGY("Update login state changed callback and user data");
    s_login_state_changed_callback = callback;
    s_login_state_changed_cb_user_data = user_data;
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_subscribe_login_state_change_extra(sso_login_state_changed_cb callback,
                                                   void *user_data)
try {
    // Set before, and kept even when the subscription fails.
    s_is_login_state_changed_extra = true;
    return sso_subscribe_login_state_change(callback, user_data);
}
SSO_API_CATCH(-1)

SSO_API int sso_unsubscribe_login_state_change(void)
try {
    // The watch goes even while map entries remain: they hear nothing until
    // the next subscription or registration installs it again.
    sso_private_unsubscribe_vconf_login_state_change();
    s_is_login_state_changed_extra = false;
    s_login_state_changed_callback = nullptr;
    s_login_state_changed_cb_user_data = nullptr;
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_register_login_state_changed_cb(sso_login_state_changed_multi_cb callback,
                                                void *user_data)
try {
    if (!sso_private_subscribe_vconf_login_state_change()) {
        SSO_LOGE("Can't register login state changed callback.");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    if (map_multi_login_state_callback.count(callback) != 0) {
        SSO_LOGE("Callback already present return ..");
        return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
    }
    SSO_LOGY("Add login state changed callback and user data");
    map_multi_login_state_callback.emplace(callback, user_data);
    SSO_LOGY("map size %zu", map_multi_login_state_callback.size());
    SSO_LOGY("callback %p data %p", reinterpret_cast<void *>(callback), user_data);
    return 0;
}
SSO_API_CATCH(-1)

SSO_API int sso_unregister_login_state_changed_cb(sso_login_state_changed_multi_cb callback)
try {
    SSO_LOGY("map size %zu", map_multi_login_state_callback.size());
    map_multi_login_state_callback.erase(callback);
    SSO_LOGY("map size %zu", map_multi_login_state_callback.size());
    if (map_multi_login_state_callback.empty() && s_login_state_changed_callback == nullptr)
        sso_private_unsubscribe_vconf_login_state_change();
    return 0;
}
SSO_API_CATCH(0)

} // extern "C"
