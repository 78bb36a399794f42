// The enforce-login and temporary-logout predicates and the cached hotel-mode
// answer, decided from a feature flag, settings keys and marker files.
#include <sso_api/sso_api.h>
#include <system_info.h>
#include <vconf.h>

#include <optional>
#include <string>

#include "SSOAPISystemInfo.h"
#include "SSOAPIUtil.h"
#include "sso_test_harness.h"

namespace {

const char kEnforceMarker[] = "/opt/share/com.veltra.tv.CSAccount/enforce_login";
const char kTempLogoutMarker[] = "/opt/share/com.veltra.tv.CSAccount/temp_logout_test_flag";
const char kSignInMandatory[] = "com.veltra/featureconf/account.signin_mandatory";
const char kB2BOption[] = "com.veltra/featureconf/product.b2b_option_support";

// One row of the enforce-login decision table. Unset optionals mean the
// input is absent (its read or query fails).
struct EnforceRow {
    bool marker;
    std::optional<bool> signInMandatory;
    std::optional<int> setting;
    std::optional<bool> remoteDisable;
    int expected;
};

void PrintTo(const EnforceRow &r, std::ostream *os)
{
    auto b = [](const std::optional<bool> &v) {
        return v ? (*v ? std::string("true") : std::string("false")) : std::string("unset");
    };
    *os << "marker=" << r.marker << " mandatory=" << b(r.signInMandatory)
        << " setting=" << (r.setting ? std::to_string(*r.setting) : "unset")
        << " disable=" << b(r.remoteDisable) << " -> " << r.expected;
}

class EnforceLogin : public ssotest::RootTest, public ::testing::WithParamInterface<EnforceRow> {};

TEST_P(EnforceLogin, FollowsTheDecisionTable)
{
    const EnforceRow &row = GetParam();
    if (row.marker)
        root_.CreateDeviceFile(kEnforceMarker);
    if (row.signInMandatory) {
        ASSERT_EQ(system_info_set_custom_bool(kSignInMandatory, *row.signInMandatory), 0);
    }
    if (row.setting) {
        ASSERT_EQ(vconf_set_int("db/comss/enforcelogin", *row.setting), 0);
    }
    if (row.remoteDisable) {
        ASSERT_EQ(vconf_set_bool("db/sso/disable_enforcelogin", *row.remoteDisable ? 1 : 0), 0);
    }
    EXPECT_EQ(sso_check_enforce_login_condition(), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EnforceLogin,
    ::testing::Values(
        // Marker absent: 0 even when every other input says "enforce".
        EnforceRow{false, true, 1, false, 0}, EnforceRow{false, true, 0, std::nullopt, 0},
        EnforceRow{false, std::nullopt, std::nullopt, std::nullopt, 0},
        // Sign-in not mandatory, or the feature query failed.
        EnforceRow{true, false, 1, false, 0}, EnforceRow{true, std::nullopt, 1, false, 0},
        // Setting "no", or unreadable.
        EnforceRow{true, true, 2, false, 0}, EnforceRow{true, true, std::nullopt, false, 0},
        // Remote disable wins over any setting but "no".
        EnforceRow{true, true, 0, true, 0}, EnforceRow{true, true, 1, true, 0},
        EnforceRow{true, true, 7, true, 0},
        // Undecided counts as yes; unknown values enforce too.
        EnforceRow{true, true, 0, false, 1}, EnforceRow{true, true, 1, false, 1},
        EnforceRow{true, true, 7, false, 1}, EnforceRow{true, true, -3, false, 1},
        EnforceRow{true, true, 1, std::nullopt, 1}, EnforceRow{true, true, 0, std::nullopt, 1}));

using Policy = ssotest::RootTest;

TEST_F(Policy, WithoutTheMarkerNothingElseIsRead)
{
    EXPECT_EQ(sso_check_enforce_login_condition(), 0);
    EXPECT_TRUE(log().Contains("don't exist"));
    EXPECT_FALSE(log().Contains("flag_FMS_support_SignInMandatory"));
    EXPECT_FALSE(log().Contains("bRetEnforcingLoginCondition"));
}

TEST_F(Policy, TheEnforceDecisionIsLoggedWithTheSettingsName)
{
    root_.CreateDeviceFile(kEnforceMarker);
    system_info_set_custom_bool(kSignInMandatory, true);
    vconf_set_int("db/comss/enforcelogin", 0);
    EXPECT_EQ(sso_check_enforce_login_condition(), 1);
    EXPECT_TRUE(log().Contains("flag_FMS_support_SignInMandatory:TRUE"));
    EXPECT_TRUE(log().Contains("undecided case, handle it by IENUM_COMSS_ENFORCE_LOGIN_Y"));
    EXPECT_TRUE(log().Contains("value_VCONF_enforcelogin:1(IENUM_COMSS_ENFORCE_LOGIN_Y)"));
    EXPECT_TRUE(log().Contains("GetRMDisableEnforceLoginValue failed case"));
    EXPECT_TRUE(log().Contains("value_VCONF_RM_disableEnforceLogin:FALSE"));
    EXPECT_TRUE(log().Contains("[END] bRetEnforcingLoginCondition:TRUE"));
}

TEST_F(Policy, EnforceLoginTypesHaveNames)
{
    EXPECT_EQ(SSOAPIUtil::ConvertEnforceLoginTypeToString(0),
              "IENUM_COMSS_ENFORCE_LOGIN_UNDECIDED");
    EXPECT_EQ(SSOAPIUtil::ConvertEnforceLoginTypeToString(1), "IENUM_COMSS_ENFORCE_LOGIN_Y");
    EXPECT_EQ(SSOAPIUtil::ConvertEnforceLoginTypeToString(2), "IENUM_COMSS_ENFORCE_LOGIN_N");
    EXPECT_EQ(SSOAPIUtil::ConvertEnforceLoginTypeToString(3), "UNKNOWN_ENFORCE_LOGIN_TYPE");
    EXPECT_EQ(SSOAPIUtil::ConvertEnforceLoginTypeToString(-1), "UNKNOWN_ENFORCE_LOGIN_TYPE");
}

struct TempRow {
    std::optional<int> status;
    bool testMarker;
    int expected;
};

void PrintTo(const TempRow &r, std::ostream *os)
{
    *os << "status=" << (r.status ? std::to_string(*r.status) : "unset")
        << " marker=" << r.testMarker << " -> " << r.expected;
}

class TemporaryLogout : public ssotest::RootTest, public ::testing::WithParamInterface<TempRow> {};

TEST_P(TemporaryLogout, FollowsTheStatusAndTheTestMarker)
{
    if (GetParam().status) {
        ASSERT_EQ(vconf_set_int("db/sso/temp_logout_status", *GetParam().status), 0);
    }
    if (GetParam().testMarker)
        root_.CreateDeviceFile(kTempLogoutMarker);
    EXPECT_EQ(sso_check_temporary_logout_condition(), GetParam().expected);
    if (GetParam().testMarker) {
        EXPECT_TRUE(log().Contains("This is Test Mode!!!!!!! Revert return value!!"));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, TemporaryLogout,
                         ::testing::Values(TempRow{std::nullopt, false, 1},
                                           TempRow{std::nullopt, true, 0}, TempRow{1, false, 1},
                                           TempRow{1, true, 0}, TempRow{2, false, 0},
                                           TempRow{2, true, 1}, TempRow{0, false, 0}));

TEST_F(Policy, TemporaryLogoutLogsWhyItDecided)
{
    EXPECT_EQ(sso_check_temporary_logout_condition(), 1);
    EXPECT_TRUE(log().Contains("It seems that there is no vconf key. Return true."));
    EXPECT_TRUE(log().Contains("[END] Final return value retValueIsTempLogout(TRUE)"));
    vconf_set_int("db/sso/temp_logout_status", 1);
    EXPECT_EQ(sso_check_temporary_logout_condition(), 1);
    EXPECT_TRUE(log().Contains("[END] status is IENUM_SA_TEMP_LOGOUT_STATUS_ON. Return true."));
    vconf_set_int("db/sso/temp_logout_status", 2);
    EXPECT_EQ(sso_check_temporary_logout_condition(), 0);
    EXPECT_TRUE(log().Contains("[END] status is (2). Return false."));
}

// ------------------------------------------------------------- hotel mode

TEST_F(Policy, AFailedHotelModeQueryIsAskedAgainAndASuccessfulOneIsCached)
{
    EXPECT_FALSE(SSOAPISystemInfo::IsHotelModeSupported());
    EXPECT_TRUE(log().Contains("Failed to get product.b2b_option_support. ret("));
    system_info_set_custom_bool(kB2BOption, true);
    EXPECT_TRUE(SSOAPISystemInfo::IsHotelModeSupported());
    EXPECT_TRUE(log().Contains("product.b2b_option_support : 1"));
    // Cached: a later change of the flag is not seen until a reset.
    system_info_set_custom_bool(kB2BOption, false);
    EXPECT_TRUE(SSOAPISystemInfo::IsHotelModeSupported());
    EXPECT_TRUE(log().Contains("m_bB2BOptionChecked is true. m_bB2BOptionSupported(1)"));
    EXPECT_EQ(sso_cb_reset(), 0);
    EXPECT_FALSE(SSOAPISystemInfo::IsHotelModeSupported());
}

TEST_F(Policy, ResetForgetsTheCachedAnswer)
{
    system_info_set_custom_bool(kB2BOption, false);
    EXPECT_FALSE(SSOAPISystemInfo::IsHotelModeSupported());
    system_info_set_custom_bool(kB2BOption, true);
    EXPECT_FALSE(SSOAPISystemInfo::IsHotelModeSupported());
    SSOAPISystemInfo::ResetHotelModeSupported();
    EXPECT_TRUE(SSOAPISystemInfo::IsHotelModeSupported());
}

} // namespace
