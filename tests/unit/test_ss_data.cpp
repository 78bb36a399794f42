// The account data cache: version-keyed loading of the public account
// document, its failure rules, application data, and the account helpers
// built on it.
#include <cstdlib>
#include <cstring>
#include <string>

#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_records.h"
#include "account_documents.h"
#include "sso_ss_data_storage.h"
#include "sso_test_harness.h"

namespace {

using ssotest::Document;
using ssotest::MakeAccount;
using ssotest::PublishDocument;
using ssotest::TestAccount;

class DataCache : public ssotest::RootTest {
protected:
    CSSOSSData *cache() { return SSOAPISingleton<CSSOSSData>::GetInstance(); }
    int Reads() { return log().Count("accountData length ["); }
};

TEST_F(DataCache, LoadsTheActiveAccountOfTheDocument)
{
    std::vector<TestAccount> accounts = {MakeAccount(1), MakeAccount(2)};
    PublishDocument(Document(accounts, 1));
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_EQ(info.strLoginID, accounts[1].id);
    EXPECT_EQ(info.strLoginGUID, accounts[1].guid);
    EXPECT_EQ(info.strLoginUID, accounts[1].uid);
    EXPECT_EQ(info.strUserIconPath, accounts[1].icon);
    EXPECT_EQ(info.strAccountAuth, accounts[1].auth);
    EXPECT_EQ(info.strUserPinSet, "N");
    EXPECT_EQ(info.userCountryCode, "KOR");
    EXPECT_EQ(info.alpha2CountryCode, "KR");
    EXPECT_EQ(info.displayName, accounts[1].displayName);
    EXPECT_EQ(info.userDeviceID, accounts[1].deviceId);
    EXPECT_EQ(info.numOfAccounts, 2);
    EXPECT_EQ(info.strLoginPassword, "");
    EXPECT_EQ(info.accountsInfoJsonString, Document(accounts, 1));
    EXPECT_EQ(cache()->cachedVersion(), 1);
    // Identifying values never reach the log without the debug marker.
    EXPECT_FALSE(log().Contains(accounts[1].guid));
    EXPECT_FALSE(log().Contains(accounts[1].auth));
}

TEST_F(DataCache, AnUnchangedVersionMeansNoSecureStorageRead)
{
    std::vector<TestAccount> accounts = {MakeAccount(1)};
    PublishDocument(Document(accounts, 0));
    cache()->GetAccountsInfo();
    EXPECT_EQ(Reads(), 1);
    // The item changes but the version does not: the cache answers.
    ssotest::WriteItem("SSO_PUBLICDATA_ID", Document({MakeAccount(9)}, 0));
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_EQ(Reads(), 1);
    EXPECT_EQ(info.strLoginID, accounts[0].id);
    EXPECT_TRUE(log().Contains("version is not changed."));
    // A bump makes the next call read again.
    PublishDocument(Document({MakeAccount(9)}, 0));
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(9).id);
    EXPECT_EQ(Reads(), 2);
}

TEST_F(DataCache, AMissingVersionKeyLoadsOnceThenServesTheCache)
{
    ssotest::WriteItem("SSO_PUBLICDATA_ID", Document({MakeAccount(1)}, 0));
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(1).id);
    EXPECT_TRUE(
        log().Contains("Failed to get VCONF_PUBLIC_DATA_VER. Assume that version is changed."));
    EXPECT_EQ(cache()->cachedVersion(), CSSOSSData::kVersionUnreadable);
    ssotest::WriteItem("SSO_PUBLICDATA_ID", Document({MakeAccount(2)}, 0));
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(1).id);
    EXPECT_EQ(Reads(), 1);
    // The key coming back is a change.
    vconf_set_int("memory/sso/public_data_ver", 4);
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(2).id);
    EXPECT_EQ(cache()->cachedVersion(), 4);
}

TEST_F(DataCache, AMalformedDocumentClearsTheFieldsAndForgetsTheVersion)
{
    PublishDocument(Document({MakeAccount(1)}, 0));
    cache()->GetAccountsInfo();
    PublishDocument("{\"account_count\": 1, \"active_account\": {");
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_TRUE(log().Contains("Failed to parse secure data JSON. err("));
    EXPECT_TRUE(log().Contains("Failed to m_UpdateAccountsInfo(). ret(3)"));
    EXPECT_TRUE(log().Contains("Failed to m_SyncAccountsInfo. Clear m_accountsInfo. ret(3)"));
    EXPECT_EQ(info.strLoginID, "");
    EXPECT_EQ(info.strLoginGUID, "");
    EXPECT_EQ(info.numOfAccounts, 0);
    EXPECT_EQ(cache()->cachedVersion(), CSSOSSData::kVersionNeverLoaded);
    // The failed load is retried at the next call, and a good document wins.
    PublishDocument(Document({MakeAccount(3)}, 0));
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(3).id);
}

TEST_F(DataCache, AWrongMemberTypeIsCaughtAsAnException)
{
    PublishDocument("{\"account_count\": \"six\"}");
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_TRUE(log().Contains("Exception handle by "));
    EXPECT_TRUE(log().Contains("Failed to m_SyncAccountsInfo. Clear m_accountsInfo. ret(4)"));
    EXPECT_EQ(info.numOfAccounts, 0);
}

TEST_F(DataCache, ADocumentWithoutActiveAccountKeepsTextAndCount)
{
    std::vector<TestAccount> accounts = {MakeAccount(1), MakeAccount(2), MakeAccount(3)};
    PublishDocument(Document(accounts, 0));
    cache()->GetAccountsInfo();
    PublishDocument(Document(accounts, -1));
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_TRUE(
        log().Contains("No active_account(SSO_NOT_LOGIN). Clear previous active account info."));
    EXPECT_EQ(info.accountsInfoJsonString, Document(accounts, -1));
    EXPECT_EQ(info.numOfAccounts, 3);
    EXPECT_EQ(info.strLoginID, "");
    EXPECT_EQ(info.strLoginGUID, "");
    EXPECT_EQ(info.strAccountAuth, "");
    EXPECT_EQ(info.userDeviceID, "");
}

TEST_F(DataCache, AnUnreadableItemClearsTheFieldsAndIsRetried)
{
    PublishDocument(Document({MakeAccount(1)}, 0));
    cache()->GetAccountsInfo();
    // Tamper with the stored item: it no longer authenticates.
    std::string path = root_.path() + "/secure-storage/items/SSO_PUBLICDATA_ID";
    FILE *f = fopen(path.c_str(), "r+b");
    ASSERT_NE(f, nullptr);
    fseek(f, -3, SEEK_END);
    int c = fgetc(f);
    fseek(f, -3, SEEK_END);
    fputc(c ^ 0x40, f);
    fclose(f);
    vconf_set_int("memory/sso/public_data_ver", 50);
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_EQ(info.strLoginID, "");
    EXPECT_TRUE(log().Contains("Failed to read data. error("));
    EXPECT_TRUE(log().Contains("Failed to m_GetPublicAccountData(). ret(1)"));
    EXPECT_EQ(cache()->cachedVersion(), CSSOSSData::kVersionNeverLoaded);
    PublishDocument(Document({MakeAccount(4)}, 0));
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, MakeAccount(4).id);
}

TEST_F(DataCache, AMissingItemIsAReadFailure)
{
    vconf_set_int("memory/sso/public_data_ver", 1);
    EXPECT_EQ(cache()->GetAccountsInfo().strLoginID, "");
    EXPECT_TRUE(log().Contains("Failed to read data. error("));
}

TEST_F(DataCache, ATerminatedClientGetsAnEmptyRecordAndTheCacheIsKept)
{
    PublishDocument(Document({MakeAccount(1)}, 0));
    cache()->GetAccountsInfo();
    PublishDocument(Document({MakeAccount(2)}, 0));
    SSOAPIUtil::SetClientToTerminated();
    sso_accounts_info info = cache()->GetAccountsInfo();
    EXPECT_EQ(info.strLoginID, "");
    EXPECT_EQ(info.accountsInfoJsonString, "");
    EXPECT_TRUE(log().Contains("Client is not Alive !"));
    EXPECT_EQ(cache()->cachedVersion(), 1);
    SSOAPIUtil::SetClientToAlive();
}

TEST_F(DataCache, GetAccountDataGivesTheWholeDocument)
{
    std::string doc = Document({MakeAccount(1), MakeAccount(2)}, -1);
    PublishDocument(doc);
    std::string out = "stale";
    EXPECT_TRUE(cache()->GetAccountData(out));
    EXPECT_EQ(out, doc);
    EXPECT_TRUE(log().Contains("[END] ret[0] bRet[1]"));
    PublishDocument("not json");
    EXPECT_FALSE(cache()->GetAccountData(out));
    EXPECT_EQ(out, "");
}

TEST_F(DataCache, TheDocumentIsDumpedOnlyWithTheDebugMarker)
{
    std::string doc = Document({MakeAccount(1)}, 0);
    PublishDocument(doc);
    cache()->GetAccountsInfo();
    EXPECT_FALSE(log().Contains("accountData ["));
    root_.CreateDeviceFile("/etc/debug");
    PublishDocument(Document({MakeAccount(2)}, 0));
    cache()->GetAccountsInfo();
    EXPECT_TRUE(log().Contains("accountData [{"));
    // In pieces of at most 850 characters.
    for (const auto &line : log().LinesWith({"W/system", "accountData"}))
        EXPECT_LT(line.size(), 850u + 200u);
}

// ------------------------------------------------------- application data

class AppData : public DataCache {
protected:
    void SetUp() override
    {
        ssotest::WriteItem("SSO_PUBLICDATA_ID_org.example.pkg",
                           "{\"data\":{\"GUID-A\":{\"k1\":\"v1\",\"empty\":\"\"},"
                           "\"GUID-B\":{\"k1\":\"other\"}}}");
    }
};

TEST_F(AppData, ExtractsOneValueForOneAccount)
{
    std::string out;
    EXPECT_TRUE(cache()->ExtractApplicationData("org.example.pkg", "GUID-A", "k1", out));
    EXPECT_EQ(out, "v1");
    EXPECT_TRUE(cache()->ExtractApplicationData("org.example.pkg", "GUID-B", "k1", out));
    EXPECT_EQ(out, "other");
    EXPECT_TRUE(cache()->ExtractApplicationData("org.example.pkg", "GUID-A", "empty", out));
    EXPECT_EQ(out, "");
    EXPECT_TRUE(log().Contains("applicationDataId is [SSO_PUBLICDATA_ID_org.example.pkg]"));
    EXPECT_FALSE(log().Contains("v1"));
}

TEST_F(AppData, AnUnknownGuidOrKeyFailsWithItsLine)
{
    std::string out = "untouched";
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.pkg", "GUID-C", "k1", out));
    EXPECT_TRUE(log().Contains("Failed to find data by guid ["));
    EXPECT_EQ(out, "untouched");
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.pkg", "GUID-A", "k9", out));
    EXPECT_TRUE(log().Contains("Failed to find data by key [k9] : empty string"));
    EXPECT_TRUE(log().Contains("Failed to m_ExtractApplicationDataByGuidAndKey(). guid["));
    EXPECT_EQ(out, "untouched");
}

TEST_F(AppData, MissingPackageOrEmptyInputsFail)
{
    std::string out;
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.none", "GUID-A", "k1", out));
    EXPECT_TRUE(log().Contains("Failed to m_GetApplicationDataByGuid()"));
    EXPECT_FALSE(cache()->ExtractApplicationData("", "GUID-A", "k1", out));
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.pkg", "", "k1", out));
    EXPECT_TRUE(log().Contains("packageId or guid is empty"));
}

TEST_F(AppData, AnItemWithoutDataYieldsNoPairsAndFailsAtTheGuid)
{
    ssotest::WriteItem("SSO_PUBLICDATA_ID_org.example.nodata", "{\"other\":{}}");
    std::string out;
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.nodata", "GUID-A", "k1", out));
    EXPECT_TRUE(log().Contains("No Data"));
    EXPECT_TRUE(log().Contains("Failed to find data by guid ["));
    EXPECT_FALSE(log().Contains("Failed to m_ParseAccountApplicationData()"));
}

TEST_F(AppData, AnEmptyDataObjectParsesIntoNoPairsAndFailsAtTheGuid)
{
    ssotest::WriteItem("SSO_PUBLICDATA_ID_org.example.emptydata", "{\"data\":{}}");
    std::string out = "untouched";
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.emptydata", "GUID-A", "k1", out));
    EXPECT_TRUE(log().Contains("Failed to find data by guid ["));
    EXPECT_FALSE(log().Contains("Failed to m_ParseAccountApplicationData()"));
    EXPECT_EQ(out, "untouched");
}

TEST_F(AppData, AnItemThatIsNoJsonFailsAtParsing)
{
    ssotest::WriteItem("SSO_PUBLICDATA_ID_org.example.broken", "{\"data\":");
    std::string out;
    EXPECT_FALSE(cache()->ExtractApplicationData("org.example.broken", "GUID-A", "k1", out));
    EXPECT_TRUE(log().Contains("Failed to m_ParseAccountApplicationData()"));
}

// --------------------------------------------------------- account helpers

using AccountLimit = DataCache;

std::vector<TestAccount> Accounts(int n)
{
    std::vector<TestAccount> accounts;
    for (int i = 0; i < n; ++i)
        accounts.push_back(MakeAccount(i + 1));
    return accounts;
}

TEST_F(AccountLimit, WithFiveAccountsAnyIdMayBeAdded)
{
    PublishDocument(Document(Accounts(5), 0));
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("new@example.com"), 0);
    EXPECT_TRUE(log().Contains("[new@example.com] can be added."));
    EXPECT_EQ(SSOAPIClientUtil::GetNumberOfAccount(), 5);
}

TEST_F(AccountLimit, WithSixAccountsOnlyARegisteredIdMayBeAdded)
{
    PublishDocument(Document(Accounts(6), 0));
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("user4@example.com"), 0);
    EXPECT_TRUE(log().Contains("[END] Already, user4@example.com is registered"));
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("new@example.com"), -100);
    EXPECT_TRUE(log().Contains("It exceeded the maximum number of accounts(6)"));
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("USER4@example.com"), -100);
}

TEST_F(AccountLimit, TheLimitHoldsWhileNobodyIsSignedIn)
{
    PublishDocument(Document(Accounts(6), -1));
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("new@example.com"), -100);
}

TEST_F(AccountLimit, ACountBeyondTheListReadsMissingEntriesAsEmptyIds)
{
    std::string doc = Document(Accounts(2), 0);
    doc.replace(doc.find("\"account_count\":2"), 17, "\"account_count\":7");
    PublishDocument(doc);
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("user2@example.com"), 0);
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("user9@example.com"), -100);
    EXPECT_TRUE(log().Contains("[END] user9@example.com is not registered"));
}

TEST_F(AccountLimit, RegisteredIdLookupRefusesBadInput)
{
    std::string text = Document(Accounts(6), 0);
    EXPECT_FALSE(SSOAPIClientUtil::m_IsAccountIdRegistered(text, 6, nullptr));
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (pAccountId is null)"));
    EXPECT_FALSE(SSOAPIClientUtil::m_IsAccountIdRegistered(text, 0, "user1@example.com"));
    EXPECT_TRUE(log().Contains("numOfAccounts(0) <= 0"));
    std::string empty;
    EXPECT_FALSE(SSOAPIClientUtil::m_IsAccountIdRegistered(empty, 6, "user1@example.com"));
    EXPECT_TRUE(log().Contains("accountsInfoJsonString is empty"));
    std::string broken = "{";
    EXPECT_FALSE(SSOAPIClientUtil::m_IsAccountIdRegistered(broken, 6, "user1@example.com"));
    EXPECT_TRUE(log().Contains("Failed to reader->parse(jsonString). paserError("));
    EXPECT_TRUE(log().Contains("Failed to m_GetJsonObjectFromString()"));
}

TEST_F(AccountLimit, ATerminatedClientCannotTell)
{
    PublishDocument(Document(Accounts(6), 0));
    SSOAPIUtil::SetClientToTerminated();
    EXPECT_EQ(SSOAPIClientUtil::GetNumberOfAccount(), -1);
    EXPECT_EQ(SSOAPIClientUtil::IsAddAccountAvailable("x"), -1);
    EXPECT_EQ(log().Count("SSO_API_CHECK_NULL_RETURN. Return (pSSDataInstance is null)"), 2);
    sso_accounts_info info;
    EXPECT_FALSE(SSOAPIClientUtil::GetAccountsInfo(info));
    SSOAPIUtil::SetClientToAlive();
}

// --------------------------------------------------------------- JSON views

using JsonViews = ssotest::RootTest;

Json::Value Parse(const char *text)
{
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errors;
    std::unique_ptr<Json::CharReader> r(b.newCharReader());
    EXPECT_TRUE(r->parse(text, text + strlen(text), &v, &errors)) << errors;
    return v;
}

TEST_F(JsonViews, AnEmptyRecordGivesEveryLoginInfoValueEmpty)
{
    sso_accounts_info info;
    char *out = nullptr;
    ASSERT_TRUE(SSOAPIClientUtil::GetJsonStringLoginInfo(info, &out));
    ASSERT_NE(out, nullptr);
    Json::Value v = Parse(out);
    EXPECT_EQ(v.getMemberNames(),
              (std::vector<std::string>{"alpha2CountryCode", "displayName", "guid", "loginid",
                                        "password", "uid", "userCountryCode", "userDeviceID",
                                        "userIcon", "userPinSet"}));
    for (const auto &name : v.getMemberNames())
        EXPECT_EQ(v[name].asString(), "") << name;
    free(out);
}

TEST_F(JsonViews, LoginInfoCarriesTheRecordAndWritesUtf8AsItIs)
{
    sso_accounts_info info;
    info.strLoginID = "kim@example.com";
    info.strLoginGUID = "G1";
    info.strLoginUID = "U1";
    info.strUserIconPath = "/icon.png";
    info.strUserPinSet = "Y";
    info.userCountryCode = "KOR";
    info.alpha2CountryCode = "KR";
    info.displayName = "김철수";
    info.userDeviceID = "D1";
    info.strLoginPassword = "never";
    char *out = nullptr;
    ASSERT_TRUE(SSOAPIClientUtil::GetJsonStringLoginInfo(info, &out));
    std::string text(out);
    EXPECT_NE(text.find("\"displayName\" : \"김철수\""), std::string::npos) << text;
    Json::Value v = Parse(out);
    EXPECT_EQ(v["loginid"].asString(), "kim@example.com");
    EXPECT_EQ(v["password"].asString(), "");
    EXPECT_EQ(v["guid"].asString(), "G1");
    EXPECT_EQ(v["uid"].asString(), "U1");
    EXPECT_EQ(v["userIcon"].asString(), "/icon.png");
    EXPECT_EQ(v["userPinSet"].asString(), "Y");
    EXPECT_EQ(v["userCountryCode"].asString(), "KOR");
    EXPECT_EQ(v["alpha2CountryCode"].asString(), "KR");
    EXPECT_EQ(v["userDeviceID"].asString(), "D1");
    free(out);
}

TEST_F(JsonViews, UserInfoCarriesEightFieldsAndTheDevicesCountryCodes)
{
    vconf_set_str("db/sso/sa_user_country_code", "US");
    vconf_set_str("db/sso/sa_user_country_code_3alpha", "USA");
    sso_user_info user;
    SSOAPIRecords::SetUserInfo(user, "id1", "Ms", "Ann", "Lee", "19800101", "12345", "555", "Y",
                               "SECRET-AUTH");
    char *out = nullptr;
    ASSERT_TRUE(SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode(user, &out));
    Json::Value v = Parse(out);
    EXPECT_EQ(v["user_id"].asString(), "id1");
    EXPECT_EQ(v["prefix_name"].asString(), "Ms");
    EXPECT_EQ(v["first_name"].asString(), "Ann");
    EXPECT_EQ(v["last_name"].asString(), "Lee");
    EXPECT_EQ(v["birth_date"].asString(), "19800101");
    EXPECT_EQ(v["zip_code"].asString(), "12345");
    EXPECT_EQ(v["mobile_num"].asString(), "555");
    EXPECT_EQ(v["receive_email"].asString(), "Y");
    EXPECT_EQ(v["alpha2CountryCode"].asString(), "US");
    EXPECT_EQ(v["userCountryCode"].asString(), "USA");
    EXPECT_FALSE(v.isMember("auth"));
    EXPECT_EQ(std::string(out).find("SECRET-AUTH"), std::string::npos);
    EXPECT_FALSE(log().Contains("[DEVEL] *ppUserInfoBuffer"));
    free(out);
    root_.CreateDeviceFile("/etc/debug");
    ASSERT_TRUE(SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode(user, &out));
    EXPECT_TRUE(log().Contains("[DEVEL] *ppUserInfoBuffer: {"));
    free(out);
}

TEST_F(JsonViews, TheDisplayNameObjectIsReadByKey)
{
    std::string out;
    EXPECT_FALSE(SSOAPIClientUtil::GetUserDisplayName("displayName", out));
    vconf_set_str("db/sso/display_name", "{\"displayName\":\"Ann Lee\",\"firstName\":\"Ann\"}");
    EXPECT_TRUE(SSOAPIClientUtil::GetUserDisplayName("firstName", out));
    EXPECT_EQ(out, "Ann");
    vconf_set_str("db/sso/display_name", "not json");
    EXPECT_FALSE(SSOAPIClientUtil::GetUserDisplayName("firstName", out));
}

} // namespace
