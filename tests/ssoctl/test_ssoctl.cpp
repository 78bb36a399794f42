// ssoctl against the simulator: the device's state (status, the local
// getters, the policy answers), watching login and account-view changes,
// and the library's own controls.
#include <vconf.h>

#include <algorithm>
#include <csignal>

#include "ssoctl_test_support.h"

namespace {

using namespace ctltest;

class CtlState : public CtlTest {
protected:
    // An account with every published value chosen.
    std::string AddFullAccount()
    {
        ssotest::AccountSpec a;
        a.login_id = "full@example.com";
        a.guid = "0123456789ABCDEF0123456789ABCDEF";
        a.uid = "4242424242";
        a.auth = "UT-full-user-token";
        a.device_id = "DEV-0042";
        a.country = "KOR";
        a.country2 = "KR";
        a.icon_path = "/opt/icons/full.png";
        a.display_name = "Full Name";
        return sim_.AddAccount(a);
    }
};

TEST_F(CtlState, StatusSignedOut)
{
    CtlResult r = RunCtl({"status"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.out, "service: alive")) << r.out;
    EXPECT_TRUE(Contains(r.out, "signed out")) << r.out;
    EXPECT_FALSE(Contains(r.out, "login id:")) << r.out;
}

TEST_F(CtlState, StatusSignedInMasksTheGuidUnlessShown)
{
    SignInViewer();
    CtlResult r = RunCtl({"status"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.out, "signed in")) << r.out;
    EXPECT_TRUE(Contains(r.out, "login id: viewer@example.com")) << r.out;
    EXPECT_TRUE(Contains(r.out, "guid: " + viewerGuid_.substr(0, 6) + kEllipsis)) << r.out;
    EXPECT_FALSE(Contains(r.out, viewerGuid_)) << r.out;

    CtlResult shown = RunCtl({"status", "--show-secrets"});
    EXPECT_EQ(0, shown.status);
    EXPECT_TRUE(Contains(shown.out, "guid: " + viewerGuid_)) << shown.out;
}

TEST_F(CtlState, StatusJson)
{
    SignInViewer();
    CtlResult r = RunCtl({"--json", "status"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["alive"].asBool());
    EXPECT_TRUE(v["signed_in"].asBool());
    EXPECT_EQ("viewer@example.com", v["login_id"].asString());
    EXPECT_EQ(1, v["account_count"].asInt());
    EXPECT_EQ(viewerGuid_.substr(0, 6) + kEllipsis, v["guid"].asString());
}

TEST_F(CtlState, StatusAndAliveFailWhenTheServiceIsGone)
{
    CtlResult alive = RunCtl({"alive"});
    EXPECT_EQ(0, alive.status) << Show(alive);
    EXPECT_EQ("alive\n", alive.out);
    sim_.Stop();
    CtlResult gone = RunCtl({"--json", "alive"});
    EXPECT_EQ(1, gone.status) << Show(gone);
    EXPECT_FALSE(ParseJson(gone.out)["alive"].asBool());
    CtlResult status = RunCtl({"status"});
    EXPECT_EQ(1, status.status) << Show(status);
    EXPECT_TRUE(Contains(status.out, "service: not answering")) << status.out;
    EXPECT_TRUE(Contains(status.err, "did not answer")) << status.err;
}

TEST_F(CtlState, AccountsPrintsTheDocumentWithSecretsMasked)
{
    CtlResult r = RunCtl({"accounts"});
    ASSERT_EQ(0, r.status) << Show(r);
    ParseJson(r.out);
    EXPECT_TRUE(Contains(r.out, "viewer@example.com")) << r.out;
    EXPECT_FALSE(Contains(r.out, "UT-viewer-user-token")) << r.out;
    EXPECT_FALSE(Contains(r.out, viewerGuid_)) << r.out;

    CtlResult shown = RunCtl({"--json", "--show-secrets", "accounts"});
    ASSERT_EQ(0, shown.status) << Show(shown);
    EXPECT_TRUE(Contains(shown.out, "UT-viewer-user-token")) << shown.out;
    EXPECT_EQ(1, std::count(shown.out.begin(), shown.out.end(), '\n'))
        << "one JSON object on one line: " << shown.out;
}

TEST_F(CtlState, AccountPrintsEveryGetter)
{
    const std::string guid = AddFullAccount();
    sim_.SignIn("full@example.com");
    CtlResult r = RunCtl({"account"});
    ASSERT_EQ(0, r.status) << Show(r);
    for (const char *line :
         {"login state: signed in", "accounts: 2", "login id: full@example.com",
          "guid: 012345\xE2\x80\xA6", "vd uid: 4242424242", "auth token: UT-ful\xE2\x80\xA6",
          "device id: DEV-0042", "country codes: KOR KR", "account UI: com.veltra.tv.CSAccount",
          "icon: /opt/icons/full.png", "display name: Full Name"})
        EXPECT_TRUE(Contains(r.out, line)) << line << "\n" << r.out;
    EXPECT_FALSE(Contains(r.out, "UT-full-user-token")) << r.out;

    CtlResult j = RunCtl({"--json", "--show-secrets", "account"});
    ASSERT_EQ(0, j.status) << Show(j);
    Json::Value v = ParseJson(j.out);
    EXPECT_TRUE(v["signed_in"].asBool());
    EXPECT_EQ(guid, v["guid"].asString());
    EXPECT_EQ("UT-full-user-token", v["auth_token"].asString());
    EXPECT_EQ("KR", v["country_codes"]["alpha2_country_code"].asString());
}

TEST_F(CtlState, AccountFieldsOneByOne)
{
    const std::string guid = AddFullAccount();
    sim_.SignIn("full@example.com");
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"login-state", "signed-in"},
        {"account-number", "2"},
        {"login-id", "full@example.com"},
        {"guid", guid},
        {"vd-uid", "4242424242"},
        {"auth-token", "UT-full-user-token"},
        {"device-id", "DEV-0042"},
        {"country-codes", "KOR KR"},
        {"ui-package", "com.veltra.tv.CSAccount"},
    };
    for (const auto &[field, value] : fields) {
        CtlResult r = RunCtl({"account", field, "--show-secrets"});
        EXPECT_EQ(0, r.status) << field << "\n" << Show(r);
        EXPECT_EQ(value + "\n", r.out) << field;
    }
    CtlResult masked = RunCtl({"account", "auth-token"});
    EXPECT_EQ(std::string("UT-ful") + kEllipsis + "\n", masked.out);

    CtlResult info = RunCtl({"--json", "account", "login-info", "--show-secrets"});
    ASSERT_EQ(0, info.status) << Show(info);
    Json::Value v = ParseJson(info.out)["login_info"];
    EXPECT_EQ("full@example.com", v["login_id"].asString());
    EXPECT_EQ(guid, v["guid"].asString());
    EXPECT_EQ("4242424242", v["uid"].asString());
    EXPECT_EQ("/opt/icons/full.png", v["user_icon_path"].asString());

    CtlResult json = RunCtl({"--json", "account", "json-info"});
    ASSERT_EQ(0, json.status) << Show(json);
    Json::Value j = ParseJson(json.out)["json_info"];
    EXPECT_EQ("full@example.com", j["loginid"].asString());
    EXPECT_EQ("KOR", j["userCountryCode"].asString());
    EXPECT_EQ(std::string("012345") + kEllipsis, j["guid"].asString());
}

TEST_F(CtlState, AccountSignedOutHasOnlyTheDeviceValues)
{
    CtlResult r = RunCtl({"account"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.out, "login state: signed out")) << r.out;
    EXPECT_TRUE(Contains(r.out, "account UI: com.veltra.tv.CSAccount")) << r.out;
    EXPECT_FALSE(Contains(r.out, "guid:")) << r.out;
    for (const char *field : {"guid", "login-id", "auth-token", "login-info", "json-info"}) {
        CtlResult f = RunCtl({"account", field});
        EXPECT_EQ(1, f.status) << field << "\n" << Show(f);
        EXPECT_TRUE(f.out.empty()) << f.out;
        EXPECT_TRUE(Contains(f.err, ": not signed in")) << f.err;
    }
    EXPECT_EQ("signed-out\n", RunCtl({"account", "login-state"}).out);
}

TEST_F(CtlState, PolicyAnswersFromTheDeviceState)
{
    // Nothing set: no enforcement, a missing temporary-logout key counts as
    // temporary, one account cannot be switched, no view state.
    CtlResult r = RunCtl({"--json", "policy"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_FALSE(v["enforce_login"].asBool());
    EXPECT_TRUE(v["temporary_logout"].asBool());
    EXPECT_FALSE(v["switching_available"].asBool());
    EXPECT_FALSE(v.isMember("popup"));
    EXPECT_EQ(1, RunCtl({"policy", "popup"}).status);

    root_.CreateDeviceFile("/opt/share/com.veltra.tv.CSAccount/enforce_login");
    apptest::CliResult feature = apptest::RunCli(
        {"feature", "set", "com.veltra/featureconf/account.signin_mandatory", "true"});
    ASSERT_EQ(0, feature.status) << feature.err;
    ASSERT_EQ(0, vconf_set_int("db/comss/enforcelogin", 1));
    ASSERT_EQ(0, vconf_set_int("db/sso/temp_logout_status", 2));
    ASSERT_EQ(0, vconf_set_int("memory/sso/view_status", 1));
    ssotest::AccountSpec second;
    second.login_id = "second@example.com";
    sim_.AddAccount(second);

    CtlResult text = RunCtl({"policy"});
    ASSERT_EQ(0, text.status) << Show(text);
    EXPECT_EQ("enforce login: yes\ntemporary logout: no\naccount switching: yes\npopup: yes\n",
              text.out);
    EXPECT_EQ("{\"enforce_login\":true}\n", RunCtl({"--json", "policy", "enforce-login"}).out);
    EXPECT_EQ("temporary logout: no\n", RunCtl({"policy", "temporary-logout"}).out);
    EXPECT_EQ("account switching: yes\n", RunCtl({"policy", "switching"}).out);
    EXPECT_EQ("popup: yes\n", RunCtl({"policy", "popup"}).out);
}

TEST_F(CtlState, PolicyTermIsAnUnavailableRetiredQuery)
{
    CtlResult r = RunCtl({"--json", "policy", "term", "T-1"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_FALSE(v["ok"].asBool());
    EXPECT_EQ(-1, v["term_state"].asInt());
    EXPECT_TRUE(Contains(r.err, "retired")) << r.err;
    EXPECT_EQ(1, RunCtl({"policy", "term"}).status);
}

// ---- watch ----

TEST_F(CtlState, WatchPrintsLoginChangesWithTheExtendedText)
{
    auto child = ssotest::ChildProcess::Spawn({ssotest::ToolPath("ssoctl"), "watch"});
    ASSERT_TRUE(child.WaitForOutput("watching")) << child.output();
    SignInViewer();
    ASSERT_TRUE(child.WaitForOutput("signed-in login_id=viewer@example.com")) << child.output();
    sim_.SignOut();
    ASSERT_TRUE(child.WaitForOutput("signed-out")) << child.output();
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait());
    EXPECT_TRUE(Contains(child.output(), "guid=" + viewerGuid_.substr(0, 6) + kEllipsis))
        << child.output();
    EXPECT_FALSE(Contains(child.output(), viewerGuid_)) << child.output();
    EXPECT_TRUE(Contains(child.output(), " event=")) << child.output();
}

TEST_F(CtlState, WatchPrintsAccountViewChanges)
{
    auto child = ssotest::ChildProcess::Spawn({ssotest::ToolPath("ssoctl"), "watch", "--json"});
    ASSERT_TRUE(child.WaitForOutput("{\"watching\":true}")) << child.output();
    ASSERT_EQ(0, vconf_set_int("memory/sso/view_status", 1));
    ASSERT_TRUE(child.WaitForOutput("{\"view\":\"shown\",\"view_state\":1}")) << child.output();
    ASSERT_EQ(0, vconf_set_int("memory/sso/view_status", 0));
    ASSERT_TRUE(child.WaitForOutput("{\"view\":\"closed\",\"view_state\":0}")) << child.output();
    child.Kill(SIGTERM);
    EXPECT_EQ(0, child.Wait());
}

TEST_F(CtlState, WatchMultiHearsTheGuidOnly)
{
    auto child = ssotest::ChildProcess::Spawn(
        {ssotest::ToolPath("ssoctl"), "watch", "--multi", "--show-secrets"});
    ASSERT_TRUE(child.WaitForOutput("watching")) << child.output();
    SignInViewer();
    ASSERT_TRUE(child.WaitForOutput("signed-in guid=" + viewerGuid_)) << child.output();
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait());
    EXPECT_FALSE(Contains(child.output(), "login_id=")) << child.output();
}

TEST_F(CtlState, WatchPlainHearsTheLoginIdOnly)
{
    auto child =
        ssotest::ChildProcess::Spawn({ssotest::ToolPath("ssoctl"), "--json", "watch", "--plain"});
    ASSERT_TRUE(child.WaitForOutput("watching")) << child.output();
    SignInViewer();
    ASSERT_TRUE(child.WaitForOutput("signed-in")) << child.output();
    child.Kill(SIGINT);
    EXPECT_EQ(0, child.Wait());
    std::string line = child.output().substr(child.output().find("\n") + 1);
    Json::Value v = ParseJson(line);
    EXPECT_EQ("viewer@example.com", v["login_id"].asString());
    EXPECT_EQ(0, v["result"].asInt());
    EXPECT_FALSE(v.isMember("guid"));
}

// ---- the library's controls ----

TEST_F(CtlState, ResetRevokesWhatWasIssued)
{
    SignInViewer();
    ASSERT_EQ(0, RunCtl({"token", "--app-id", "tv.app", "--secret", "k"}).status);
    CtlResult r = RunCtl({"--json", "reset"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_TRUE(ParseJson(r.out)["ok"].asBool());
    EXPECT_TRUE(LastIssued()["revoked"].asBool());
    EXPECT_EQ("the service was asked to reset\n", RunCtl({"reset"}).out);
}

TEST_F(CtlState, CurrentAccountNotiNeedsASignedInUser)
{
    CtlResult out = RunCtl({"current-account-noti"});
    EXPECT_EQ(1, out.status) << Show(out);
    EXPECT_TRUE(Contains(out.err, "current-account-noti: not signed in")) << out.err;
    SignInViewer();
    sim_.ClearJournal();
    CtlResult in = RunCtl({"current-account-noti"});
    EXPECT_EQ(0, in.status) << Show(in);
    EXPECT_EQ(std::vector<std::string>{"sso_request_current_account_noti"}, Methods());
}

TEST_F(CtlState, CbResetSucceeds)
{
    CtlResult r = RunCtl({"cb-reset"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("callback registrations dropped\n", r.out);
}

TEST_F(CtlState, GiveProxyLeavesTheServiceUnreachableFromTheProcess)
{
    CtlResult r = RunCtl({"--json", "give-proxy"});
    EXPECT_EQ(0, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["alive_before"].asBool());
    EXPECT_FALSE(v["alive_after"].asBool());
    // Only the check made before the link went reached the service.
    size_t checks = 0;
    for (const auto &e : sim_.Journal())
        checks += e.method == "sso_check_alive";
    EXPECT_EQ(1u, checks);
}

} // namespace
