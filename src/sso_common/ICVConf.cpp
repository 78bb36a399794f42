#include "ICVConf.h"

#include <vconf.h>

#include <cstdlib>

#include "SSOAPIError.h"
#include "sso_glib_ptr.h"
#include "sso_log.h"

// The two wordings of a failed read ("value key" and "value. key") and the
// differing failure values are what the callers of each key expect.

bool ICVConf::GetAppLaunch(int &value)
{
    SSO_LOG_START();
    int read = 0;
    if (vconf_get_int(VCONF_APP_LAUNCH, &read) != 0) {
        SSO_LOGE("Failed to get vconf value key=(%s)", VCONF_APP_LAUNCH);
        return false;
    }
    value = read;
    SSO_LOG_END_F("key(%s) value(%d)", VCONF_APP_LAUNCH, value);
    return true;
}

bool ICVConf::SetAppLaunch(int value)
{
    if (vconf_set_int(VCONF_APP_LAUNCH, value) != 0) {
        SSO_LOGE("Failed to set vconf value key=(%s)", VCONF_APP_LAUNCH);
        return false;
    }
    SSO_LOGY("key(%s) value(%d)", VCONF_APP_LAUNCH, value);
    return true;
}

bool ICVConf::SetAppLaunchedID(const char *id)
{
    if (id == nullptr) {
        SSO_LOG_CHECK_NULL("pId is null");
        return false;
    }
    if (vconf_set_str(VCONF_APP_LAUNCHED_ID, id) != 0) {
        SSO_LOGE("Failed to set vconf value key=(%s).", VCONF_APP_LAUNCHED_ID);
        return false;
    }
    SSO_LOGY("key(%s) value(%s)", VCONF_APP_LAUNCHED_ID, id);
    return true;
}

namespace {

// A read that failed: a key nobody wrote, or a store that cannot be read.
void RecordReadFailure(int code)
{
    SSOAPIError::Set(code == VCONF_ERROR_FILE_NO_ENT ? SSO_ERROR_NOT_FOUND
                                                     : SSO_ERROR_STORAGE_UNREADABLE);
}

// The helpers write their lines under the name of the accessor that called
// them: each key's lines are found by its accessor.

// The pattern of every int accessor that reports a failure value.
bool GetIntWithFailureValue(const char *accessor, const char *key, int &value, int failureValue)
{
    SSO_LOGD_FOR(accessor, "[START] ");
    int read = 0;
    int code = vconf_get_int(key, &read);
    if (code != 0) {
        RecordReadFailure(code);
        value = failureValue;
        SSO_LOGE_FOR(accessor, "Failed to get vconf value. key=(%s)", key);
        return false;
    }
    value = read;
    SSO_LOGD_FOR(accessor, "[END] key(%s) value(%d)", key, value);
    return true;
}

// Keys that carry a GUID show their value only on a device with the debug
// marker.
bool GetString(const char *accessor, const char *key, std::string &value, bool identifying = false)
{
    SSO_LOGD_FOR(accessor, "[START] ");
    sso_glib::MallocPtr<char> text(vconf_get_str(key));
    if (text == nullptr) {
        SSOAPIError::Set(SSO_ERROR_NOT_FOUND);
        SSO_LOGE_FOR(accessor, "Failed to get vconf value. key=(%s)", key);
        return false;
    }
    value = text.get();
    if (!identifying)
        SSO_LOGD_FOR(accessor, "[END] key(%s) value(%s)", key, value.c_str());
    else if (sso_log_detail::IsDevelMode())
        SSO_LOGD_FOR(accessor, "[END] [DEVEL] key(%s) value(%s)", key, value.c_str());
    else
        SSO_LOGD_FOR(accessor, "[END] key(%s) value(%s)", key, "<hidden>");
    return true;
}

std::string GetCountryCode(const char *accessor, const char *key)
{
    SSO_LOGD_FOR(accessor, "[START] ");
    std::string code;
    sso_glib::MallocPtr<char> text(vconf_get_str(key));
    if (text != nullptr)
        code = text.get();
    SSO_LOGD_FOR(accessor, "[END] key(%s) value(%s)", key, code.c_str());
    return code;
}

} // namespace

bool ICVConf::GetPublicDataVer(int &value)
{
    return GetIntWithFailureValue(__func__, VCONF_PUBLIC_DATA_VER, value, -1);
}

bool ICVConf::GetComssEnforceLoginValue(int &value)
{
    int read = 0;
    if (vconf_get_int(VCONF_COMSS_ENFORCE_LOGIN, &read) != 0) {
        SSO_LOGE("Failed to get vconf value key=(%s)", VCONF_COMSS_ENFORCE_LOGIN);
        return false;
    }
    value = read;
    return true;
}

bool ICVConf::GetRMDisableEnforceLoginValue(bool &value)
{
    int read = 0;
    if (vconf_get_bool(VCONF_RM_DISABLE_ENFORCE_LOGIN, &read) != 0) {
        SSO_LOGE("Failed to get vconf value key=(%s)", VCONF_RM_DISABLE_ENFORCE_LOGIN);
        return false;
    }
    value = read != 0;
    return true;
}

std::string ICVConf::GetUCCodeAlpha2()
{
    return GetCountryCode(__func__, VCONF_UC_CODE_ALPHA2);
}

std::string ICVConf::GetUCCodeAlpha3()
{
    return GetCountryCode(__func__, VCONF_UC_CODE_ALPHA3);
}

bool ICVConf::GetTempLogoutStatus(int &value)
{
    SSO_LOG_START();
    int read = 0;
    if (vconf_get_int(VCONF_TEMP_LOGOUT_STATUS, &read) != 0) {
        SSO_LOGE("Failed to get vconf value key=(%s)", VCONF_TEMP_LOGOUT_STATUS);
        return false;
    }
    value = read;
    SSO_LOG_END_F("key(%s) value(%d)", VCONF_TEMP_LOGOUT_STATUS, value);
    return true;
}

bool ICVConf::GetLoginState(int &value)
{
    return GetIntWithFailureValue(__func__, VCONF_LOGIN_STATE, value, 0);
}

bool ICVConf::GetViewState(int &value)
{
    return GetIntWithFailureValue(__func__, VCONF_VIEW_STATE, value, 0);
}

bool ICVConf::GetAccountCount(int &value)
{
    return GetIntWithFailureValue(__func__, VCONF_ACCOUNT_COUNT, value, 0);
}

bool ICVConf::GetAccountDisplayName(std::string &value)
{
    return GetString(__func__, VCONF_DISPLAY_NAME, value);
}

bool ICVConf::GetAccountEventExtra(std::string &value)
{
    return GetString(__func__, VCONF_ACCOUNT_EVENT_EXTRA, value, true);
}

bool ICVConf::GetPreviousLoginId(std::string &value)
{
    return GetString(__func__, VCONF_PREV_LOGIN_ID, value);
}

bool ICVConf::GetPreviousLoginGuid(std::string &value)
{
    return GetString(__func__, VCONF_PREV_LOGIN_GUID, value, true);
}
