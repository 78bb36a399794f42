// The request families as the simulated state decides them: tokens and codes
// issued to the signed-in account and journaled, account requests that act on
// the accounts and change what is published, profile and group queries
// answered from the account, whitelist tokens written into the application
// data, refusals with result codes, and scripted behaviour still winning.
#include <json/reader.h>
#include <json/value.h>
#include <ss_manager.h>
#include <sso_deployment.h>
#include <vconf.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "json_text.h"
#include "sim_fixture.h"
#include "sso_simulator_harness.h"

namespace {

using simtest::Ana;
using simtest::Kim;

using simtest::Int32Arg;
using simtest::RecordedCall;
using simtest::Reply;
using simtest::RequestValues;
using simtest::SimTest;
using simtest::StringArg;
using ssotest::AccountSpec;
using ssotest::Has;
using ssotest::ParseJson;

constexpr const char *kApp = "org.example.tv.app";
constexpr const char *kSecret = "app-secret-1";
constexpr const char *kNoValue = "HAS_NO_VALUE";
const std::string kBase64Url = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// An opaque token: prefix, then 24 random bytes in unpadded base64url.
bool LooksLikeToken(const std::string &value, const std::string &prefix)
{
    return value.size() == prefix.size() + 32 && value.compare(0, prefix.size(), prefix) == 0 &&
           value.find_first_not_of(kBase64Url, prefix.size()) == std::string::npos;
}

std::optional<int> VconfInt(const char *key)
{
    int value = 0;
    if (vconf_get_int(key, &value) != VCONF_OK)
        return std::nullopt;
    return value;
}

std::string VconfStr(const char *key)
{
    char *value = vconf_get_str(key);
    std::string out = value ? value : "";
    free(value);
    return out;
}

// A secure-storage item's text as a reader on the device gets it.
std::optional<std::string> ReadItem(const std::string &item)
{
    ss_credential_t credential{};
    const ss_uuid_t uuid = {{SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1}};
    EXPECT_EQ(SS_ERROR_NONE,
              ss_init_credential(&credential, SSO_DEPLOY_SS_MODULE_ID, &uuid, SS_FLAG_INIT));
    unsigned char *buffer = nullptr;
    size_t length = 0;
    if (ss_read(&buffer, &length, nullptr, nullptr, item.c_str(), &credential, SS_FLAG_READ) !=
        SS_ERROR_NONE)
        return std::nullopt;
    std::string text(reinterpret_cast<const char *>(buffer), length);
    ss_free_buffer(buffer);
    return text;
}

// Whole years since a YYYYMMDD date, as of today.
int YearsSince(const std::string &date)
{
    const std::time_t now = std::time(nullptr);
    std::tm today{};
    localtime_r(&now, &today);
    const int year = std::stoi(date.substr(0, 4));
    const int month = std::stoi(date.substr(4, 2));
    const int day = std::stoi(date.substr(6, 2));
    int age = today.tm_year + 1900 - year;
    if (today.tm_mon + 1 < month || (today.tm_mon + 1 == month && today.tm_mday < day))
        --age;
    return age;
}

class SimFamilies : public SimTest {
protected:
    // A request with the given text fields (after the object name) and flag
    // fields, in the order the server signature places them. Expects it to
    // be accepted and returns its delivered result.
    RecordedCall Send(const std::string &method, const std::string &method_call,
                      const std::vector<std::string> &strings,
                      const std::vector<int32_t> &flags = {})
    {
        RequestValues v;
        v.request_id = ++request_id_;
        const std::size_t before = client_.Calls().size();
        Reply r = client_.Request(method, Build(method, method_call, strings, flags, v));
        EXPECT_TRUE(r.ok()) << method << ": " << r.error_name << " " << r.error_message;
        EXPECT_EQ(1, r.ok() ? r.Int() : -99) << method;
        if (!client_.WaitForCalls(before + 1)) {
            ADD_FAILURE() << "no result for " << method;
            return RecordedCall{};
        }
        const RecordedCall call = client_.Calls().at(before);
        EXPECT_EQ(method_call, call.method);
        EXPECT_EQ(v.request_id, simtest::Int64Arg(call, "request_id"));
        return call;
    }

    GVariant *Build(const std::string &method, const std::string &method_call,
                    const std::vector<std::string> &strings, const std::vector<int32_t> &flags,
                    const RequestValues &v)
    {
        GDBusMethodInfo *info =
            g_dbus_interface_info_lookup_method(simtest::ServerInterface(), method.c_str());
        EXPECT_NE(nullptr, info) << method;
        const std::string sig = simtest::InSignature(info);
        const std::size_t n = sig.size();
        const std::size_t callback = sig.find('x');
        std::vector<GVariant *> children;
        std::size_t next_string = 0;
        std::size_t next_flag = 0;
        for (std::size_t i = 0; i < n; ++i) {
            if (i == 0)
                children.push_back(g_variant_new_string(client_.object_name().c_str()));
            else if (i == callback)
                children.push_back(g_variant_new_int64(v.callback));
            else if (i == n - 4)
                children.push_back(g_variant_new_int64(v.request_id));
            else if (i == n - 3)
                children.push_back(g_variant_new_int64(v.user_data));
            else if (i == n - 2)
                children.push_back(g_variant_new_int32(v.ae_index));
            else if (i == n - 1)
                children.push_back(g_variant_new_string(method_call.c_str()));
            else if (sig[i] == 's')
                children.push_back(g_variant_new_string(
                    next_string < strings.size() ? strings[next_string++].c_str() : ""));
            else
                children.push_back(
                    g_variant_new_int32(next_flag < flags.size() ? flags[next_flag++] : 0));
        }
        EXPECT_EQ(strings.size(), next_string) << method << ": too many text fields given";
        return g_variant_new_tuple(children.data(), children.size());
    }

    // The (i) answer of a synchronous control.
    int32_t Sync(const char *method)
    {
        Reply r = client_.Request(method, g_variant_new("(sxs)", client_.object_name().c_str(),
                                                        static_cast<gint64>(1), method));
        EXPECT_TRUE(r.ok()) << method << ": " << r.error_name;
        return r.ok() ? r.Int() : -99;
    }

    Json::Value Issued() { return ParseJson(sim_.Issued())["issued"]; }
    std::string SignedIn() { return ParseJson(sim_.State())["signed_in"].asString(); }
    int Version() { return ParseJson(sim_.State())["version"].asInt(); }
    // The published document, as the data read answers it.
    Json::Value Published()
    {
        return ParseJson(client_.RequestSimple("sso_get_public_account_data").String());
    }
    std::string PublishedActiveGuid()
    {
        const Json::Value doc = Published();
        return doc.isMember("active_account") ? doc["active_account"]["account_guid"].asString()
                                              : "";
    }

    RecordedCall AccessToken(const std::string &app = kApp, const std::string &secret = kSecret,
                             const std::string &scope = kNoValue)
    {
        return Send("sso_request_access_token", "sso_request_access_token", {app, secret, scope});
    }

    static AccountSpec Plain(const std::string &login_id)
    {
        AccountSpec s;
        s.login_id = login_id;
        return s;
    }

    std::string kim_ = "0123456789ABCDEF0123456789ABCDEF";
    std::string ana_ = "FEDCBA9876543210FEDCBA9876543210";
    int64_t request_id_ = 100;
};

// ================================================================ tokens

TEST_F(SimFamilies, AnAccessTokenIsIssuedToTheSignedInAccountAndJournaled)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const RecordedCall call = AccessToken(kApp, kSecret, "profile.read");
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const std::string token = StringArg(call, "access_token");
    EXPECT_TRUE(LooksLikeToken(token, "AT.")) << token;

    const Json::Value issued = Issued();
    ASSERT_EQ(1u, issued.size());
    const Json::Value &e = issued[0];
    EXPECT_EQ(1, e["sequence"].asInt());
    EXPECT_EQ("access_token", e["kind"].asString());
    EXPECT_EQ(token, e["value"].asString());
    EXPECT_EQ("sso_request_access_token", e["method"].asString());
    EXPECT_EQ(kApp, e["app_id"].asString());
    EXPECT_EQ(kim_, e["account_guid"].asString());
    EXPECT_EQ("profile.read", e["scope"].asString());
    EXPECT_FALSE(e["scripted"].asBool());
    EXPECT_FALSE(e["revoked"].asBool());
    // A secret: the log never shows it.
    EXPECT_FALSE(log().Contains(token));
}

TEST_F(SimFamilies, AnAbsentScopeIsJournaledEmptyAndEveryTokenIsNew)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const std::string first = StringArg(AccessToken(), "access_token");
    const std::string second = StringArg(AccessToken(), "access_token");
    EXPECT_NE(first, second);
    const Json::Value issued = Issued();
    ASSERT_EQ(2u, issued.size());
    EXPECT_EQ("", issued[0]["scope"].asString());
    EXPECT_EQ(first, issued[0]["value"].asString());
    EXPECT_EQ(second, issued[1]["value"].asString());
    EXPECT_EQ(2, issued[1]["sequence"].asInt());
}

TEST_F(SimFamilies, WithNobodySignedInATokenIsRefusedAndNothingIssued)
{
    sim_.AddAccount(Kim());
    const RecordedCall call = AccessToken();
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(call, "result"));
    EXPECT_EQ("", StringArg(call, "access_token"));
    EXPECT_EQ(0u, Issued().size());
}

TEST_F(SimFamilies, ARegisteredClientMustPresentItsSecret)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    sim_.RegisterClient(kApp, "the-right-secret");
    EXPECT_EQ(ssosim::kResultInvalidClient,
              Int32Arg(AccessToken(kApp, "a-wrong-secret"), "result"));
    EXPECT_EQ(0, Int32Arg(AccessToken(kApp, "the-right-secret"), "result"));
    // Other app ids take any secret, but never an empty one.
    EXPECT_EQ(0, Int32Arg(AccessToken("org.example.other", "anything"), "result"));
    EXPECT_EQ(ssosim::kResultInvalidClient,
              Int32Arg(AccessToken("org.example.other", ""), "result"));
    EXPECT_EQ(ssosim::kResultInvalidRequest, Int32Arg(AccessToken("", kSecret), "result"));
    EXPECT_EQ(2u, Issued().size());
    EXPECT_THROW(sim_.RegisterClient("", "x"), std::runtime_error);
}

TEST_F(SimFamilies, AnAuthCodeBuysOneTokenForItsOwnApp)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const std::string code = StringArg(
        Send("sso_request_auth_code", "sso_request_auth_code", {kApp, kNoValue}), "auth_code");
    auto exchange = [&](const std::string &app) {
        // Delivered on the access-token method, as the library asks.
        return Send("sso_request_access_token_using_authcode", "sso_request_access_token",
                    {app, kSecret, code, "tv.read"});
    };
    EXPECT_EQ(ssosim::kResultInvalidToken, Int32Arg(exchange("org.example.thief"), "result"));
    const RecordedCall ok = exchange(kApp);
    EXPECT_EQ(0, Int32Arg(ok, "result"));
    EXPECT_TRUE(LooksLikeToken(StringArg(ok, "access_token"), "AT."));
    // Redeemed: the same code buys nothing more.
    EXPECT_EQ(ssosim::kResultInvalidToken, Int32Arg(exchange(kApp), "result"));

    const Json::Value issued = Issued();
    ASSERT_EQ(2u, issued.size());
    EXPECT_EQ("auth_code", issued[0]["kind"].asString());
    EXPECT_TRUE(issued[0]["redeemed"].asBool());
    EXPECT_EQ("sso_request_access_token_using_authcode", issued[1]["method"].asString());
    EXPECT_EQ(StringArg(ok, "access_token"), issued[1]["value"].asString());
    EXPECT_EQ(code, issued[1]["extra"]["auth_code"].asString());
    EXPECT_EQ("tv.read", issued[1]["scope"].asString());
    // A code from elsewhere is taken on trust.
    EXPECT_EQ(0, Int32Arg(Send("sso_request_access_token_using_authcode",
                               "sso_request_access_token", {kApp, kSecret, "AC.foreign", kNoValue}),
                          "result"));
}

// ================================================================ auth codes

struct CodeCase {
    const char *method;
    const char *method_call;
    std::vector<std::string> fields; // after the object name
};

TEST_F(SimFamilies, EveryAuthCodeRequestIssuesACodeToTheSignedInAccount)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const std::vector<CodeCase> cases = {
        {"sso_request_auth_code", "sso_request_auth_code", {kApp, "s1"}},
        {"sso_request_user_authcode", "sso_request_service_auth_code", {kApp, "s2", "user"}},
        {"sso_request_auth_code_for_effortless_login",
         "sso_request_auth_code_for_effortless_login",
         {kApp, "s3"}},
        {"sso_request_authcode_for_other_device",
         "sso_request_authcode_for_other_device",
         {"DSC-123456"}},
        {"sso_request_user_authcode_with_dsc",
         "sso_request_user_authcode_with_dsc",
         {kApp, "s5", "DSC-1", "code"}},
        {"sso_request_user_authcode_with_challenge",
         "sso_request_user_authcode_with_challenge",
         {kApp, "s6", "DSC-2", "code", "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"}},
        {"sso_request_user_authcode_with_verifier",
         "sso_request_user_authcode_with_verifier",
         {kApp, "s7", kNoValue, kNoValue, "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"}},
    };
    std::vector<std::string> delivered;
    for (const auto &c : cases) {
        const RecordedCall call = Send(c.method, c.method_call, c.fields);
        EXPECT_EQ(0, Int32Arg(call, "result")) << c.method;
        delivered.push_back(StringArg(call, "auth_code"));
        EXPECT_TRUE(LooksLikeToken(delivered.back(), "AC."))
            << c.method << ": " << delivered.back();
    }
    const Json::Value issued = Issued();
    ASSERT_EQ(cases.size(), issued.size());
    for (Json::ArrayIndex i = 0; i < issued.size(); ++i) {
        const Json::Value &e = issued[i];
        EXPECT_EQ("auth_code", e["kind"].asString());
        EXPECT_EQ(cases[i].method, e["method"].asString());
        EXPECT_EQ(delivered[i], e["value"].asString()) << cases[i].method;
        EXPECT_EQ(kim_, e["account_guid"].asString()) << cases[i].method;
    }
    EXPECT_EQ(kApp, issued[0]["app_id"].asString());
    EXPECT_EQ("s1", issued[0]["scope"].asString());
    EXPECT_EQ("user", issued[1]["extra"]["code_for"].asString());
    EXPECT_EQ("", issued[3]["app_id"].asString());
    EXPECT_EQ("DSC-123456", issued[3]["extra"]["dsc"].asString());
    EXPECT_EQ("DSC-1", issued[4]["extra"]["dsc"].asString());
    EXPECT_EQ("code", issued[4]["extra"]["response_type"].asString());
    EXPECT_EQ(cases[5].fields[4], issued[5]["extra"]["code_challenge"].asString());
    EXPECT_EQ(cases[6].fields[4], issued[6]["extra"]["code_verifier"].asString());
    EXPECT_EQ("", issued[6]["extra"]["dsc"].asString());
}

TEST_F(SimFamilies, ADeviceCodeNeedsNobodySignedInAUserCodeDoes)
{
    const RecordedCall device = Send("sso_request_device_authcode", "sso_request_service_auth_code",
                                     {kApp, kNoValue, "device"});
    EXPECT_EQ(0, Int32Arg(device, "result"));
    EXPECT_TRUE(LooksLikeToken(StringArg(device, "auth_code"), "AC."));
    const RecordedCall user = Send("sso_request_user_authcode", "sso_request_service_auth_code",
                                   {kApp, kNoValue, "user"});
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(user, "result"));
    EXPECT_EQ("", StringArg(user, "auth_code"));
    const Json::Value issued = Issued();
    ASSERT_EQ(1u, issued.size());
    EXPECT_EQ("", issued[0]["account_guid"].asString());
    EXPECT_EQ("device", issued[0]["extra"]["code_for"].asString());
    for (const char *m : {"sso_request_auth_code", "sso_request_auth_code_for_effortless_login"})
        EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(Send(m, m, {kApp, kNoValue}), "result"))
            << m;
}

TEST_F(SimFamilies, AnIdAndPasswordCodeChecksTheNamedAccount)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn(ana_);
    auto request = [&](const std::string &id, const std::string &password) {
        return Send("sso_request_authcode_with_ID_PWD", "sso_request_authcode_with_ID_PWD",
                    {kApp, id, password, kNoValue});
    };
    const RecordedCall ok = request("kim@example.com", "kim-secret");
    EXPECT_EQ(0, Int32Arg(ok, "result"));
    const RecordedCall wrong = request("kim@example.com", "ana-secret");
    EXPECT_EQ(ssosim::kResultWrongPassword, Int32Arg(wrong, "result"));
    EXPECT_EQ("", StringArg(wrong, "auth_code"));
    EXPECT_EQ(ssosim::kResultWrongPassword, Int32Arg(request("kim@example.com", ""), "result"));
    EXPECT_EQ(ssosim::kResultNoSuchAccount, Int32Arg(request("nobody@example.com", "x"), "result"));
    const Json::Value issued = Issued();
    ASSERT_EQ(1u, issued.size());
    // For the named account, not the signed-in one; and nobody is switched.
    EXPECT_EQ(kim_, issued[0]["account_guid"].asString());
    EXPECT_EQ(StringArg(ok, "auth_code"), issued[0]["value"].asString());
    EXPECT_EQ(ana_, SignedIn());
    // The password is never logged.
    EXPECT_FALSE(log().Contains("kim-secret"));
}

// ================================================================ token generation

TEST_F(SimFamilies, GeneratingWithIdAndPasswordAddsAndSignsInANewAccount)
{
    const int version = Version();
    const RecordedCall call =
        Send("sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD",
             {"new@example.com", "pw-1"}, {1});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const Json::Value response = ParseJson(StringArg(call, "response_data"));
    EXPECT_EQ("new@example.com", response["account_id"].asString());
    EXPECT_TRUE(response["added"].asBool());
    EXPECT_TRUE(response["signed_in"].asBool());
    EXPECT_EQ(1, response["delete_flag"].asInt());
    const std::string guid = response["account_guid"].asString();
    EXPECT_EQ(32u, guid.size());

    // Registered with that password, signed in, and published.
    const Json::Value accounts = ParseJson(sim_.Accounts())["accounts"];
    ASSERT_EQ(1u, accounts.size());
    EXPECT_EQ("pw-1", accounts[0]["password"].asString());
    EXPECT_EQ(guid, SignedIn());
    EXPECT_EQ(guid, PublishedActiveGuid());
    EXPECT_EQ(std::optional<int>(1), VconfInt("db/sso/login_status"));
    EXPECT_GT(Version(), version);
}

TEST_F(SimFamilies, GeneratingWithAnAuthCodeSignsInAKnownAccountResultOnly)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn(ana_);
    // (authcode, userid, dsc, cb, use_notification): the result carries no text.
    const RecordedCall call =
        Send("sso_generate_token_with_authcode_dsc", "sso_generate_token_with_authcode_dsc",
             {"AC.from-elsewhere", "kim@example.com", kNoValue}, {1});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    EXPECT_EQ(kim_, SignedIn());
    EXPECT_EQ(kim_, PublishedActiveGuid());
    EXPECT_EQ(2u, ParseJson(sim_.Accounts())["accounts"].size());
    // Switched from Ana.
    EXPECT_EQ(ana_, VconfStr("memory/sso/prev_login_guid"));

    // (userid, authcode, dsc, delete_flag): the new user is added.
    const RecordedCall flagged = Send("sso_generate_token_with_authcode_dsc_deleteFlag",
                                      "sso_generate_token_with_authcode_dsc_deleteFlag",
                                      {"lee@example.com", "AC.x", "DSC-9"}, {0});
    EXPECT_EQ(0, Int32Arg(flagged, "result"));
    const Json::Value response = ParseJson(StringArg(flagged, "response_data"));
    EXPECT_EQ("lee@example.com", response["account_id"].asString());
    EXPECT_EQ(response["account_guid"].asString(), SignedIn());
    EXPECT_EQ(3u, ParseJson(sim_.Accounts())["accounts"].size());
}

TEST_F(SimFamilies, GeneratingRefusesAWrongPasswordAndASeventhAccount)
{
    sim_.AddAccount(Kim());
    const RecordedCall wrong =
        Send("sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD",
             {"kim@example.com", "not-it"}, {0});
    EXPECT_EQ(ssosim::kResultWrongPassword, Int32Arg(wrong, "result"));
    EXPECT_EQ("", StringArg(wrong, "response_data"));
    EXPECT_EQ("", SignedIn());
    EXPECT_EQ(0, Int32Arg(Send("sso_generate_token_with_ID_PWD", "sso_generate_token_with_ID_PWD",
                               {"kim@example.com", "kim-secret"}, {0}),
                          "result"));
    EXPECT_EQ(kim_, SignedIn());

    for (int i = 2; i <= 6; ++i)
        sim_.AddAccount(Plain("user" + std::to_string(i) + "@example.com"));
    const int version = Version();
    const RecordedCall full = Send("sso_generate_token_with_authcode_dsc_deleteFlag",
                                   "sso_generate_token_with_authcode_dsc_deleteFlag",
                                   {"seventh@example.com", "AC.x", kNoValue}, {1});
    EXPECT_EQ(ssosim::kResultAccountLimit, Int32Arg(full, "result"));
    EXPECT_EQ(6u, ParseJson(sim_.Accounts())["accounts"].size());
    EXPECT_EQ(kim_, SignedIn());
    EXPECT_EQ(version, Version()) << "a refusal published something";
    EXPECT_EQ(ssosim::kResultInvalidRequest,
              Int32Arg(Send("sso_generate_token_with_authcode_dsc",
                            "sso_generate_token_with_authcode_dsc", {"AC.x", "a|b", kNoValue}, {1}),
                       "result"));
}

// ================================================================ account operations

TEST_F(SimFamilies, RegisteringAddsTheAccountAndOnAlsoSignsItIn)
{
    auto reg = [&](const std::string &id, const char *perform_login) {
        return Send("sso_register_account", "sso_register_account",
                    {id, "AC.code", "DSC-1", perform_login});
    };
    const RecordedCall off = reg("first@example.com", "off");
    EXPECT_EQ(0, Int32Arg(off, "result"));
    const Json::Value r1 = ParseJson(StringArg(off, "response_data"));
    EXPECT_EQ("first@example.com", r1["account_id"].asString());
    EXPECT_FALSE(r1["signed_in"].asBool());
    EXPECT_EQ("", SignedIn());
    EXPECT_EQ(1, Published()["account_count"].asInt());

    const RecordedCall on = reg("second@example.com", "on");
    EXPECT_EQ(0, Int32Arg(on, "result"));
    const std::string guid = ParseJson(StringArg(on, "response_data"))["account_guid"].asString();
    EXPECT_EQ(guid, SignedIn());
    EXPECT_EQ(guid, PublishedActiveGuid());
    EXPECT_EQ(2, Published()["account_count"].asInt());

    EXPECT_EQ(ssosim::kResultAccountExists, Int32Arg(reg("first@example.com", "on"), "result"));
    EXPECT_EQ(ssosim::kResultInvalidRequest, Int32Arg(reg("", "on"), "result"));
    EXPECT_EQ(guid, SignedIn());
    EXPECT_EQ(2u, ParseJson(sim_.Accounts())["accounts"].size());
}

TEST_F(SimFamilies, LogoutSignsTheAccountOut)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const RecordedCall call = Send("sso_perform_logout", "sso_perform_logout", {kNoValue});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const Json::Value response = ParseJson(StringArg(call, "response_data"));
    EXPECT_EQ(kim_, response["account_guid"].asString());
    EXPECT_EQ("kim@example.com", response["account_id"].asString());
    EXPECT_EQ("", SignedIn());
    EXPECT_EQ("", PublishedActiveGuid());
    EXPECT_EQ(std::optional<int>(0), VconfInt("db/sso/login_status"));
    EXPECT_EQ(kim_, VconfStr("memory/sso/prev_login_guid"));
    const RecordedCall again = Send("sso_perform_logout", "sso_perform_logout", {kNoValue});
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(again, "result"));
    EXPECT_EQ("", StringArg(again, "response_data"));
}

TEST_F(SimFamilies, VerifyingAPasswordChecksTheSignedInAccount)
{
    sim_.AddAccount(Kim());
    auto verify = [&](const std::string &pw) {
        return Send("sso_verify_password", "sso_verify_password", {pw});
    };
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(verify("kim-secret"), "result"));
    sim_.SignIn(kim_);
    const RecordedCall ok = verify("kim-secret");
    EXPECT_EQ(0, Int32Arg(ok, "result"));
    EXPECT_TRUE(ParseJson(StringArg(ok, "response_data"))["verified"].asBool());
    const RecordedCall wrong = verify("guess");
    EXPECT_EQ(ssosim::kResultWrongPassword, Int32Arg(wrong, "result"));
    EXPECT_EQ("", StringArg(wrong, "response_data"));
}

TEST_F(SimFamilies, TheAccountListShowsEveryAccountWithoutSecrets)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn(ana_);
    const RecordedCall call = Send("sso_request_account_list", "sso_request_account_list", {});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const std::string text = StringArg(call, "response_data");
    const Json::Value list = ParseJson(text);
    EXPECT_EQ(2, list["account_count"].asInt());
    ASSERT_EQ(2u, list["list"].size());
    EXPECT_EQ("kim@example.com", list["list"][0]["account_id"].asString());
    EXPECT_EQ(kim_, list["list"][0]["account_guid"].asString());
    EXPECT_FALSE(list["list"][0]["active"].asBool());
    EXPECT_TRUE(list["list"][1]["active"].asBool());
    EXPECT_EQ("Ana Silva", list["list"][1]["displayName"].asString());
    for (const char *secret : {"kim-secret", "ana-secret", "UT-kim-token", "UT-ana-token"})
        EXPECT_FALSE(Has(text, secret)) << secret;

    // The dynamic list needs nobody signed in.
    sim_.SignOut();
    const RecordedCall dynamic =
        Send("sso_get_dynamic_my_account_list", "sso_get_dynamic_my_account_list", {});
    EXPECT_EQ(0, Int32Arg(dynamic, "result"));
    EXPECT_EQ(2u, ParseJson(StringArg(dynamic, "data"))["list"].size());
}

TEST_F(SimFamilies, SettingAPasswordChangesWhatVerifies)
{
    sim_.AddAccount(Kim());
    const RecordedCall set =
        Send("sso_set_passfw", "sso_set_passfw", {"kim@example.com", "brand-new-pw"});
    EXPECT_EQ(0, Int32Arg(set, "result"));
    EXPECT_TRUE(ParseJson(StringArg(set, "data"))["password_set"].asBool());
    EXPECT_EQ("brand-new-pw", ParseJson(sim_.Accounts())["accounts"][0]["password"].asString());
    sim_.SignIn(kim_);
    EXPECT_EQ(0, Int32Arg(Send("sso_verify_password", "sso_verify_password", {"brand-new-pw"}),
                          "result"));
    EXPECT_EQ(
        ssosim::kResultWrongPassword,
        Int32Arg(Send("sso_verify_password", "sso_verify_password", {"kim-secret"}), "result"));
    EXPECT_EQ(
        ssosim::kResultNoSuchAccount,
        Int32Arg(Send("sso_set_passfw", "sso_set_passfw", {"nobody@example.com", "x"}), "result"));
    EXPECT_EQ(
        ssosim::kResultInvalidRequest,
        Int32Arg(Send("sso_set_passfw", "sso_set_passfw", {"kim@example.com", ""}), "result"));
    EXPECT_FALSE(log().Contains("brand-new-pw"));
}

TEST_F(SimFamilies, APasswordResetNeedsARegisteredAddress)
{
    sim_.AddAccount(Kim());
    const RecordedCall ok =
        Send("sso_request_reset_passwd", "sso_request_reset_passwd", {"kim@example.com"});
    EXPECT_EQ(0, Int32Arg(ok, "result"));
    EXPECT_EQ("kim@example.com", ParseJson(StringArg(ok, "response_data"))["email"].asString());
    EXPECT_EQ(ssosim::kResultNoSuchAccount,
              Int32Arg(Send("sso_request_reset_passwd", "sso_request_reset_passwd",
                            {"stranger@example.com"}),
                       "result"));
    // The password stays until someone sets a new one.
    EXPECT_EQ("kim-secret", ParseJson(sim_.Accounts())["accounts"][0]["password"].asString());
}

TEST_F(SimFamilies, SwitchingChangesTheActiveAccountAndWhatIsPublished)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn(kim_);

    const RecordedCall by_id =
        Send("sso_switch_account", "sso_switch_account", {"ana@example.org", kNoValue});
    EXPECT_EQ(0, Int32Arg(by_id, "result"));
    const Json::Value r = ParseJson(StringArg(by_id, "response_data"));
    EXPECT_EQ(ana_, r["account_guid"].asString());
    EXPECT_EQ(kim_, r["previous_account_guid"].asString());
    EXPECT_EQ(ana_, SignedIn());
    EXPECT_EQ(ana_, PublishedActiveGuid());
    EXPECT_EQ(kim_, VconfStr("memory/sso/prev_login_guid"));

    EXPECT_EQ(0, Int32Arg(Send("sso_switch_account_by_guid", "sso_switch_account_by_guid",
                               {kim_, kNoValue}),
                          "result"));
    EXPECT_EQ(kim_, SignedIn());
    // By GUID takes a GUID, by id an id.
    EXPECT_EQ(ssosim::kResultNoSuchAccount,
              Int32Arg(Send("sso_switch_account_by_guid", "sso_switch_account_by_guid",
                            {"ana@example.org", kNoValue}),
                       "result"));
    EXPECT_EQ(
        ssosim::kResultNoSuchAccount,
        Int32Arg(Send("sso_switch_account", "sso_switch_account", {"nobody@example.com", kNoValue}),
                 "result"));
    EXPECT_EQ(kim_, SignedIn());

    // With a user token: the account's own one only.
    EXPECT_EQ(ssosim::kResultInvalidToken, Int32Arg(Send("sso_switch_account_with_usertoken",
                                                         "sso_switch_account_with_usertoken",
                                                         {"ana@example.org", "UT-kim-token"}),
                                                    "result"));
    EXPECT_EQ(kim_, SignedIn());
    EXPECT_EQ(
        0, Int32Arg(Send("sso_switch_account_with_usertoken", "sso_switch_account_with_usertoken",
                         {"ana@example.org", "UT-ana-token"}),
                    "result"));
    EXPECT_EQ(ana_, SignedIn());

    // Switching to the active account changes nothing.
    const int version = Version();
    EXPECT_EQ(
        0, Int32Arg(Send("sso_switch_account", "sso_switch_account", {"ana@example.org", kNoValue}),
                    "result"));
    EXPECT_EQ(version, Version());
}

TEST_F(SimFamilies, SwitchingIsAvailableWithASecondAccount)
{
    EXPECT_EQ(0, Sync("sso_is_account_switching_available"));
    sim_.AddAccount(Kim());
    EXPECT_EQ(0, Sync("sso_is_account_switching_available"));
    sim_.AddAccount(Ana());
    EXPECT_EQ(1, Sync("sso_is_account_switching_available"));
    sim_.RemoveAccount(ana_);
    EXPECT_EQ(0, Sync("sso_is_account_switching_available"));
}

TEST_F(SimFamilies, TheCurrentAccountNotificationRepublishes)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const int version = Version();
    EXPECT_EQ(1, Sync("sso_request_current_account_noti"));
    EXPECT_EQ(version + 1, Version());
    EXPECT_EQ(kim_, PublishedActiveGuid());
    EXPECT_EQ(std::optional<int>(1), VconfInt("db/sso/login_status"));
}

TEST_F(SimFamilies, ResetRevokesEveryIssuedTokenButKeepsTheAccounts)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const std::string token = StringArg(AccessToken(), "access_token");
    EXPECT_EQ(
        0, Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group", {kApp, token}),
                    "result"));
    EXPECT_EQ(1, Sync("sso_reset"));
    EXPECT_TRUE(Issued()[0]["revoked"].asBool());
    EXPECT_EQ(
        ssosim::kResultInvalidToken,
        Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group", {kApp, token}),
                 "result"));
    EXPECT_EQ(kim_, SignedIn());
    sim_.ClearIssued();
    EXPECT_EQ(0u, Issued().size());
}

// ================================================================ profile and groups

TEST_F(SimFamilies, UserInfoAnswersFromTheSignedInAccount)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const RecordedCall info = Send("sso_get_user_info", "sso_get_user_info", {});
    EXPECT_EQ(0, Int32Arg(info, "result"));
    const std::vector<std::pair<const char *, const char *>> expected = {
        {"user_id", "4815162342"},
        {"prefix_name", "Dr"},
        {"first_name", "Jisoo"},
        {"last_name", "Kim"},
        {"birth_date", "19850317"},
        {"zip_code", "04524"},
        {"mobile_num", "+82-10-5550-0101"},
        {"receive_email", "Y"},
        {"auth", "UT-kim-token"},
    };
    for (const auto &[name, value] : expected)
        EXPECT_EQ(value, StringArg(info, name)) << name;

    const RecordedCall v4 = Send("sso_get_user_info_v4", "sso_get_user_info_v4", {});
    EXPECT_EQ(0, Int32Arg(v4, "result"));
    const Json::Value json = ParseJson(StringArg(v4, "response_data"));
    for (const auto &[name, value] : expected)
        EXPECT_EQ(value, json[name].asString()) << name;

    const RecordedCall identify =
        Send("sso_identify_current_user_info", "sso_identify_current_user_info", {});
    EXPECT_EQ("19850317", StringArg(identify, "birthday"));
    EXPECT_EQ(0u, StringArg(identify, "identify_url").find("https://"));

    const RecordedCall check =
        Send("sso_get_namecheck_auth_info", "sso_get_namecheck_auth_info", {});
    EXPECT_EQ(0, Int32Arg(check, "result"));
    EXPECT_EQ("19850317", StringArg(check, "birth_date"));
    EXPECT_EQ(std::to_string(YearsSince("19850317")), StringArg(check, "age"));
    EXPECT_EQ(0u, StringArg(check, "check_url").find("https://"));
}

TEST_F(SimFamilies, ProfileDefaultsAreFilledIn)
{
    AccountSpec s = Plain("plain@example.com");
    s.country = "DEU";
    sim_.SignIn(sim_.AddAccount(s));
    const RecordedCall info = Send("sso_get_user_info", "sso_get_user_info", {});
    EXPECT_EQ("19900101", StringArg(info, "birth_date"));
    EXPECT_EQ("10115", StringArg(info, "zip_code"));
    EXPECT_EQ("N", StringArg(info, "receive_email"));
    EXPECT_EQ("", StringArg(info, "prefix_name"));
    const Json::Value account = ParseJson(sim_.Accounts())["accounts"][0];
    EXPECT_EQ("FG-" + account["guid"].asString().substr(0, 16), account["family_group"].asString());
    // Malformed profile values are refused.
    AccountSpec bad = Plain("bad@example.com");
    bad.birth_date = "19901345";
    EXPECT_THROW(sim_.AddAccount(bad), std::runtime_error);
    bad.birth_date.reset();
    bad.receive_email = "maybe";
    EXPECT_THROW(sim_.AddAccount(bad), std::runtime_error);
}

TEST_F(SimFamilies, ProfileQueriesNeedSomeoneSignedIn)
{
    sim_.AddAccount(Kim());
    for (const char *m : {"sso_get_user_info", "sso_get_user_info_v4",
                          "sso_identify_current_user_info", "sso_get_namecheck_auth_info"}) {
        const RecordedCall call = Send(m, m, {});
        EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(call, "result")) << m;
        // Every text empty, none of the generic defaults.
        for (const auto &name : {"user_id", "first_name", "auth", "response_data", "birthday",
                                 "identify_url", "age", "check_url"}) {
            try {
                EXPECT_EQ("", StringArg(call, name)) << m << " " << name;
            } catch (const std::runtime_error &) {
                // not an argument of this method
            }
        }
    }
}

TEST_F(SimFamilies, TheFamilyGroupTakesATokenTheSimulatorIssued)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Plain("outsider@example.com"));
    sim_.AddAccount(Ana()); // same family group as Kim, registered later
    sim_.SignIn(kim_);
    const std::string token = StringArg(AccessToken(), "access_token");

    const RecordedCall group =
        Send("sso_get_user_family_group", "sso_get_user_family_group", {kApp, token});
    EXPECT_EQ(0, Int32Arg(group, "result"));
    const Json::Value g = ParseJson(StringArg(group, "family_group_data"));
    EXPECT_EQ("FG-KIM-HOUSE", g["groupId"].asString());
    EXPECT_EQ("Kim family", g["groupName"].asString());
    ASSERT_EQ(2u, g["members"].size());
    EXPECT_EQ("4815162342", g["members"][0]["userId"].asString());
    EXPECT_EQ("owner", g["members"][0]["role"].asString());
    EXPECT_EQ("1123581321", g["members"][1]["userId"].asString());
    EXPECT_EQ("member", g["members"][1]["role"].asString());

    // Not issued, issued to another app, or to another account: refused.
    EXPECT_EQ(ssosim::kResultInvalidToken,
              Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group",
                            {kApp, "AT.made-up"}),
                       "result"));
    EXPECT_EQ(ssosim::kResultInvalidToken,
              Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group",
                            {"org.example.other", token}),
                       "result"));
    sim_.SignIn(ana_);
    EXPECT_EQ(
        ssosim::kResultInvalidToken,
        Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group", {kApp, token}),
                 "result"));
    sim_.SignOut();
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(Send("sso_get_user_family_group",
                                                        "sso_get_user_family_group", {kApp, token}),
                                                   "result"));
}

TEST_F(SimFamilies, GroupUsersAreTheMembersOfTheSignedInAccountsGroup)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn(ana_);
    const std::string token = StringArg(AccessToken(), "access_token");
    const RecordedCall users =
        Send("sso_get_user_group_users", "sso_get_user_group_users", {kApp, token, "FG-KIM-HOUSE"});
    EXPECT_EQ(0, Int32Arg(users, "result"));
    const Json::Value u = ParseJson(StringArg(users, "group_users_data"));
    EXPECT_EQ("FG-KIM-HOUSE", u["groupId"].asString());
    ASSERT_EQ(2u, u["users"].size());
    EXPECT_EQ("kim@example.com", u["users"][0]["accountId"].asString());
    EXPECT_EQ(ssosim::kResultNoSuchGroup,
              Int32Arg(Send("sso_get_user_group_users", "sso_get_user_group_users",
                            {kApp, token, "FG-SOMEONE-ELSE"}),
                       "result"));
    EXPECT_EQ(ssosim::kResultInvalidToken,
              Int32Arg(Send("sso_get_user_group_users", "sso_get_user_group_users",
                            {kApp, "AT.nope", "FG-KIM-HOUSE"}),
                       "result"));
}

// ================================================================ whitelist

TEST_F(SimFamilies, AWhitelistTokenIsDeliveredAndStoredInTheApplicationData)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    const RecordedCall call =
        Send("sso_service_request_whitelist_accesstoken",
             "RESULT_sso_service_request_whitelist_accesstoken",
             {kApp, "org.example.tv.package", "3082034f30820237a003", kNoValue});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const std::string token = StringArg(call, "response");
    EXPECT_TRUE(LooksLikeToken(token, "AT.")) << token;

    // Written before the result went out, where the library reads it.
    const std::string key = std::string(ssotest::kSimWhitelistTokenKeyPrefix) + kApp;
    EXPECT_EQ("DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_org.example.tv.app", key);
    const auto item = ReadItem("SSO_PUBLICDATA_ID_org.example.tv.package");
    ASSERT_TRUE(item.has_value());
    EXPECT_EQ(token, ParseJson(*item)["data"][kim_][key].asString());
    Reply extracted = client_.Request("sso_get_extracted_application_data",
                                      g_variant_new("(sxssss)", client_.object_name().c_str(),
                                                    gint64(1), "sso_get_extracted_application_data",
                                                    "org.example.tv.package", kApp, key.c_str()));
    EXPECT_EQ(token, extracted.String());

    const Json::Value issued = Issued();
    ASSERT_EQ(1u, issued.size());
    EXPECT_EQ("whitelist_token", issued[0]["kind"].asString());
    EXPECT_EQ(token, issued[0]["value"].asString());
    EXPECT_EQ("org.example.tv.package", issued[0]["package"].asString());
    EXPECT_EQ(kim_, issued[0]["account_guid"].asString());
    EXPECT_FALSE(log().Contains(token));
    // It is an access token of that app, good for the family group.
    EXPECT_EQ(
        0, Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group", {kApp, token}),
                    "result"));
}

TEST_F(SimFamilies, RegisteredWhitelistPairsAreTheOnlyOnesServed)
{
    sim_.AddAccount(Kim());
    auto request = [&](const std::string &signature) {
        return Send("sso_service_request_whitelist_accesstoken",
                    "RESULT_sso_service_request_whitelist_accesstoken",
                    {kApp, "org.example.tv.package", signature, kNoValue});
    };
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(request("ANY"), "result"));
    sim_.SignIn(kim_);
    sim_.RegisterWhitelist("org.example.tv.package", "GOOD-SIGNATURE");
    const RecordedCall bad = request("BAD-SIGNATURE");
    EXPECT_EQ(ssosim::kResultNotWhitelisted, Int32Arg(bad, "result"));
    EXPECT_EQ("", StringArg(bad, "response"));
    EXPECT_FALSE(ReadItem("SSO_PUBLICDATA_ID_org.example.tv.package").has_value());
    EXPECT_EQ(0, Int32Arg(request("GOOD-SIGNATURE"), "result"));
    EXPECT_TRUE(ReadItem("SSO_PUBLICDATA_ID_org.example.tv.package").has_value());
    EXPECT_EQ(1u, Issued().size());
    EXPECT_THROW(sim_.RegisterWhitelist("", "sig"), std::runtime_error);
}

// ================================================================ partner authentication

TEST_F(SimFamilies, PartnerAuthIsAnsweredOnItsReturnMethodWithoutTheValue)
{
    const RecordedCall call = Send("sso_request_partner_auth_info", "sso_return_partner_auth_info",
                                   {"partner-key", "partner-value-secret", "GET"});
    EXPECT_EQ(0, Int32Arg(call, "result"));
    const std::string text = StringArg(call, "response_data");
    const Json::Value r = ParseJson(text);
    EXPECT_EQ("partner-key", r["authKey"].asString());
    EXPECT_EQ("GET", r["method"].asString());
    EXPECT_FALSE(Has(text, "partner-value-secret"));
}

// ================================================================ scripting still wins

TEST_F(SimFamilies, AScriptedFailureIsDeliveredAndChangesNothing)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    ssotest::Behaviour fail;
    fail.result = 42;
    sim_.Configure("sso_perform_logout", fail);
    sim_.Configure("sso_request_access_token", fail);
    const RecordedCall logout = Send("sso_perform_logout", "sso_perform_logout", {kNoValue});
    EXPECT_EQ(42, Int32Arg(logout, "result"));
    EXPECT_EQ(kim_, SignedIn());
    const RecordedCall token = AccessToken();
    EXPECT_EQ(42, Int32Arg(token, "result"));
    EXPECT_EQ(0u, Issued().size());
}

TEST_F(SimFamilies, AScriptedSuccessOverARefusalDeliversItButChangesNothing)
{
    ssotest::Behaviour ok;
    ok.result = 0;
    sim_.Configure("sso_request_access_token", ok);
    const RecordedCall call = AccessToken();
    EXPECT_EQ(0, Int32Arg(call, "result"));
    EXPECT_EQ("", StringArg(call, "access_token"));
    EXPECT_EQ(0u, Issued().size());
}

TEST_F(SimFamilies, ScriptedPayloadsAreWhatIsIssuedAndStored)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    ssotest::Behaviour b;
    b.payloads = std::vector<std::string>{"AT-scripted-whitelist"};
    sim_.Configure("sso_service_request_whitelist_accesstoken", b);
    b.payloads = std::vector<std::string>{"AT-scripted"};
    sim_.Configure("sso_request_access_token", b);

    const RecordedCall wl = Send("sso_service_request_whitelist_accesstoken",
                                 "RESULT_sso_service_request_whitelist_accesstoken",
                                 {kApp, "org.example.tv.package", "SIG", kNoValue});
    EXPECT_EQ("AT-scripted-whitelist", StringArg(wl, "response"));
    const auto item = ReadItem("SSO_PUBLICDATA_ID_org.example.tv.package");
    ASSERT_TRUE(item.has_value());
    EXPECT_EQ(
        "AT-scripted-whitelist",
        ParseJson(*item)["data"][kim_][std::string(ssotest::kSimWhitelistTokenKeyPrefix) + kApp]
            .asString());
    EXPECT_EQ("AT-scripted", StringArg(AccessToken(), "access_token"));

    const Json::Value issued = Issued();
    ASSERT_EQ(2u, issued.size());
    EXPECT_EQ("AT-scripted-whitelist", issued[0]["value"].asString());
    EXPECT_TRUE(issued[0]["scripted"].asBool());
    EXPECT_EQ("AT-scripted", issued[1]["value"].asString());
    EXPECT_TRUE(issued[1]["scripted"].asBool());
    // A scripted token is an issued one: the family group takes it.
    EXPECT_EQ(0, Int32Arg(Send("sso_get_user_family_group", "sso_get_user_family_group",
                               {kApp, "AT-scripted"}),
                          "result"));
}

TEST_F(SimFamilies, ARefusedErroredOrUnansweredRequestChangesNothing)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    auto logout = [&](int timeout_ms = 10000) {
        return client_.Request(
            "sso_perform_logout",
            Build("sso_perform_logout", "sso_perform_logout", {kNoValue}, {}, RequestValues{}),
            timeout_ms);
    };
    ssotest::Behaviour refuse;
    refuse.accept = 0;
    sim_.Configure("sso_perform_logout", refuse);
    EXPECT_EQ(0, logout().Int());
    sim_.ResetMethod("sso_perform_logout");
    ssotest::Behaviour error;
    error.error = "org.orvex.tv.Error.Busy";
    sim_.Configure("sso_perform_logout", error);
    EXPECT_EQ("org.orvex.tv.Error.Busy", logout().error_name);
    sim_.ResetMethod("sso_perform_logout");
    ssotest::Behaviour silent;
    silent.no_answer = true;
    sim_.Configure("sso_perform_logout", silent);
    EXPECT_TRUE(logout(300).timed_out);
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size()); // the barrier's
    EXPECT_EQ(kim_, SignedIn());
}

TEST_F(SimFamilies, ADroppedResultStillChangesTheState)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    ssotest::Behaviour drop;
    drop.drop_result = true;
    sim_.Configure("sso_perform_logout", drop);
    Reply r =
        client_.Request("sso_perform_logout", Build("sso_perform_logout", "sso_perform_logout",
                                                    {kNoValue}, {}, RequestValues{}));
    EXPECT_EQ(1, r.Int());
    Barrier();
    EXPECT_EQ(1u, client_.Calls().size());
    EXPECT_EQ("", SignedIn());
}

TEST_F(SimFamilies, ADelayedResultIsDecidedWhenItIsDue)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    ssotest::Behaviour later;
    later.result_delay_ms = 1500;
    sim_.Configure("sso_request_access_token", later);
    Reply r = client_.Request("sso_request_access_token",
                              Build("sso_request_access_token", "sso_request_access_token",
                                    {kApp, kSecret, kNoValue}, {}, RequestValues{}));
    EXPECT_EQ(1, r.Int());
    sim_.SignOut(); // long before the result is due
    ASSERT_TRUE(client_.WaitForCalls(1));
    EXPECT_EQ(ssosim::kResultNotSignedIn, Int32Arg(client_.Calls().at(0), "result"));
    EXPECT_EQ(0u, Issued().size());
}

TEST_F(SimFamilies, AScriptedAcceptWinsOverTheSwitchingAvailability)
{
    ssotest::Behaviour yes;
    yes.accept = 1;
    sim_.Configure("sso_is_account_switching_available", yes);
    EXPECT_EQ(1, Sync("sso_is_account_switching_available"));
}

// ================================================================ command line and help

TEST_F(SimFamilies, TheCommandLineListsIssuedTokensAndRegisters)
{
    sim_.AddAccount(Kim());
    sim_.SignIn(kim_);
    ASSERT_EQ(0, ssotest::RunSimulatorCommand({"ctl", "client", "add", kApp, "cli-secret"}).status);
    EXPECT_EQ(ssosim::kResultInvalidClient, Int32Arg(AccessToken(kApp, "other"), "result"));
    const std::string token = StringArg(AccessToken(kApp, "cli-secret"), "access_token");

    auto listed = ssotest::RunSimulatorCommand({"ctl", "issued"});
    ASSERT_EQ(0, listed.status) << listed.err;
    EXPECT_EQ("1 access_token " + std::string(kApp) + " " + kim_ + " - " + token + "\n",
              listed.out);
    auto json = ssotest::RunSimulatorCommand({"ctl", "issued", "--json"});
    ASSERT_EQ(0, json.status) << json.err;
    EXPECT_EQ(token, ParseJson(json.out)["issued"][0]["value"].asString());
    ASSERT_EQ(0, ssotest::RunSimulatorCommand({"ctl", "issued", "clear"}).status);
    EXPECT_EQ(0u, Issued().size());

    ASSERT_EQ(0, ssotest::RunSimulatorCommand(
                     {"ctl", "whitelist", "add", "org.example.tv.package", "GOOD"})
                     .status);
    EXPECT_EQ(ssosim::kResultNotWhitelisted,
              Int32Arg(Send("sso_service_request_whitelist_accesstoken",
                            "RESULT_sso_service_request_whitelist_accesstoken",
                            {kApp, "org.example.tv.package", "BAD", kNoValue}),
                       "result"));

    auto add = ssotest::RunSimulatorCommand(
        {"ctl", "account", "add", "--login-id", "cli@example.com", "--birth-date", "20000229",
         "--family-group", "FG-CLI", "--receive-email", "y", "--mobile", "+1-202-555-0100"});
    ASSERT_EQ(0, add.status) << add.err;
    const Json::Value added = ParseJson(sim_.Accounts())["accounts"][1];
    EXPECT_EQ("20000229", added["birth_date"].asString());
    EXPECT_EQ("FG-CLI", added["family_group"].asString());
    EXPECT_EQ("Y", added["receive_email"].asString());
    EXPECT_EQ("+1-202-555-0100", added["mobile_num"].asString());
    EXPECT_EQ(2, ssotest::RunSimulatorCommand({"ctl", "client", "add", kApp}).status);
}

TEST(SimFamiliesHelp, TheRunHelpNamesEveryResultCode)
{
    auto help = ssotest::RunSimulatorCommand({"run", "--help"});
    ASSERT_EQ(0, help.status) << help.err;
    for (const auto &c : ssosim::kResultCodeTable)
        EXPECT_TRUE(Has(help.out, std::to_string(c.code) + "  " + c.name)) << c.name;
    EXPECT_EQ(3, ssosim::kResultNotSignedIn);
    EXPECT_EQ(4, ssosim::kResultWrongPassword);
}

} // namespace
