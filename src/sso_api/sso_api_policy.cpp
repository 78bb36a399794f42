// The enforce-login and temporary-logout predicates, decided locally from a
// feature flag, settings keys and marker files; and sso_cb_reset.
#include <sso_api/sso_api.h>
#include <system_info.h>

#include "ICVConf.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPISystemInfo.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"

#define ENFORCE_LOGIN_MARKER "/opt/share/com.veltra.tv.CSAccount/enforce_login"
#define TEMP_LOGOUT_TEST_MARKER "/opt/share/com.veltra.tv.CSAccount/temp_logout_test_flag"
#define FEATURE_SIGNIN_MANDATORY "com.veltra/featureconf/account.signin_mandatory"

namespace {

constexpr int kEnforceLoginUndecided = 0;
constexpr int kEnforceLoginYes = 1;
constexpr int kEnforceLoginNo = 2;

const char *Flag(bool value)
{
    return value ? "TRUE" : "FALSE";
}

} // namespace

extern "C" {

SSO_API int sso_check_enforce_login_condition(void)
try {
    if (!SSOAPIUtil::DoesFileExist(ENFORCE_LOGIN_MARKER))
        return 0;

    bool signInMandatory = false;
    if (system_info_get_custom_bool(FEATURE_SIGNIN_MANDATORY, &signInMandatory) !=
        SYSTEM_INFO_ERROR_NONE)
        signInMandatory = false;
    SSO_LOGY("flag_FMS_support_SignInMandatory:%s", Flag(signInMandatory));

    // An unreadable setting counts as "no", an undecided one as "yes", and
    // any unknown value enforces.
    int setting = 0;
    if (!ICVConf::GetComssEnforceLoginValue(setting)) {
        SSO_LOGE("GetComssEnforceLoginValue failed case");
        setting = kEnforceLoginNo;
    }
    SSO_LOGY("value_VCONF_enforcelogin:%d", setting);
    if (setting == kEnforceLoginUndecided) {
        SSO_LOGY("undecided case, handle it by IENUM_COMSS_ENFORCE_LOGIN_Y");
        setting = kEnforceLoginYes;
    }

    bool remoteDisable = false;
    if (!ICVConf::GetRMDisableEnforceLoginValue(remoteDisable)) {
        SSO_LOGE("GetRMDisableEnforceLoginValue failed case");
        remoteDisable = false;
    }

    SSO_LOGY("flag_FMS_support_SignInMandatory:%s", Flag(signInMandatory));
    SSO_LOGY("value_VCONF_enforcelogin:%d(%s)", setting,
             SSOAPIUtil::ConvertEnforceLoginTypeToString(setting).c_str());
    SSO_LOGY("value_VCONF_RM_disableEnforceLogin:%s", Flag(remoteDisable));

    bool enforce = signInMandatory && setting != kEnforceLoginNo && !remoteDisable;
    SSO_LOG_END_F("bRetEnforcingLoginCondition:%s", Flag(enforce));
    return enforce ? 1 : 0;
}
SSO_API_CATCH(0)

SSO_API int sso_check_temporary_logout_condition(void)
try {
    bool temporary = SSOAPIClientUtil::IsTemporaryLogoutCondition();
    SSO_LOGY("IsTemporaryLogoutCondition (%s)", Flag(temporary));
    if (SSOAPIUtil::DoesFileExist(TEMP_LOGOUT_TEST_MARKER)) {
        temporary = !temporary;
        SSO_LOGY("This is Test Mode!!!!!!! Revert return value!!");
    }
    SSO_LOG_END_F("Final return value retValueIsTempLogout(%s)", Flag(temporary));
    return temporary ? 1 : 0;
}
SSO_API_CATCH(0)

SSO_API int sso_cb_reset(void)
try {
    SSO_LOG_START();
    sso_unsubscribe_login_state_change();
    sso_private_clear_vconf_view_state_callback();
    SSOAPISystemInfo::ResetHotelModeSupported();
    SSO_LOG_END();
    return 0;
}
SSO_API_CATCH(0)

} // extern "C"
