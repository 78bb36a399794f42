// The account UI as the device's sign-in page: the stand-in signs the user in
// through the SSO service simulator before it closes, and the application
// then finds the user signed in.
#include "account_ui_support.h"
#include "sso_simulator_harness.h"

namespace {

using namespace uitest;

std::mutex g_mutex;
std::vector<std::pair<sso_login_state, std::thread::id>> g_closes;

int OnClosed(void *, int result, char *)
{
    sso_login_state state = SSO_NOT_LOGIN;
    sso_get_login_state(&state);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_closes.emplace_back(result == 0 ? state : SSO_NOT_LOGIN, std::this_thread::get_id());
    return 0;
}

size_t Closes()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_closes.size();
}

class SignInPage : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        SimulatorTest::SetUp();
        // Registered the way a device image does it, through the admin CLI.
        for (const char *id : {kAccountApp, kPinApp, kWebApp}) {
            apptest::CliResult r = apptest::RunCli(
                {"app", "add", id, "--exec", ssotest::ToolPath("sso-account-ui-test")});
            ASSERT_EQ(r.status, 0) << r.err;
        }
        sim_.AddAccount(ssotest::KimAccount());
        FirstCalls().Clear();
    }
    void TearDown() override
    {
        loop_.Run([] { sso_cb_reset(); });
        loop_.Stop();
        SimulatorTest::TearDown();
    }
    std::string RunDir() const { return apptest::AccountUiRunDir(root_.path()); }

    vconftest::LoopThread loop_;
};

TEST_F(SignInPage, SignsInBeforeTheViewClosesThenVerificationIsLaunched)
{
    loop_.Run([] {
        EXPECT_EQ(sso_request_account_verification("kim@example.com", RecordFirst, nullptr), -1);
    });
    EXPECT_EQ(FirstCalls().Count(), 0u);

    apptest::ScriptAccountUi(root_.path(), "", {"sign_in=kim@example.com"});
    loop_.Run([] { ASSERT_EQ(sso_show(1, nullptr, kCaller, OnClosed, nullptr), 0); });
    ASSERT_TRUE(ssotest::WaitUntil([] { return Closes() >= 1; }, std::chrono::seconds(20)));
    apptest::Record done =
        apptest::WaitForRecord(RunDir() + "/" + std::string(kAccountApp) + ".record.done");
    EXPECT_EQ(done.Get("sign_in"), "0");
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        EXPECT_EQ(g_closes[0].first, SSO_LOGEDIN);
        EXPECT_EQ(g_closes[0].second, loop_.id());
    }

    // The verification page only answers.
    apptest::ScriptAccountUi(root_.path(), "", {"Result=Complete", "Response=Verified"});
    loop_.Run([] {
        ASSERT_EQ(sso_request_account_verification("kim@example.com", RecordFirst, nullptr), 0);
    });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    auto calls = FirstCalls().All();
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_NE(calls[0].data.find("\"Verified\""), std::string::npos);
}

} // namespace
