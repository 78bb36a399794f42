// ssoctl's service requests against the simulator: what reaches the service
// for each command and option, what is printed (secrets masked unless
// shown), refusals and failed results (exit 1) and results that never come
// (exit 3).
#include <ostream>
#include <regex>

#include "ssoctl_test_support.h"

namespace {

using namespace ctltest;

class CtlRequests : public CtlTest {};

// ---- tokens and codes ----

TEST_F(CtlRequests, TokenIsMaskedUnlessShown)
{
    SignInViewer();
    CtlResult r = RunCtl({"token", "--app-id", "tv.app", "--secret", "k"});
    EXPECT_EQ(0, r.status) << Show(r);
    const std::string token = LastIssued()["value"].asString();
    ASSERT_FALSE(token.empty());
    EXPECT_EQ(token.substr(0, 6) + kEllipsis + "\n", r.out);
    EXPECT_EQ("sso_request_access_token", LastIssued()["method"].asString());

    CtlResult shown =
        RunCtl({"--json", "token", "--app-id", "tv.app", "--secret", "k", "--show-secrets"});
    ASSERT_EQ(0, shown.status) << Show(shown);
    Json::Value v = ParseJson(shown.out);
    EXPECT_TRUE(v["ok"].asBool());
    EXPECT_EQ(LastIssued()["value"].asString(), v["access_token"].asString());
}

TEST_F(CtlRequests, TokenWithAScopeAndTheSecretFromStdin)
{
    SignInViewer();
    sim_.RegisterClient("tv.app", "s3cret");
    const std::string right = "s3cret\n", wrong = "other\n";
    CtlResult r =
        RunCtl({"token", "--app-id", "tv.app", "--secret", "-", "--scope", "profile"}, {}, &right);
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("profile", LastIssued()["scope"].asString());

    CtlResult refused =
        RunCtl({"--json", "token", "--app-id", "tv.app", "--secret", "-"}, {}, &wrong);
    EXPECT_EQ(1, refused.status) << Show(refused);
    Json::Value v = ParseJson(refused.out);
    EXPECT_FALSE(v["ok"].asBool());
    EXPECT_EQ(ssosim::kResultInvalidClient, v["result"].asInt());
    EXPECT_EQ("invalid_client", v["error"].asString());
    EXPECT_TRUE(Contains(refused.err, "token: service answered 5: invalid client")) << refused.err;
}

TEST_F(CtlRequests, TokenForAnAuthCodeRedeemsIt)
{
    SignInViewer();
    CtlResult code = RunCtl({"--json", "--show-secrets", "auth-code", "--app-id", "tv.app"});
    ASSERT_EQ(0, code.status) << Show(code);
    const std::string auth_code = ParseJson(code.out)["auth_code"].asString();
    CtlResult r =
        RunCtl({"token", "--app-id", "tv.app", "--secret", "k", "--auth-code", auth_code});
    EXPECT_EQ(0, r.status) << Show(r);
    Json::Value issued = Issued();
    ASSERT_EQ(2u, issued.size());
    EXPECT_TRUE(issued[0]["redeemed"].asBool());
    EXPECT_EQ("sso_request_access_token_using_authcode", issued[1]["method"].asString());
    // A redeemed code is not taken twice.
    CtlResult again =
        RunCtl({"token", "--app-id", "tv.app", "--secret", "k", "--auth-code", auth_code});
    EXPECT_EQ(1, again.status) << Show(again);
}

TEST_F(CtlRequests, TokenSignedOutIsRefused)
{
    CtlResult r = RunCtl({"--json", "token", "--app-id", "tv.app", "--secret", "k"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["refused"].asBool());
    EXPECT_EQ(-1, v["result"].asInt());
    EXPECT_EQ("not_signed_in", v["error"].asString());
    EXPECT_TRUE(Contains(r.err, "ssoctl: token: not signed in")) << r.err;
}

struct CodeCase {
    std::vector<std::string> args;
    std::string method; // the server method
    std::string sent;   // a piece of the argument tuple
};

class CtlCodes : public CtlRequests, public ::testing::WithParamInterface<CodeCase> {};

TEST_P(CtlCodes, EachFormReachesItsMethodAndPrintsTheCode)
{
    SignInViewer();
    std::vector<std::string> args = {"--json", "--show-secrets"};
    args.insert(args.end(), GetParam().args.begin(), GetParam().args.end());
    CtlResult r = RunCtl(args);
    ASSERT_EQ(0, r.status) << Show(r);
    EXPECT_EQ(std::vector<std::string>{GetParam().method}, Methods());
    EXPECT_TRUE(Contains(ArgsOf(GetParam().method), GetParam().sent)) << ArgsOf(GetParam().method);
    Json::Value v = ParseJson(r.out);
    EXPECT_EQ("auth_code", LastIssued()["kind"].asString());
    EXPECT_EQ(LastIssued()["value"].asString(), v["auth_code"].asString());
}

// The command line, in test listings and failure messages.
template <typename Case> void PrintArgs(const Case &c, std::ostream *os)
{
    *os << "ssoctl";
    for (const std::string &arg : c.args)
        *os << " " << arg;
}
void PrintTo(const CodeCase &c, std::ostream *os)
{
    PrintArgs(c, os);
}

// The index and the server method, without its "sso_" prefix.
template <typename Case> std::string MethodName(const ::testing::TestParamInfo<Case> &info)
{
    return std::to_string(info.index) + "_" + info.param.method.substr(4);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CtlCodes,
    ::testing::Values(
        CodeCase{{"auth-code", "--app-id", "a.app", "--scope", "s1"},
                 "sso_request_auth_code",
                 "'a.app', 's1'"},
        CodeCase{{"auth-code", "--app-id", "a.app", "--effortless"},
                 "sso_request_auth_code_for_effortless_login",
                 "'a.app', 'HAS_NO_VALUE'"},
        CodeCase{{"auth-code", "--app-id", "a.app", "--account", "viewer@example.com", "--password",
                  "pw"},
                 "sso_request_authcode_with_ID_PWD",
                 "'a.app', 'viewer@example.com', 'pw'"},
        CodeCase{{"user-auth-code", "--app-id", "a.app"},
                 "sso_request_user_authcode",
                 "'HAS_NO_VALUE', 'user'"},
        CodeCase{{"user-auth-code", "--app-id", "a.app", "--dsc", "4711"},
                 "sso_request_user_authcode_with_dsc",
                 "'HAS_NO_VALUE', '4711', 'HAS_NO_VALUE'"},
        CodeCase{{"user-auth-code", "--app-id", "a.app", "--response-type", "code"},
                 "sso_request_user_authcode_with_dsc",
                 "'HAS_NO_VALUE', 'code'"},
        CodeCase{{"user-auth-code", "--app-id", "a.app", "--dsc", "1", "--challenge", "CH"},
                 "sso_request_user_authcode_with_challenge",
                 "'1', 'HAS_NO_VALUE', 'CH'"},
        CodeCase{{"user-auth-code", "--app-id", "a.app", "--verifier", "VE"},
                 "sso_request_user_authcode_with_verifier",
                 "'HAS_NO_VALUE', 'VE'"},
        CodeCase{
            {"device-auth-code", "--app-id", "a.app"}, "sso_request_device_authcode", "'device'"},
        CodeCase{{"other-device-auth-code", "--dsc", "9"},
                 "sso_request_authcode_for_other_device",
                 "'9'"}),
    MethodName<CodeCase>);

TEST_F(CtlRequests, DeviceCodesNeedNobodySignedInUserCodesDo)
{
    EXPECT_EQ(0, RunCtl({"device-auth-code", "--app-id", "a.app"}).status);
    CtlResult user = RunCtl({"user-auth-code", "--app-id", "a.app"});
    EXPECT_EQ(1, user.status) << Show(user);
    EXPECT_TRUE(Contains(user.err, "user-auth-code: not signed in")) << user.err;
}

// ---- device accounts from a code or a password ----

TEST_F(CtlRequests, TokenWithAuthcodeCreatesAndSignsInTheAccount)
{
    CtlResult r =
        RunCtl({"token-with-authcode", "--user", "new@example.com", "--auth-code", "AC.1"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("device account of new@example.com signed in\n", r.out);
    EXPECT_TRUE(std::regex_search(ArgsOf("sso_generate_token_with_authcode_dsc"),
                                  std::regex("int64 -?\\d+, 1, int64")))
        << ArgsOf("sso_generate_token_with_authcode_dsc");
    EXPECT_TRUE(Contains(sim_.Accounts(), "new@example.com"));
    EXPECT_NE(viewerGuid_, SignedInGuid());
    EXPECT_FALSE(SignedInGuid().empty());
}

TEST_F(CtlRequests, TokenWithAuthcodeWithoutNotification)
{
    CtlResult r = RunCtl({"--json", "token-with-authcode", "--user", "viewer@example.com",
                          "--auth-code", "AC.1", "--dsc", "77", "--no-notification"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_TRUE(ParseJson(r.out)["ok"].asBool());
    const std::string args = ArgsOf("sso_generate_token_with_authcode_dsc");
    EXPECT_TRUE(Contains(args, "'AC.1', 'viewer@example.com', '77'")) << args;
    EXPECT_TRUE(std::regex_search(args, std::regex("int64 -?\\d+, 0, int64"))) << args;
    EXPECT_EQ(viewerGuid_, SignedInGuid());
}

TEST_F(CtlRequests, TokenWithAuthcodeAndDeleteFlagPrintsTheResponse)
{
    CtlResult r = RunCtl({"--json", "token-with-authcode", "--user", "viewer@example.com",
                          "--auth-code", "AC.1", "--delete-flag", "yes"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value response = ParseJson(r.out)["response"];
    EXPECT_EQ(1, response["delete_flag"].asInt());
    EXPECT_EQ("viewer@example.com", response["account_id"].asString());
    EXPECT_EQ(viewerGuid_.substr(0, 6) + kEllipsis, response["account_guid"].asString());
    EXPECT_EQ(std::vector<std::string>{"sso_generate_token_with_authcode_dsc_deleteFlag"},
              Methods());
}

TEST_F(CtlRequests, TheRetiredTokenWithAuthcodeSendsNothing)
{
    CtlResult r = RunCtl({"--json", "token-with-authcode", "--retired"});
    EXPECT_EQ(1, r.status) << Show(r);
    EXPECT_TRUE(ParseJson(r.out)["refused"].asBool());
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CtlRequests, TokenWithPasswordAddsTheAccountWithThatPassword)
{
    const std::string pw = "n3w\n";
    CtlResult r = RunCtl(
        {"--json", "token-with-password", "--user", "pw@example.com", "--password", "-"}, {}, &pw);
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value response = ParseJson(r.out)["response"];
    EXPECT_TRUE(response["added"].asBool());
    EXPECT_EQ(0, response["delete_flag"].asInt());
    EXPECT_EQ(0, RunCtl({"verify-password", "--password", "n3w"}).status);
    CtlResult wrong =
        RunCtl({"token-with-password", "--user", "pw@example.com", "--password", "bad"});
    EXPECT_EQ(1, wrong.status) << Show(wrong);
    EXPECT_TRUE(Contains(wrong.err, "service answered 4: wrong password")) << wrong.err;
}

// ---- account operations ----

TEST_F(CtlRequests, RegisterWithLoginSignsTheAccountIn)
{
    CtlResult r = RunCtl({"--json", "--show-secrets", "register", "reg@example.com", "--auth-code",
                          "AC.r", "--login"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value response = ParseJson(r.out)["response"];
    EXPECT_EQ("reg@example.com", response["account_id"].asString());
    EXPECT_EQ(response["account_guid"].asString(), SignedInGuid());
    EXPECT_TRUE(Contains(ArgsOf("sso_register_account"), "'AC.r', '', 'on'"))
        << ArgsOf("sso_register_account");
}

TEST_F(CtlRequests, RegisterAtTheAccountLimitSaysSo)
{
    for (int i = 2; i <= 6; ++i) {
        ssotest::AccountSpec a;
        a.login_id = "user" + std::to_string(i) + "@example.com";
        sim_.AddAccount(a);
    }
    CtlResult r = RunCtl({"register", "seventh@example.com", "--auth-code", "AC.r"});
    EXPECT_EQ(1, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.err, "six accounts")) << r.err;
    EXPECT_TRUE(Contains(r.err, "-100")) << r.err;
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CtlRequests, LogoutSignsOut)
{
    SignInViewer();
    CtlResult r = RunCtl({"logout", "--confirm-id", "C-1"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("signed out\n", r.out);
    EXPECT_TRUE(SignedInGuid().empty());
    EXPECT_TRUE(Contains(ArgsOf("sso_perform_logout"), "'C-1'"));

    CtlResult again = RunCtl({"logout"});
    EXPECT_EQ(1, again.status) << Show(again);
}

TEST_F(CtlRequests, VerifyPasswordRightAndWrong)
{
    SignInViewer();
    const std::string right = "pw\n";
    CtlResult ok = RunCtl({"verify-password", "--password", "-"}, {}, &right);
    EXPECT_EQ(0, ok.status) << Show(ok);
    EXPECT_EQ("password verified\n", ok.out);
    CtlResult wrong = RunCtl({"--json", "verify-password", "--password", "nope"});
    EXPECT_EQ(1, wrong.status) << Show(wrong);
    EXPECT_EQ(ssosim::kResultWrongPassword, ParseJson(wrong.out)["result"].asInt());
}

TEST_F(CtlRequests, SetPasswordThenResetMail)
{
    SignInViewer();
    CtlResult set = RunCtl({"set-password", "viewer@example.com", "--password", "n3w"});
    EXPECT_EQ(0, set.status) << Show(set);
    EXPECT_EQ("password set for viewer@example.com\n", set.out);
    EXPECT_EQ(0, RunCtl({"verify-password", "--password", "n3w"}).status);

    CtlResult mail = RunCtl({"--json", "reset-password", "viewer@example.com"});
    EXPECT_EQ(0, mail.status) << Show(mail);
    EXPECT_TRUE(ParseJson(mail.out)["response"]["reset_mail_sent"].asBool());
    CtlResult unknown = RunCtl({"reset-password", "nobody@example.com"});
    EXPECT_EQ(1, unknown.status) << Show(unknown);
    EXPECT_TRUE(Contains(unknown.err, "service answered 6: no such account")) << unknown.err;
}

TEST_F(CtlRequests, SwitchByLoginIdByGuidAndWithTheUserToken)
{
    ssotest::AccountSpec other;
    other.login_id = "other@example.com";
    other.auth = "UT-other";
    const std::string otherGuid = sim_.AddAccount(other);
    SignInViewer();

    CtlResult byId = RunCtl({"switch", "other@example.com", "--extra", "x"});
    EXPECT_EQ(0, byId.status) << Show(byId);
    EXPECT_EQ("switched to other@example.com\n", byId.out);
    EXPECT_EQ(otherGuid, SignedInGuid());
    EXPECT_TRUE(Contains(ArgsOf("sso_switch_account"), "'other@example.com', 'x'"));

    CtlResult byGuid = RunCtl({"switch", "--guid", viewerGuid_});
    EXPECT_EQ(0, byGuid.status) << Show(byGuid);
    EXPECT_EQ("switched to " + viewerGuid_.substr(0, 6) + kEllipsis + "\n", byGuid.out);
    EXPECT_EQ(viewerGuid_, SignedInGuid());

    const std::string token = "UT-other\n";
    CtlResult byToken = RunCtl({"switch", "other@example.com", "--user-token", "-"}, {}, &token);
    EXPECT_EQ(0, byToken.status) << Show(byToken);
    EXPECT_EQ(otherGuid, SignedInGuid());

    CtlResult wrong = RunCtl({"switch", "viewer@example.com", "--user-token", "UT-wrong"});
    EXPECT_EQ(1, wrong.status) << Show(wrong);
    EXPECT_EQ(otherGuid, SignedInGuid());
}

TEST_F(CtlRequests, AccountListAndTheDynamicList)
{
    SignInViewer();
    for (bool dynamic : {false, true}) {
        std::vector<std::string> args = {"--json", "account-list"};
        if (dynamic)
            args.push_back("--dynamic");
        CtlResult r = RunCtl(args);
        ASSERT_EQ(0, r.status) << Show(r);
        Json::Value list = ParseJson(r.out)["response"]["list"];
        ASSERT_EQ(1u, list.size()) << r.out;
        EXPECT_EQ("viewer@example.com", list[0]["account_id"].asString());
        EXPECT_EQ(viewerGuid_.substr(0, 6) + kEllipsis, list[0]["account_guid"].asString());
    }
    EXPECT_EQ(
        (std::vector<std::string>{"sso_request_account_list", "sso_get_dynamic_my_account_list"}),
        Methods());
}

// ---- profile and groups ----

TEST_F(CtlRequests, UserInfoInItsThreeForms)
{
    SignInViewer();
    CtlResult record = RunCtl({"user-info"});
    ASSERT_EQ(0, record.status) << Show(record);
    EXPECT_TRUE(Contains(record.out, "birth_date: 19900101\n")) << record.out;
    EXPECT_TRUE(Contains(record.out, std::string("auth: UT-vie") + kEllipsis)) << record.out;
    EXPECT_FALSE(Contains(record.out, "UT-viewer-user-token")) << record.out;

    CtlResult recordJson = RunCtl({"--json", "--show-secrets", "user-info"});
    EXPECT_EQ("UT-viewer-user-token", ParseJson(recordJson.out)["user_info"]["auth"].asString());

    CtlResult v4 = RunCtl({"--json", "user-info", "--v4"});
    ASSERT_EQ(0, v4.status) << Show(v4);
    EXPECT_EQ("19900101", ParseJson(v4.out)["response"]["birth_date"].asString());

    CtlResult info = RunCtl({"--json", "user-info", "--json-info"});
    ASSERT_EQ(0, info.status) << Show(info);
    Json::Value v = ParseJson(info.out)["response"];
    EXPECT_EQ("US", v["alpha2CountryCode"].asString());
    EXPECT_EQ("USA", v["userCountryCode"].asString());
    EXPECT_EQ((std::vector<std::string>{"sso_get_user_info", "sso_get_user_info",
                                        "sso_get_user_info_v4", "sso_get_user_info"}),
              Methods());
}

TEST_F(CtlRequests, IdentifyUserAndNamecheck)
{
    SignInViewer();
    CtlResult id = RunCtl({"identify-user"});
    ASSERT_EQ(0, id.status) << Show(id);
    EXPECT_TRUE(Contains(id.out, "birthday: 19900101\nidentify url: https://")) << id.out;

    CtlResult name = RunCtl({"--json", "namecheck"});
    ASSERT_EQ(0, name.status) << Show(name);
    Json::Value v = ParseJson(name.out);
    EXPECT_TRUE(v["success"].asBool());
    EXPECT_EQ("19900101", v["birth_date"].asString());
    EXPECT_FALSE(v["age"].asString().empty());
    EXPECT_TRUE(Contains(v["check_url"].asString(), "namecheck")) << name.out;

    sim_.SignOut();
    // The service refuses the identity data without anybody signed in; the
    // name check is refused by the library before anything is sent.
    CtlResult idOut = RunCtl({"identify-user"});
    EXPECT_EQ(1, idOut.status) << Show(idOut);
    EXPECT_TRUE(Contains(idOut.err, "service answered 3: not signed in")) << idOut.err;
    CtlResult nameOut = RunCtl({"namecheck"});
    EXPECT_EQ(1, nameOut.status) << Show(nameOut);
    EXPECT_TRUE(Contains(nameOut.err, "namecheck: not signed in")) << nameOut.err;
}

TEST_F(CtlRequests, FamilyGroupAndItsUsers)
{
    SignInViewer();
    CtlResult group = RunCtl({"--json", "family-group", "--app-id", "tv.app", "--secret", "k"});
    ASSERT_EQ(0, group.status) << Show(group);
    const std::string id = ParseJson(group.out)["response"]["groupId"].asString();
    ASSERT_FALSE(id.empty()) << group.out;

    // With a token obtained beforehand.
    CtlResult token =
        RunCtl({"--json", "--show-secrets", "token", "--app-id", "tv.app", "--secret", "k"});
    const std::string access = ParseJson(token.out)["access_token"].asString() + "\n";
    CtlResult users = RunCtl(
        {"--json", "group-users", id, "--app-id", "tv.app", "--access-token", "-"}, {}, &access);
    ASSERT_EQ(0, users.status) << Show(users);
    Json::Value v = ParseJson(users.out)["response"];
    EXPECT_EQ(id, v["groupId"].asString());
    EXPECT_EQ(1u, v["users"].size()) << users.out;

    CtlResult other = RunCtl({"group-users", "FG-NOT-MINE", "--app-id", "tv.app", "--secret", "k"});
    EXPECT_EQ(1, other.status) << Show(other);
    EXPECT_TRUE(Contains(other.err, "service answered 11: no such group")) << other.err;
    CtlResult forged = RunCtl({"family-group", "--app-id", "tv.app", "--access-token", "AT.x"});
    EXPECT_EQ(1, forged.status) << Show(forged);
    EXPECT_TRUE(Contains(forged.err, "service answered 9: invalid token")) << forged.err;
}

// ---- retired functions ----

TEST_F(CtlRequests, PartnerAuthIsAlwaysRefused)
{
    SignInViewer();
    for (std::vector<std::string> args :
         {std::vector<std::string>{"save", "k", "v"}, std::vector<std::string>{"get", "k"},
          std::vector<std::string>{"clear", "k"}}) {
        args.insert(args.begin(), {"--json", "partner-auth"});
        CtlResult r = RunCtl(args);
        EXPECT_EQ(1, r.status) << Show(r);
        EXPECT_TRUE(ParseJson(r.out)["refused"].asBool());
    }
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CtlRequests, CpMappingIsAcceptedWhileSignedInWithoutAResult)
{
    EXPECT_EQ(1, RunCtl({"cp-mapping", "list"}).status);
    SignInViewer();
    for (std::vector<std::string> args :
         {std::vector<std::string>{"add", "cp", "u"}, std::vector<std::string>{"remove", "cp"},
          std::vector<std::string>{"list"}}) {
        args.insert(args.begin(), "cp-mapping");
        CtlResult r = RunCtl(args);
        EXPECT_EQ(0, r.status) << Show(r);
        EXPECT_TRUE(Contains(r.out, "no result follows")) << r.out;
    }
    CtlResult get = RunCtl({"cp-mapping", "get", "cp"});
    EXPECT_EQ(1, get.status) << Show(get);
    EXPECT_TRUE(Methods().empty());
}

// ---- refusals, failures and time-outs ----

TEST_F(CtlRequests, ARequestTheServiceRefusesExitsOne)
{
    SignInViewer();
    ssotest::Behaviour b;
    b.accept = 0;
    sim_.Configure("sso_request_auth_code", b);
    CtlResult r = RunCtl({"--json", "auth-code", "--app-id", "a.app"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["refused"].asBool());
    EXPECT_EQ("service_refused", v["error"].asString());
    EXPECT_EQ(0, v["service_answer"].asInt());
    EXPECT_EQ("ok", v["service_answer_name"].asString());
    EXPECT_TRUE(Contains(r.err, "auth-code: service answered 0")) << r.err;
}

TEST_F(CtlRequests, AFailedResultExitsOneWithItsCode)
{
    SignInViewer();
    ssotest::Behaviour b;
    b.result = 42;
    sim_.Configure("sso_request_account_list", b);
    CtlResult r = RunCtl({"--json", "account-list"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_FALSE(v["ok"].asBool());
    EXPECT_EQ(42, v["result"].asInt());
    EXPECT_EQ("service_result", v["error"].asString());
    EXPECT_TRUE(Contains(r.err, "account-list: service answered 42")) << r.err;
}

struct TimeoutCase {
    std::string method; // the server method that never delivers
    std::vector<std::string> args;
};

void PrintTo(const TimeoutCase &c, std::ostream *os)
{
    PrintArgs(c, os);
}

class CtlTimeouts : public CtlRequests, public ::testing::WithParamInterface<TimeoutCase> {};

TEST_P(CtlTimeouts, ExitThreeWhenNoResultComes)
{
    SignInViewer();
    ssotest::Behaviour b;
    b.drop_result = true;
    sim_.Configure(GetParam().method, b);
    std::vector<std::string> args = {"--json", "--timeout", "300"};
    args.insert(args.end(), GetParam().args.begin(), GetParam().args.end());
    CtlResult r = RunCtl(args);
    EXPECT_EQ(3, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["timed_out"].asBool());
    EXPECT_EQ(300, v["timeout_ms"].asInt());
    EXPECT_TRUE(Contains(r.err, "timed out after 300 ms")) << r.err;
    // The request went out and was accepted; only its result never came.
    EXPECT_NE("<not received>", ArgsOf(GetParam().method));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CtlTimeouts,
    ::testing::Values(
        TimeoutCase{"sso_request_access_token", {"token", "--app-id", "a", "--secret", "k"}},
        TimeoutCase{"sso_request_auth_code", {"auth-code", "--app-id", "a"}},
        TimeoutCase{"sso_request_user_authcode_with_verifier",
                    {"user-auth-code", "--app-id", "a", "--verifier", "v"}},
        TimeoutCase{"sso_generate_token_with_authcode_dsc",
                    {"token-with-authcode", "--user", "viewer@example.com", "--auth-code", "c"}},
        TimeoutCase{"sso_perform_logout", {"logout"}},
        TimeoutCase{"sso_switch_account", {"switch", "viewer@example.com"}},
        TimeoutCase{"sso_verify_password", {"verify-password", "--password", "pw"}},
        TimeoutCase{"sso_get_dynamic_my_account_list", {"account-list", "--dynamic"}},
        TimeoutCase{"sso_get_user_info", {"user-info"}},
        TimeoutCase{"sso_get_namecheck_auth_info", {"namecheck"}},
        TimeoutCase{"sso_get_user_family_group",
                    {"family-group", "--app-id", "a", "--access-token", "AT.x"}}),
    MethodName<TimeoutCase>);

} // namespace
