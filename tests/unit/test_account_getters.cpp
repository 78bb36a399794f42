// The synchronous account queries of the API, on a device whose state the
// test publishes the way the SSO service does.
#include <sso_api/sso_api.h>
#include <sso_api/sso_api_service_data.hpp>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "SSOAPISingleton.h"
#include "account_documents.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_test_harness.h"

namespace {

using ssotest::Document;
using ssotest::MakeAccount;
using ssotest::TestAccount;

class Getters : public ssotest::RootTest {
protected:
    void SignInAccount(int n)
    {
        accounts_ = {MakeAccount(n), MakeAccount(n + 1)};
        ssotest::SignIn(accounts_, 0);
    }
    bool TouchedSecureStorage() { return log().Contains("m_SyncAccountsInfo("); }
    std::vector<TestAccount> accounts_;
};

// ------------------------------------------------------------- login state

TEST_F(Getters, LoginStateReadsOneAsSignedInAndAnythingElseAsSignedOut)
{
    sso_login_state state = SSO_LOGEDIN;
    EXPECT_EQ(sso_get_login_state(&state), -1);
    EXPECT_EQ(state, SSO_NOT_LOGIN);
    EXPECT_TRUE(log().Contains("Failed to ICVConf::GetLoginState()"));
    for (int stored : {1, 0, 2, -1, 7}) {
        vconf_set_int("db/sso/login_status", stored);
        EXPECT_EQ(sso_get_login_state(&state), 0);
        EXPECT_EQ(state, stored == 1 ? SSO_LOGEDIN : SSO_NOT_LOGIN) << stored;
    }
    EXPECT_EQ(sso_get_login_state(nullptr), -1);
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (state is null)"));
}

// ------------------------------------------------------ text getters family

struct TextGetter {
    const char *name;
    std::function<int(char **)> get;
    std::function<std::string(const TestAccount &)> expected;
    const char *nullReason;
    const char *emptyLine; // logged when the field is empty
    std::function<void(TestAccount &)> emptyField;
};

void PrintTo(const TextGetter &g, std::ostream *os)
{
    *os << g.name;
}

class TextGetters : public Getters, public ::testing::WithParamInterface<TextGetter> {};

TEST_P(TextGetters, GiveTheSignedInAccountsValueInABufferTheCallerFrees)
{
    SignInAccount(1);
    char *out = nullptr;
    ASSERT_EQ(GetParam().get(&out), 0);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out), GetParam().expected(accounts_[0]));
    free(out);
}

TEST_P(TextGetters, RefuseANullOutArgument)
{
    SignInAccount(1);
    EXPECT_EQ(GetParam().get(nullptr), -1);
    EXPECT_TRUE(log().Contains(GetParam().nullReason)) << log().Text();
}

TEST_P(TextGetters, SignedOutGivesMinusOneWithoutTouchingSecureStorage)
{
    SignInAccount(1);
    ssotest::SetLoginState(0);
    char *out = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(GetParam().get(&out), -1);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1));
    EXPECT_TRUE(log().Contains("result [0], Login State [0]. Return (Not login state)"));
    EXPECT_FALSE(TouchedSecureStorage());
}

TEST_P(TextGetters, AnEmptyFieldWhileSignedInIsAFailure)
{
    TestAccount account = MakeAccount(1);
    GetParam().emptyField(account);
    ssotest::SignIn({account}, 0);
    char *out = reinterpret_cast<char *>(0x1);
    if (GetParam().emptyLine == nullptr) {
        // The login id goes through the login-info record, which takes an
        // empty id as it is.
        ASSERT_EQ(GetParam().get(&out), 0);
        EXPECT_STREQ(out, "");
        free(out);
        return;
    }
    EXPECT_EQ(GetParam().get(&out), -1);
    EXPECT_EQ(out, reinterpret_cast<char *>(0x1));
    EXPECT_TRUE(log().Contains(GetParam().emptyLine));
}

INSTANTIATE_TEST_SUITE_P(
    Family, TextGetters,
    ::testing::Values(
        TextGetter{"guid", sso_get_guid, [](const TestAccount &a) { return a.guid; },
                   "Return (guid is null)", "SSO not login, please login first.",
                   [](TestAccount &a) { a.guid.clear(); }},
        TextGetter{"uid", sso_get_login_vd_uid, [](const TestAccount &a) { return a.uid; },
                   "Return (uid is null)", "SSO not login, please login first.",
                   [](TestAccount &a) { a.uid.clear(); }},
        TextGetter{"auth_token", sso_get_auth_token, [](const TestAccount &a) { return a.auth; },
                   "Return (auth_token is null)", "SSO not login, please login first.",
                   [](TestAccount &a) { a.auth.clear(); }},
        TextGetter{"device_id", sso_get_device_id, [](const TestAccount &a) { return a.deviceId; },
                   "Return (device_id is null)", "userDeviceID is empty",
                   [](TestAccount &a) { a.deviceId.clear(); }},
        TextGetter{"login_user_id", sso_get_login_user_id,
                   [](const TestAccount &a) { return a.id; }, "Return (user_id is null)", nullptr,
                   [](TestAccount &a) { a.id.clear(); }}));

TEST_F(Getters, IdentifyingValuesAreLoggedOnlyWithTheDebugMarker)
{
    SignInAccount(1);
    char *guid = nullptr, *uid = nullptr, *device = nullptr, *token = nullptr;
    ASSERT_EQ(sso_get_guid(&guid), 0);
    ASSERT_EQ(sso_get_login_vd_uid(&uid), 0);
    ASSERT_EQ(sso_get_device_id(&device), 0);
    ASSERT_EQ(sso_get_auth_token(&token), 0);
    EXPECT_FALSE(log().Contains(accounts_[0].guid));
    EXPECT_FALSE(log().Contains(accounts_[0].deviceId));
    root_.CreateDeviceFile("/etc/debug");
    free(guid);
    free(uid);
    free(device);
    free(token);
    ASSERT_EQ(sso_get_guid(&guid), 0);
    ASSERT_EQ(sso_get_login_vd_uid(&uid), 0);
    ASSERT_EQ(sso_get_device_id(&device), 0);
    ASSERT_EQ(sso_get_auth_token(&token), 0);
    EXPECT_TRUE(log().Contains("[DEVEL] guid : " + accounts_[0].guid));
    EXPECT_TRUE(log().Contains("[DEVEL] uid value is " + accounts_[0].uid));
    EXPECT_TRUE(log().Contains("[DEVEL] device_id : " + accounts_[0].deviceId));
    // The auth token, never.
    EXPECT_FALSE(log().Contains(accounts_[0].auth));
    free(guid);
    free(uid);
    free(device);
    free(token);
}

// --------------------------------------------------------------- login info

TEST_F(Getters, LoginInfoFillsItsFiveFieldsAndLeavesTheRestAlone)
{
    SignInAccount(3);
    ASSERT_EQ(get_size_of_sso_login_info_s(), 1536);
    sso_login_info_s info;
    memset(&info, 'x', sizeof(info));
    ASSERT_EQ(sso_get_login_info(&info), 0);
    EXPECT_STREQ(info.login_id, accounts_[0].id.c_str());
    EXPECT_STREQ(info.password, "");
    EXPECT_STREQ(info.guid, accounts_[0].guid.c_str());
    EXPECT_STREQ(info.uid, accounts_[0].uid.c_str());
    EXPECT_STREQ(info.user_icon_path, accounts_[0].icon.c_str());
    // The byte after each written text is the caller's own.
    EXPECT_EQ(info.password[1], 'x');
}

TEST_F(Getters, LoginInfoCutsLongValuesOneByteShortOfTheirFields)
{
    TestAccount account = MakeAccount(1);
    account.id = std::string(300, 'i');
    account.icon = std::string(2000, 'p');
    ssotest::SignIn({account}, 0);
    sso_login_info_s info;
    memset(&info, 0, sizeof(info));
    ASSERT_EQ(sso_get_login_info(&info), 0);
    EXPECT_EQ(strlen(info.login_id), 126u);
    EXPECT_EQ(strlen(info.user_icon_path), 1022u);
}

TEST_F(Getters, LoginInfoRefusesNullAndSignedOut)
{
    EXPECT_EQ(sso_get_login_info(nullptr), -1);
    EXPECT_TRUE(log().Contains("the input param is nullptr, please check."));
    sso_login_info_s info;
    ssotest::SetLoginState(0);
    EXPECT_EQ(sso_get_login_info(&info), -1);
}

TEST_F(Getters, LoginJsonInfoDescribesTheSignedInAccount)
{
    SignInAccount(2);
    char *json = nullptr;
    ASSERT_EQ(sso_get_login_json_info(&json), 0);
    ASSERT_NE(json, nullptr);
    Json::Value v;
    Json::CharReaderBuilder b;
    std::unique_ptr<Json::CharReader> r(b.newCharReader());
    std::string errors;
    ASSERT_TRUE(r->parse(json, json + strlen(json), &v, &errors));
    EXPECT_EQ(v["loginid"].asString(), accounts_[0].id);
    EXPECT_EQ(v["guid"].asString(), accounts_[0].guid);
    EXPECT_EQ(v["uid"].asString(), accounts_[0].uid);
    EXPECT_EQ(v["userIcon"].asString(), accounts_[0].icon);
    EXPECT_EQ(v["userDeviceID"].asString(), accounts_[0].deviceId);
    EXPECT_EQ(v["password"].asString(), "");
    EXPECT_FALSE(v.isMember("account_auth"));
    EXPECT_TRUE(log().Contains("[END] ssoResult: 0"));
    EXPECT_TRUE(log().Contains("strLoginID [" + accounts_[0].id + "]"));
    EXPECT_FALSE(log().Contains(accounts_[0].guid));
    free(json);
}

// ------------------------------------------------------------ other getters

TEST_F(Getters, AccountNumberComesFromItsKey)
{
    int count = 42;
    EXPECT_EQ(sso_get_account_number(&count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(log().Contains("Failed to ICVConf::GetAccountCount()"));
    vconf_set_int("db/sso/account_count", 4);
    EXPECT_EQ(sso_get_account_number(&count), 0);
    EXPECT_EQ(count, 4);
    EXPECT_TRUE(log().Contains("account count = 4"));
    EXPECT_EQ(sso_get_account_number(nullptr), -1);
}

TEST_F(Getters, PopupStateIsOneOnlyForViewStateOne)
{
    int state = 7;
    EXPECT_EQ(sso_get_popup_state(&state), -1);
    EXPECT_EQ(state, 0);
    for (int stored : {1, 2, 0}) {
        vconf_set_int("memory/sso/view_status", stored);
        state = 7;
        EXPECT_EQ(sso_get_popup_state(&state), 0);
        EXPECT_EQ(state, stored == 1 ? 1 : 0) << stored;
    }
    EXPECT_EQ(sso_get_popup_state(nullptr), -1);
}

TEST_F(Getters, AccountsGiveTheWholeDocumentWhateverTheLoginState)
{
    std::string doc = Document({MakeAccount(1), MakeAccount(2)}, -1);
    ssotest::PublishDocument(doc);
    ssotest::SetLoginState(0);
    char *accounts = nullptr;
    ASSERT_EQ(sso_get_accounts(&accounts), 0);
    EXPECT_EQ(std::string(accounts), doc);
    free(accounts);
}

TEST_F(Getters, AccountsAfterAFailedReadStillHandOutAnEmptyText)
{
    vconf_set_int("memory/sso/public_data_ver", 3);
    char *accounts = nullptr;
    EXPECT_EQ(sso_get_accounts(&accounts), -1);
    ASSERT_NE(accounts, nullptr);
    EXPECT_STREQ(accounts, "");
    EXPECT_TRUE(log().Contains("Failed to GetAccountData()"));
    EXPECT_TRUE(log().Contains("[END] ssoResult: -1"));
    free(accounts);
}

TEST_F(Getters, TheAccountUiPackageIdIsFixed)
{
    char *id = nullptr;
    ASSERT_EQ(sso_get_account_ui_application_package_id(&id), 0);
    EXPECT_STREQ(id, "com.veltra.tv.CSAccount");
    free(id);
    EXPECT_EQ(sso_get_account_ui_application_package_id(nullptr), -1);
}

TEST_F(Getters, TermStateIsAlwaysMinusOne)
{
    EXPECT_EQ(sso_get_term_state("terms-1"), -1);
    EXPECT_EQ(sso_get_term_state(nullptr), -1);
    EXPECT_EQ(sso_get_term_state(""), -1);
    EXPECT_TRUE(log().Contains("[START] term_id [terms-1]"));
}

TEST_F(Getters, ExtractedApplicationDataWithAnEmptyInputAsksNobody)
{
    std::string out = "stale";
    EXPECT_TRUE(sso_private_get_extracted_application_data("pkg", "app", "", out));
    EXPECT_EQ(out, "");
    EXPECT_TRUE(sso_private_get_extracted_application_data("", "app", "key", out));
    EXPECT_TRUE(sso_private_get_extracted_application_data("pkg", "", "key", out));
    EXPECT_EQ(log().Count("packageId or appId or key is empty"), 3);
    EXPECT_EQ(SSOAPISingleton<CSSOSvcGdbus>::PeekInstance(), nullptr);
}

// ---------------------------------------------------------------- copy-out

TEST(CopyOut, HandsOutTheWholeTextZeroTerminatedInAFreeableBuffer)
{
    const std::string text("a\xc3\xa9"
                           "b",
                           4);
    char *copy = sso_private_copy_out(text);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::memcmp(copy, text.data(), text.size()), 0);
    EXPECT_EQ(copy[text.size()], '\0');
    free(copy);
    char *empty = sso_private_copy_out("");
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    free(empty);
}

} // namespace
