// The settings keys the library reads, each through its typed accessor with
// the failure value and message its callers rely on.
#include <vconf.h>

#include <functional>
#include <string>

#include "ICVConf.h"
#include "sso_test_harness.h"

namespace {

using Settings = ssotest::RootTest;

struct IntCase {
    const char *key;
    std::function<bool(int &)> get;
    int failureValue;     // what the out value holds after a failed read
    bool untouched;       // failure leaves the out value as it was
    const char *failLine; // the failure message
};

void PrintTo(const IntCase &c, std::ostream *os)
{
    *os << c.key;
}

class IntKey : public ssotest::RootTest, public ::testing::WithParamInterface<IntCase> {};

TEST_P(IntKey, ReadsTheStoredValue)
{
    ASSERT_EQ(vconf_set_int(GetParam().key, 5), 0);
    int value = 99;
    EXPECT_TRUE(GetParam().get(value));
    EXPECT_EQ(value, 5);
}

TEST_P(IntKey, AMissingKeyGivesItsFailureValueAndMessage)
{
    int value = 99;
    EXPECT_FALSE(GetParam().get(value));
    EXPECT_EQ(value, GetParam().untouched ? 99 : GetParam().failureValue);
    EXPECT_TRUE(log().Contains(std::string(GetParam().failLine) + GetParam().key + ")"))
        << log().Text();
}

TEST_P(IntKey, AKeyOfAnotherTypeFailsLikeAMissingOne)
{
    ASSERT_EQ(vconf_set_str(GetParam().key, "5"), 0);
    int value = 99;
    EXPECT_FALSE(GetParam().get(value));
    EXPECT_EQ(value, GetParam().untouched ? 99 : GetParam().failureValue);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, IntKey,
    ::testing::Values(IntCase{"memory/sso/public_data_ver", ICVConf::GetPublicDataVer, -1, false,
                              "Failed to get vconf value. key=("},
                      IntCase{"db/sso/login_status", ICVConf::GetLoginState, 0, false,
                              "Failed to get vconf value. key=("},
                      IntCase{"memory/sso/view_status", ICVConf::GetViewState, 0, false,
                              "Failed to get vconf value. key=("},
                      IntCase{"db/sso/account_count", ICVConf::GetAccountCount, 0, false,
                              "Failed to get vconf value. key=("},
                      IntCase{"db/sso/temp_logout_status", ICVConf::GetTempLogoutStatus, 0, true,
                              "Failed to get vconf value key=("},
                      IntCase{"db/comss/enforcelogin", ICVConf::GetComssEnforceLoginValue, 0, true,
                              "Failed to get vconf value key=("},
                      IntCase{"memory/was/app_launch", ICVConf::GetAppLaunch, 0, true,
                              "Failed to get vconf value key=("}));

TEST_F(Settings, LoggedReadsShowKeyAndValue)
{
    vconf_set_int("memory/sso/public_data_ver", 12);
    int value = 0;
    ICVConf::GetPublicDataVer(value);
    EXPECT_TRUE(log().Contains("\033[0;35m[END] key(memory/sso/public_data_ver) value(12)\033[0m"));
}

TEST_F(Settings, TheRemoteDisableSwitchIsABool)
{
    bool value = false;
    EXPECT_FALSE(ICVConf::GetRMDisableEnforceLoginValue(value));
    EXPECT_TRUE(log().Contains("Failed to get vconf value key=(db/sso/disable_enforcelogin)"));
    vconf_set_bool("db/sso/disable_enforcelogin", 1);
    EXPECT_TRUE(ICVConf::GetRMDisableEnforceLoginValue(value));
    EXPECT_TRUE(value);
}

struct StringCase {
    const char *key;
    std::function<bool(std::string &)> get;
};

void PrintTo(const StringCase &c, std::ostream *os)
{
    *os << c.key;
}

class StringKey : public ssotest::RootTest, public ::testing::WithParamInterface<StringCase> {};

TEST_P(StringKey, ReadsTextAndLeavesTheStringAloneOnFailure)
{
    std::string value = "before";
    EXPECT_FALSE(GetParam().get(value));
    EXPECT_EQ(value, "before");
    EXPECT_TRUE(log().Contains(std::string("Failed to get vconf value. key=(") + GetParam().key));
    ASSERT_EQ(vconf_set_str(GetParam().key, "a|b|LOGIN"), 0);
    EXPECT_TRUE(GetParam().get(value));
    EXPECT_EQ(value, "a|b|LOGIN");
}

TEST_P(StringKey, AnEmptyTextIsASuccess)
{
    ASSERT_EQ(vconf_set_str(GetParam().key, ""), 0);
    std::string value = "before";
    EXPECT_TRUE(GetParam().get(value));
    EXPECT_EQ(value, "");
}

INSTANTIATE_TEST_SUITE_P(
    Keys, StringKey,
    ::testing::Values(StringCase{"db/sso/display_name", ICVConf::GetAccountDisplayName},
                      StringCase{"memory/sso/event_extra", ICVConf::GetAccountEventExtra},
                      StringCase{"memory/sso/prev_login_id", ICVConf::GetPreviousLoginId},
                      StringCase{"memory/sso/prev_login_guid", ICVConf::GetPreviousLoginGuid}));

TEST_F(Settings, GuidBearingKeysShowTheirValueOnlyWithTheDebugMarker)
{
    vconf_set_str("memory/sso/prev_login_guid", "GUID-SECRET-1");
    std::string value;
    ICVConf::GetPreviousLoginGuid(value);
    EXPECT_FALSE(log().Contains("GUID-SECRET-1"));
    root_.CreateDeviceFile("/etc/debug");
    ICVConf::GetPreviousLoginGuid(value);
    EXPECT_TRUE(log().Contains("value(GUID-SECRET-1)"));
}

TEST_F(Settings, AnAbsentCountryCodeIsEmptyAndStillLogged)
{
    EXPECT_EQ(ICVConf::GetUCCodeAlpha2(), "");
    EXPECT_TRUE(log().Contains("[END] key(db/sso/sa_user_country_code) value()"));
    EXPECT_FALSE(log().Contains("Failed to get vconf value"));
    vconf_set_str("db/sso/sa_user_country_code", "KR");
    vconf_set_str("db/sso/sa_user_country_code_3alpha", "KOR");
    EXPECT_EQ(ICVConf::GetUCCodeAlpha2(), "KR");
    EXPECT_EQ(ICVConf::GetUCCodeAlpha3(), "KOR");
}

TEST_F(Settings, SetAppLaunchedIdOfNullWritesNothing)
{
    EXPECT_FALSE(ICVConf::SetAppLaunchedID(nullptr));
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (pId is null)"));
    EXPECT_EQ(vconf_get_str("memory/was-api/app_launch"), nullptr);
    EXPECT_TRUE(ICVConf::SetAppLaunchedID("org.example.app"));
    char *stored = vconf_get_str("memory/was-api/app_launch");
    ASSERT_NE(stored, nullptr);
    EXPECT_STREQ(stored, "org.example.app");
    free(stored);
}

TEST_F(Settings, TheTwoLaunchKeysAreWritten)
{
    EXPECT_TRUE(ICVConf::SetAppLaunch(3));
    int value = 0;
    EXPECT_TRUE(ICVConf::GetAppLaunch(value));
    EXPECT_EQ(value, 3);
    EXPECT_TRUE(log().Contains("key(memory/was/app_launch) value(3)"));
}

TEST_F(Settings, AWriteThatTheStoreRefusesFails)
{
    vconf_set_str("memory/was/app_launch", "text");
    EXPECT_FALSE(ICVConf::SetAppLaunch(1));
    EXPECT_TRUE(log().Contains("Failed to set vconf value key=(memory/was/app_launch)"));
    vconf_set_int("memory/was-api/app_launch", 1);
    EXPECT_FALSE(ICVConf::SetAppLaunchedID("x"));
    EXPECT_TRUE(log().Contains("Failed to set vconf value key=(memory/was-api/app_launch)."));
}

} // namespace

namespace {

// Every accessor writes its lines under its own name, also those that share
// a helper, for a stored key and for a missing one.
struct NamedAccessor {
    const char *function;
    const char *key;
    std::function<void()> read;
};

void PrintTo(const NamedAccessor &a, std::ostream *os)
{
    *os << a.function;
}

class AccessorLines : public ssotest::RootTest,
                      public ::testing::WithParamInterface<NamedAccessor> {};

TEST_P(AccessorLines, CarryTheAccessorsOwnName)
{
    const NamedAccessor &a = GetParam();
    log().Clear();
    a.read();
    const std::string prefix = std::string(": ") + a.function + "(";
    EXPECT_FALSE(log().LinesWith({prefix, "[START] "}).empty()) << log().Text();
    EXPECT_FALSE(log().LinesWith({prefix, a.key}).empty()) << log().Text();
    EXPECT_EQ(log().Count("GetIntWithFailureValue("), 0);
    EXPECT_EQ(log().Count(": GetString("), 0);
    EXPECT_EQ(log().Count("GetCountryCode("), 0);
}

int g_int;
std::string g_text;

INSTANTIATE_TEST_SUITE_P(
    EveryAccessor, AccessorLines,
    ::testing::Values(
        NamedAccessor{"GetLoginState", VCONF_LOGIN_STATE, [] { ICVConf::GetLoginState(g_int); }},
        NamedAccessor{"GetViewState", VCONF_VIEW_STATE, [] { ICVConf::GetViewState(g_int); }},
        NamedAccessor{"GetAccountCount", VCONF_ACCOUNT_COUNT,
                      [] { ICVConf::GetAccountCount(g_int); }},
        NamedAccessor{"GetPublicDataVer", VCONF_PUBLIC_DATA_VER,
                      [] { ICVConf::GetPublicDataVer(g_int); }},
        NamedAccessor{"GetUCCodeAlpha2", VCONF_UC_CODE_ALPHA2,
                      [] { (void)ICVConf::GetUCCodeAlpha2(); }},
        NamedAccessor{"GetUCCodeAlpha3", VCONF_UC_CODE_ALPHA3,
                      [] { (void)ICVConf::GetUCCodeAlpha3(); }},
        NamedAccessor{"GetAccountDisplayName", VCONF_DISPLAY_NAME,
                      [] {
                          vconf_set_str(VCONF_DISPLAY_NAME, "Ann");
                          ICVConf::GetAccountDisplayName(g_text);
                      }},
        NamedAccessor{"GetAccountEventExtra", VCONF_ACCOUNT_EVENT_EXTRA,
                      [] { ICVConf::GetAccountEventExtra(g_text); }},
        NamedAccessor{"GetPreviousLoginId", VCONF_PREV_LOGIN_ID,
                      [] { ICVConf::GetPreviousLoginId(g_text); }},
        NamedAccessor{"GetPreviousLoginGuid", VCONF_PREV_LOGIN_GUID,
                      [] { ICVConf::GetPreviousLoginGuid(g_text); }}));

} // namespace
