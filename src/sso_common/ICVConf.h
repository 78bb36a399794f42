// The settings keys the library reads (and the two it writes), one typed
// accessor each. Stateless: every call goes to the settings store afresh.
#pragma once

#include <string>

// Keys written by the SSO service and the account UI.
#define VCONF_LOGIN_STATE "db/sso/login_status"
#define VCONF_VIEW_STATE "memory/sso/view_status"
#define VCONF_PUBLIC_DATA_VER "memory/sso/public_data_ver"
#define VCONF_ACCOUNT_COUNT "db/sso/account_count"
#define VCONF_DISPLAY_NAME "db/sso/display_name"
#define VCONF_UC_CODE_ALPHA2 "db/sso/sa_user_country_code"
#define VCONF_UC_CODE_ALPHA3 "db/sso/sa_user_country_code_3alpha"
#define VCONF_TEMP_LOGOUT_STATUS "db/sso/temp_logout_status"
#define VCONF_COMSS_ENFORCE_LOGIN "db/comss/enforcelogin"
#define VCONF_RM_DISABLE_ENFORCE_LOGIN "db/sso/disable_enforcelogin"
#define VCONF_ACCOUNT_EVENT_EXTRA "memory/sso/event_extra"
#define VCONF_PREV_LOGIN_ID "memory/sso/prev_login_id"
#define VCONF_PREV_LOGIN_GUID "memory/sso/prev_login_guid"
#define VCONF_APP_LAUNCH "memory/was/app_launch"
#define VCONF_APP_LAUNCHED_ID "memory/was-api/app_launch"

class ICVConf {
public:
    // Each returns true when the key was read (or written). On failure the
    // out value gets the failure value the key's callers rely on: -1 for the
    // data version, 0 for the login state, view state and account count;
    // every other accessor leaves it as it was.
    static bool GetAppLaunch(int &value);
    static bool SetAppLaunch(int value);
    static bool SetAppLaunchedID(const char *id);
    static bool GetPublicDataVer(int &value);
    static bool GetComssEnforceLoginValue(int &value);
    static bool GetRMDisableEnforceLoginValue(bool &value);
    // The country codes of the account user; "" when the key is absent.
    static std::string GetUCCodeAlpha2();
    static std::string GetUCCodeAlpha3();
    static bool GetTempLogoutStatus(int &value);
    static bool GetLoginState(int &value);
    static bool GetViewState(int &value);
    static bool GetAccountCount(int &value);
    static bool GetAccountDisplayName(std::string &value);
    static bool GetAccountEventExtra(std::string &value);
    static bool GetPreviousLoginId(std::string &value);
    static bool GetPreviousLoginGuid(std::string &value);
};
