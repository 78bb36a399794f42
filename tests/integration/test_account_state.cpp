// Local account state end to end: the simulator (its own process) signs users
// in and out and publishes the account state as the service does; this
// process reads it through the library's getters.
#include <sso_api/sso_api.h>
#include <sso_api/sso_api_service_data.hpp>
#include <vconf.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "SSOAPIClientUtil.h"
#include "account_documents.h"
#include "sso_simulator_harness.h"
#include "sso_ss_data_storage.h"
#include "sso_test_harness.h"
#include "test_files.h"

namespace {

Json::Value ParseJson(const std::string &text)
{
    Json::Value v;
    Json::CharReaderBuilder b;
    std::unique_ptr<Json::CharReader> r(b.newCharReader());
    std::string errors;
    EXPECT_TRUE(r->parse(text.data(), text.data() + text.size(), &v, &errors)) << errors;
    return v;
}

std::string Take(char *text)
{
    std::string s = text != nullptr ? text : "";
    free(text);
    return s;
}

class AccountState : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        SimulatorTest::SetUp();
        kimGuid_ = sim_.AddAccount(ssotest::KimAccount());
        leeGuid_ = sim_.AddAccount(ssotest::LeeAccount());
    }

    // The simulator's own record of an account.
    Json::Value Account(const std::string &guid)
    {
        Json::Value all = ParseJson(sim_.Accounts());
        for (const auto &a : all["accounts"])
            if (a["guid"].asString() == guid)
                return a;
        ADD_FAILURE() << "no account " << guid;
        return Json::Value();
    }

    std::string kimGuid_;
    std::string leeGuid_;
};

TEST_F(AccountState, GettersReadTheAccountTheSimulatorSignedIn)
{
    sim_.SignIn("kim@example.com");
    Json::Value kim = Account(kimGuid_);

    sso_login_state state = SSO_NOT_LOGIN;
    ASSERT_EQ(sso_get_login_state(&state), 0);
    EXPECT_EQ(state, SSO_LOGEDIN);

    char *text = nullptr;
    ASSERT_EQ(sso_get_guid(&text), 0);
    EXPECT_EQ(Take(text), kimGuid_);
    ASSERT_EQ(sso_get_login_user_id(&text), 0);
    EXPECT_EQ(Take(text), "kim@example.com");
    ASSERT_EQ(sso_get_login_vd_uid(&text), 0);
    EXPECT_EQ(Take(text), kim["uid"].asString());
    ASSERT_EQ(sso_get_auth_token(&text), 0);
    EXPECT_EQ(Take(text), kim["auth"].asString());
    ASSERT_EQ(sso_get_device_id(&text), 0);
    EXPECT_EQ(Take(text), kim["device_id"].asString());

    sso_login_info_s info;
    memset(&info, 0, sizeof(info));
    ASSERT_EQ(sso_get_login_info(&info), 0);
    EXPECT_STREQ(info.login_id, "kim@example.com");
    EXPECT_STREQ(info.guid, kimGuid_.c_str());
    EXPECT_STREQ(info.uid, kim["uid"].asString().c_str());
    EXPECT_STREQ(info.user_icon_path, "/opt/usr/share/account/kim.png");
    EXPECT_STREQ(info.password, "");

    ASSERT_EQ(sso_get_login_json_info(&text), 0);
    Json::Value json = ParseJson(Take(text));
    EXPECT_EQ(json["loginid"].asString(), "kim@example.com");
    EXPECT_EQ(json["guid"].asString(), kimGuid_);
    EXPECT_EQ(json["displayName"].asString(), "Kim Min");
    EXPECT_EQ(json["userCountryCode"].asString(), "KOR");
    EXPECT_EQ(json["alpha2CountryCode"].asString(), "KR");
    EXPECT_EQ(json["userDeviceID"].asString(), kim["device_id"].asString());

    int count = 0;
    ASSERT_EQ(sso_get_account_number(&count), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(AccountState, AfterSignOutTheGettersRefuseWithoutTouchingSecureStorage)
{
    sim_.SignIn("kim@example.com");
    char *text = nullptr;
    ASSERT_EQ(sso_get_guid(&text), 0);
    free(text);
    sim_.SignOut();
    log().Clear();
    text = nullptr;
    EXPECT_EQ(sso_get_guid(&text), -1);
    EXPECT_EQ(sso_get_auth_token(&text), -1);
    EXPECT_EQ(sso_get_device_id(&text), -1);
    EXPECT_EQ(sso_get_login_vd_uid(&text), -1);
    sso_login_info_s info;
    EXPECT_EQ(sso_get_login_info(&info), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_FALSE(log().Contains("m_SyncAccountsInfo("));
    // The whole document is still there for those who want it.
    ASSERT_EQ(sso_get_accounts(&text), 0);
    Json::Value doc = ParseJson(Take(text));
    EXPECT_FALSE(doc.isMember("active_account"));
    EXPECT_EQ(doc["account_count"].asInt(), 2);
}

TEST_F(AccountState, SwitchingIsSeenAtTheNextCall)
{
    sim_.SignIn("kim@example.com");
    char *text = nullptr;
    ASSERT_EQ(sso_get_guid(&text), 0);
    EXPECT_EQ(Take(text), kimGuid_);
    sim_.SignIn("lee@example.com");
    ASSERT_EQ(sso_get_guid(&text), 0);
    EXPECT_EQ(Take(text), leeGuid_);
}

TEST_F(AccountState, ATamperedItemFailsClearlyAndTheNextGoodWriteIsPickedUp)
{
    sim_.SignIn("kim@example.com");
    ASSERT_TRUE(
        ssotest::FlipBits(root_.path() + "/secure-storage/items/SSO_PUBLICDATA_ID", 20, 0x01));
    // The service announces a change; the item no longer authenticates.
    ssotest::AnnouncePublicData(100);
    char *text = nullptr;
    EXPECT_EQ(sso_get_guid(&text), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(log().Contains("Failed to read data. error("));
    sim_.Publish();
    ASSERT_EQ(sso_get_guid(&text), 0);
    EXPECT_EQ(Take(text), kimGuid_);
}

TEST_F(AccountState, TheServiceHandsOutItsDocumentAndApplicationData)
{
    sim_.SignIn("lee@example.com");
    sim_.SetApplicationData("org.example.pkg", leeGuid_, "DATA_KEY", "value-for-lee");
    sim_.SetApplicationData("org.example.pkg", kimGuid_, "DATA_KEY", "value-for-kim");
    std::string doc;
    ASSERT_TRUE(sso_private_get_public_account_data(doc));
    EXPECT_EQ(ParseJson(doc)["active_account"]["account_guid"].asString(), leeGuid_);
    std::string value;
    ASSERT_TRUE(sso_private_get_extracted_application_data("org.example.pkg", "org.example.app",
                                                           "DATA_KEY", value));
    EXPECT_EQ(value, "value-for-lee");
    auto journal = sim_.Journal();
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(journal[1].method, "sso_get_extracted_application_data");
    std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    long long tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    EXPECT_EQ(journal[1].args, "('" + obj + "', int64 " + std::to_string(tid) +
                                   ", 'sso_get_extracted_application_data', 'org.example.pkg', "
                                   "'org.example.app', 'DATA_KEY')");
    // The library reads the same item locally too.
    std::string local;
    ASSERT_TRUE(SSOAPISingleton<CSSOSSData>::GetInstance()->ExtractApplicationData(
        "org.example.pkg", leeGuid_, "DATA_KEY", local));
    EXPECT_EQ(local, "value-for-lee");
}

TEST_F(AccountState, WithSixAccountsOnlyRegisteredIdsMayBeAdded)
{
    for (int i = 3; i <= 6; ++i) {
        ssotest::AccountSpec spec;
        spec.login_id = "user" + std::to_string(i) + "@example.com";
        sim_.AddAccount(spec);
    }
    EXPECT_EQ(SSOAPIClientUtil::GetNumberOfAccount(), 6);
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("lee@example.com"), 0);
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("new@example.com"), -100);
}

TEST_F(AccountState, AMalformedDocumentFromTheServiceReadsAsNoAccount)
{
    sim_.SignIn("kim@example.com");
    sim_.WritePublicData("{ not json");
    char *text = nullptr;
    EXPECT_EQ(sso_get_guid(&text), -1);
    EXPECT_TRUE(log().Contains("Failed to parse secure data JSON"));
    sim_.Publish();
    ASSERT_EQ(sso_get_guid(&text), 0);
    EXPECT_EQ(Take(text), kimGuid_);
}

} // namespace
