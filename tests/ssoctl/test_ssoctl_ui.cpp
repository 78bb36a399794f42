// ssoctl's account UI commands with sso-account-ui-test standing in for the
// account UI applications: account pages (show), account verification, PIN
// verification and set-up, what each launches and how their answers and
// failures are reported.
#include "ssoctl_test_support.h"

namespace {

using namespace ctltest;

class CtlUi : public CtlTest {
protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        if (RegisterAll())
            RegisterAccountUi();
    }
    virtual bool RegisterAll() const { return true; }

    // The caller id ssoctl passes by default.
    static std::map<std::string, std::string> AppEnv()
    {
        return {{"SSO_PLATFORM_APP_ID", "org.example.ctl.app"}};
    }
};

TEST_F(CtlUi, ShowSignInWaitsUntilThePageClosesAndReportsTheSignIn)
{
    Script(kAccountApp, {"sign_in=viewer@example.com"});
    CtlResult r = RunCtl({"--json", "show", "sign-in", "--caller", "my.caller"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["closed"].asBool());
    EXPECT_TRUE(v["signed_in"].asBool());
    EXPECT_EQ("viewer@example.com", v["login_id"].asString());
    apptest::Record record = UiRecord(kAccountApp);
    EXPECT_EQ("1", record.Get("extra.page"));
    EXPECT_EQ("0", record.Get("extra.data"));
    EXPECT_EQ("my.caller", record.Get("extra.caller"));
    EXPECT_EQ("RemoteLoginQR_Signin", record.Get("extra.LAUNCH_TYPE"));
}

TEST_F(CtlUi, ShowByNumberPassesTheDataAndTheApplicationAsCaller)
{
    CtlResult r = RunCtl({"show", "10", "--data", "ABC"}, AppEnv());
    ASSERT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("account page closed\nstate: signed out\n", r.out);
    apptest::Record record = UiRecord(kAccountApp);
    EXPECT_EQ("10", record.Get("extra.page"));
    EXPECT_EQ(R"({"request_action":"switch_account","guid":"ABC","mode":"1"})",
              record.Get("extra.data"));
    EXPECT_EQ("org.example.ctl.app", record.Get("extra.caller"));

    ASSERT_EQ(0, RunCtl({"show", "voice-registration", "--data", "acc"}).status);
    EXPECT_EQ(R"({"request_action":"voice_registration","account_id":"acc","mode":"1"})",
              UiRecord(kAccountApp).Get("extra.data"));
    EXPECT_EQ("ssoctl", UiRecord(kAccountApp).Get("extra.caller"));
}

TEST_F(CtlUi, ShowWithATransparentOrOpaqueWindow)
{
    ASSERT_EQ(0, RunCtl({"show", "5", "--transparent"}).status);
    EXPECT_EQ(R"({"mode":"1"})", UiRecord(kAccountApp).Get("extra.data"));
    ASSERT_EQ(0, RunCtl({"show", "5", "--opaque"}).status);
    EXPECT_EQ(" ", UiRecord(kAccountApp).Get("extra.data"));
}

TEST_F(CtlUi, ShowTimesOutWhileThePageStaysOpen)
{
    Script(kAccountApp, {"view=keep"});
    CtlResult r = RunCtl({"--timeout", "400", "show", "sign-in"});
    EXPECT_EQ(3, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.err, "show: timed out after 400 ms")) << r.err;
    EXPECT_EQ("popup: yes\n", RunCtl({"policy", "popup"}).out);
}

TEST_F(CtlUi, VerifyAccountPrintsTheAnswer)
{
    SignInViewer();
    Script(kAccountApp, {"Result=Complete", "Response=Verified"});
    CtlResult r = RunCtl({"verify-account"});
    ASSERT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("success (response: Verified)\n", r.out);
    apptest::Record record = UiRecord(kAccountApp);
    EXPECT_EQ("viewer@example.com", record.Get("extra.ACCOUNT_ID"));
    EXPECT_EQ("Default", record.Get("extra.ACTION"));
    EXPECT_EQ("single", record.Get("launch_mode"));
}

TEST_F(CtlUi, VerifyAccountCancelledExitsOne)
{
    SignInViewer();
    Script(kAccountApp, {"app_result=cancelled"});
    CtlResult r = RunCtl({"--json", "verify-account", "viewer@example.com"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_FALSE(v["ok"].asBool());
    EXPECT_EQ(-1, v["result"].asInt());
    EXPECT_TRUE(Contains(r.err, "verify-account: the account UI answered with a failure")) << r.err;
}

TEST_F(CtlUi, VerifyPinActionsByType)
{
    SignInViewer();
    Script(kPinApp, {"Result=PINComplete", "Response=PINSuccess"});
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"verify-pin"}, "PINVerify"},
        {{"verify-pin", "--pin-type", "other-account"}, "PINVerify_NAccount"},
        {{"verify-pin", "--pin-type", "plain"}, "Default"},
        {{"verify-pin", "--pin-type", "7"}, "Default"},
        {{"setup-pin"}, "PINSetup"},
        {{"setup-pin", "--pin-type", "high"}, "PINSetup_High"},
        {{"setup-pin", "other@example.com", "--pin-type", "2"}, "PINSetup_NAccount"},
    };
    for (const auto &[args, action] : cases) {
        CtlResult r = RunCtl(args);
        EXPECT_EQ(0, r.status) << action << "\n" << Show(r);
        EXPECT_EQ("success (response: PINSuccess)\n", r.out) << action;
        apptest::Record record = UiRecord(kPinApp);
        EXPECT_EQ(action, record.Get("extra.ACTION"));
        EXPECT_EQ(action == "Default" ? "single" : "group", record.Get("launch_mode")) << action;
    }
    EXPECT_EQ("other@example.com", UiRecord(kPinApp).Get("extra.ACCOUNT_ID"));
}

TEST_F(CtlUi, VerifyPinChangeOfAccountIsAnAnswer)
{
    SignInViewer();
    Script(kPinApp, {"Result=PINComplete", "Response=PINChangeAccount"});
    CtlResult r = RunCtl({"--json", "verify-pin"});
    ASSERT_EQ(0, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v["ok"].asBool());
    EXPECT_EQ("change_account", v["reply"]["result"].asString());
    EXPECT_EQ("PINChangeAccount", v["reply"]["response"].asString());
    EXPECT_EQ("viewer@example.com", v["account_id"].asString());
}

TEST_F(CtlUi, AFailedPinVerificationExitsOne)
{
    SignInViewer();
    Script(kPinApp, {"Result=PINComplete", "Response=PINWrong"});
    CtlResult r = RunCtl({"verify-pin"});
    EXPECT_EQ(1, r.status) << Show(r);
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(Contains(r.err, "answered \"failed\" (response: PINWrong)")) << r.err;
}

TEST_F(CtlUi, VerifyPinSignedOutIsRefused)
{
    CtlResult unnamed = RunCtl({"verify-pin"});
    EXPECT_EQ(1, unnamed.status) << Show(unnamed);
    EXPECT_TRUE(Contains(unnamed.err, "nobody is signed in")) << unnamed.err;
    CtlResult named = RunCtl({"--json", "verify-pin", "viewer@example.com"});
    EXPECT_EQ(1, named.status) << Show(named);
    EXPECT_TRUE(ParseJson(named.out)["refused"].asBool());
    EXPECT_FALSE(Launched(kPinApp));
}

TEST_F(CtlUi, VerifyPinTimesOutWhileThePinApplicationHangs)
{
    SignInViewer();
    Script(kPinApp, {"action=hang"});
    CtlResult r = RunCtl({"--timeout", "400", "setup-pin"});
    EXPECT_EQ(3, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.err, "setup-pin: timed out after 400 ms")) << r.err;
}

// Nothing registered as the account UI: the launches fail.
class CtlUiMissing : public CtlUi {
protected:
    bool RegisterAll() const override { return false; }
};

TEST_F(CtlUiMissing, ShowFailsToLaunch)
{
    CtlResult r = RunCtl({"--json", "show", "sign-in"});
    EXPECT_EQ(1, r.status) << Show(r);
    Json::Value v = ParseJson(r.out);
    EXPECT_FALSE(v["launched"].asBool());
    EXPECT_EQ(1, v["result"].asInt());
    EXPECT_TRUE(Contains(r.err, "show: the account UI could not be launched")) << r.err;
}

TEST_F(CtlUiMissing, TheTermsPageIsTheWebApplication)
{
    // The account application alone does not serve the terms page.
    ASSERT_EQ(0, apptest::RunCli({"app", "add", kAccountApp, "--exec",
                                  ssotest::ToolPath("sso-account-ui-test")})
                     .status);
    CtlResult missing = RunCtl({"show", "terms"});
    EXPECT_EQ(1, missing.status) << Show(missing);
    ASSERT_EQ(0, apptest::RunCli(
                     {"app", "add", kWebApp, "--exec", ssotest::ToolPath("sso-account-ui-test")})
                     .status);
    CtlResult r = RunCtl({"show", "terms"});
    EXPECT_EQ(0, r.status) << Show(r);
    EXPECT_EQ("web page launched\nstate: signed out\n", r.out);
    EXPECT_EQ(0, RunCtl({"show", "web-account"}).status);
}

TEST_F(CtlUiMissing, VerifyPinFailsToLaunch)
{
    SignInViewer();
    CtlResult r = RunCtl({"verify-pin"});
    EXPECT_EQ(1, r.status) << Show(r);
    EXPECT_TRUE(Contains(r.err, "verify-pin: the account UI could not be launched")) << r.err;
}

} // namespace
