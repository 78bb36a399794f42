// The account pages (sso_show and its two variants) against the stand-in
// account UI program, launched as a real process through the platform's
// application launcher.
#include "account_ui_support.h"
#include "sso_api_private.h"

namespace {

using apptest::Extras;
using namespace uitest;

constexpr const char *kOperationDefault = APP_CONTROL_OPERATION_DEFAULT;

class Show : public AccountUiTest {
protected:
    // With app gone from the device, sso_show(type) fails to launch: it
    // returns 1, arms no view-state callback and logs the failure.
    void ExpectLaunchFailure(const char *app, int type)
    {
        ASSERT_EQ(app_control_unregister_app(app), APP_CONTROL_ERROR_NONE);
        int rc = -2;
        sso_account_ui_result_cb armed = &RecordSecond;
        loop_.Run([&] {
            rc = sso_show(type, nullptr, kCaller, RecordFirst, nullptr);
            armed = sso_private_armed_view_state_callback();
        });
        EXPECT_EQ(rc, 1);
        EXPECT_EQ(armed, nullptr);
        // The failure names the application id that was set first.
        EXPECT_TRUE(log().Contains("Failed to launch [com.veltra.tv.CSAccount], result is ["));
    }
};

// What one sso_show type sends.
struct ShowCase {
    const char *name;
    int type;
    const char *data; // may be null
    const char *appId;
    Extras extras; // in the order they are sent
    const char *mode;
};

// Parameters print as their names.
void PrintTo(const ShowCase &c, std::ostream *os)
{
    *os << c.name;
}

class ShowTypes : public AccountUiTest, public ::testing::WithParamInterface<ShowCase> {};

TEST_P(ShowTypes, LaunchesWithTheExtrasOfTheType)
{
    const ShowCase &c = GetParam();
    // Only the launch is under test here: the page never closes.
    Script(c.appId, {"view=off"});
    int rc = -2;
    loop_.Run([&] { rc = sso_show(c.type, c.data, kCaller, RecordFirst, nullptr); });
    ASSERT_EQ(rc, 0);
    apptest::Record r = WaitForRecord(c.appId);
    EXPECT_EQ(r.Get("get_launch_request"), "0");
    EXPECT_EQ(r.Get("env.SSO_PLATFORM_APP_ID"), c.appId);
    EXPECT_EQ(r.Get("app_id"), c.appId);
    EXPECT_EQ(r.Get("caller"), "");
    EXPECT_EQ(r.Get("operation"), kOperationDefault);
    EXPECT_EQ(r.Get("launch_mode"), c.mode);
    EXPECT_EQ(r.RequestExtras(), c.extras);
    EXPECT_EQ(log().Count("Succeeded to launch [com.veltra.tv.CSAccount]"), 1);
}

const std::string kSwitchAbc = R"({"request_action":"switch_account","guid":"ABC","mode":"1"})";
const std::string kVoiceKim =
    R"({"request_action":"voice_registration","account_id":"kim@example.com","mode":"1"})";

INSTANTIATE_TEST_SUITE_P(
    AllTypes, ShowTypes,
    ::testing::Values(
        ShowCase{"Type0NullData",
                 0,
                 nullptr,
                 kAccountApp,
                 {{"page", "0"}, {"data", "0"}, {"caller", kCaller}},
                 "single"},
        ShowCase{"Type0WithData",
                 0,
                 "plain text",
                 kAccountApp,
                 {{"page", "0"}, {"data", "plain text"}, {"caller", kCaller}},
                 "single"},
        ShowCase{"Type1QrSignIn",
                 1,
                 nullptr,
                 kAccountApp,
                 {{"page", "1"},
                  {"data", "0"},
                  {"caller", kCaller},
                  {"LAUNCH_TYPE", "RemoteLoginQR_Signin"}},
                 "single"},
        ShowCase{"Type30QrSignIn",
                 30,
                 "x",
                 kAccountApp,
                 {{"page", "30"},
                  {"data", "x"},
                  {"caller", kCaller},
                  {"LAUNCH_TYPE", "RemoteLoginQR_Signin"}},
                 "single"},
        ShowCase{"Type6Lazy",
                 6,
                 nullptr,
                 kAccountApp,
                 {{"page", "6"}, {"data", "0"}, {"caller", kCaller}, {"task", "lazy"}},
                 "single"},
        ShowCase{"Type9VoiceRegistration",
                 9,
                 "kim@example.com",
                 kAccountApp,
                 {{"page", "9"}, {"data", kVoiceKim}, {"caller", kCaller}, {"task", "lazy"}},
                 "single"},
        ShowCase{"Type9NullData",
                 9,
                 nullptr,
                 kAccountApp,
                 {{"page", "9"}, {"data", "0"}, {"caller", kCaller}, {"task", "lazy"}},
                 "single"},
        ShowCase{"Type10SwitchAccount",
                 10,
                 "ABC",
                 kAccountApp,
                 {{"page", "10"},
                  {"data", kSwitchAbc},
                  {"caller", kCaller},
                  {"task", "lazy"},
                  {"LAUNCH_TYPE", "Verification"}},
                 "single"},
        ShowCase{"Type10NullData",
                 10,
                 nullptr,
                 kAccountApp,
                 {{"page", "10"},
                  {"data", "0"},
                  {"caller", kCaller},
                  {"task", "lazy"},
                  {"LAUNCH_TYPE", "Verification"}},
                 "single"},
        ShowCase{"Type10Unescaped",
                 10,
                 R"(a"b\c)",
                 kAccountApp,
                 {{"page", "10"},
                  {"data", R"({"request_action":"switch_account","guid":"a"b\c","mode":"1"})"},
                  {"caller", kCaller},
                  {"task", "lazy"},
                  {"LAUNCH_TYPE", "Verification"}},
                 "single"},
        ShowCase{
            "Type7AboutAccount",
            7,
            nullptr,
            kWebApp,
            {{"page", "7"}, {"data", "0"}, {"caller", kCaller}, {"path", "/AboutVeltraAccount"}},
            "group"},
        ShowCase{
            "Type8Terms",
            8,
            "d",
            kWebApp,
            {{"page", "8"}, {"data", "d"}, {"caller", kCaller}, {"path", "/AboutVeltraAccount"}},
            "group"},
        ShowCase{"Type123CutToTwoCharacters",
                 123,
                 nullptr,
                 kAccountApp,
                 {{"page", "12"}, {"data", "0"}, {"caller", kCaller}},
                 "single"},
        ShowCase{"TypeMinus1NoAddition",
                 -1,
                 nullptr,
                 kAccountApp,
                 {{"page", "-1"}, {"data", "0"}, {"caller", kCaller}},
                 "single"},
        ShowCase{"Type31NoAddition",
                 31,
                 nullptr,
                 kAccountApp,
                 {{"page", "31"}, {"data", "0"}, {"caller", kCaller}},
                 "single"}),
    [](const ::testing::TestParamInfo<ShowCase> &info) { return std::string(info.param.name); });

TEST_F(Show, CallsBackOnceOnTheMainLoopThreadWhenTheViewCloses)
{
    int token = 0;
    int rc = -2;
    loop_.Run([&] {
        rc = sso_show(0, nullptr, kCaller, RecordFirst, &token);
        // Nothing is reported before the account UI closes.
        EXPECT_EQ(FirstCalls().Count(), 0u);
    });
    ASSERT_EQ(rc, 0);
    apptest::Record done = WaitForDone(kAccountApp);
    EXPECT_EQ(done.Get("view_on"), "0");
    EXPECT_EQ(done.Get("view_off"), "0");
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    // One more close finds the callback spent.
    ASSERT_EQ(vconf_set_int(kViewStateKey, 0), 0);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return log().Contains(
            "SSO_API_CHECK_NULL_RETURN. Return (s_account_view_state_changed_callback is null)");
    }));
    loop_.Run([] {});
    auto calls = FirstCalls().All();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].userData, &token);
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_FALSE(calls[0].hasData);
    EXPECT_EQ(calls[0].thread, loop_.id());
    EXPECT_EQ(log().Count("Succeed to register [memory/sso/view_status] changed callback"), 1);
}

TEST_F(Show, TheViewCallbackGetsTheUserDataOfTheCallThatInstalledTheWatch)
{
    int first = 0;
    int second = 0;
    loop_.Run([&] { ASSERT_EQ(sso_show(0, nullptr, kCaller, RecordFirst, &first), 0); });
    ASSERT_TRUE(FirstCalls().WaitForCount(1));
    WaitForDone(kAccountApp);
    std::remove((RecordPath(kAccountApp) + ".done").c_str());
    loop_.Run([&] { ASSERT_EQ(sso_show(6, nullptr, kCaller, RecordSecond, &second), 0); });
    WaitForDone(kAccountApp);
    ASSERT_TRUE(SecondCalls().WaitForCount(1));
    loop_.Run([] {});
    EXPECT_EQ(FirstCalls().Count(), 1u);
    auto calls = SecondCalls().All();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].userData, &first);
    EXPECT_EQ(log().Count("Succeed to register [memory/sso/view_status] changed callback"), 1);
}

TEST_F(Show, Type7CallsBackBeforeReturningAndStaysArmed)
{
    Script(kWebApp, {"view=off"});
    int token = 0;
    int rc = -2;
    size_t callsAtReturn = 0;
    sso_account_ui_result_cb armed = nullptr;
    loop_.Run([&] {
        rc = sso_show(7, nullptr, kCaller, RecordFirst, &token);
        callsAtReturn = FirstCalls().Count();
        armed = sso_private_armed_view_state_callback();
    });
    EXPECT_EQ(rc, 0);
    ASSERT_EQ(callsAtReturn, 1u);
    auto calls = FirstCalls().All();
    EXPECT_EQ(calls[0].userData, &token);
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_FALSE(calls[0].hasData);
    EXPECT_EQ(calls[0].thread, loop_.id());
    EXPECT_EQ(armed, &RecordFirst);
    EXPECT_TRUE(log().Contains("app_control_set_launch_mode APP_CONTROL_LAUNCH_MODE_GROUP"));
    EXPECT_TRUE(log().Contains("Launch Terms Popup Success"));
    WaitForRecord(kWebApp);
}

TEST_F(Show, TermPageIsType7WithoutData)
{
    Script(kWebApp, {"view=off"});
    int window = 0;
    int rc = -2;
    size_t callsAtReturn = 0;
    loop_.Run([&] {
        rc = sso_show_term_page(&window, nullptr, kCaller, RecordFirst, nullptr);
        callsAtReturn = FirstCalls().Count();
    });
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(callsAtReturn, 1u);
    apptest::Record r = WaitForRecord(kWebApp);
    EXPECT_EQ(
        r.RequestExtras(),
        (Extras{
            {"page", "7"}, {"data", "0"}, {"caller", kCaller}, {"path", "/AboutVeltraAccount"}}));
    EXPECT_EQ(r.Get("launch_mode"), "group");
}

TEST_F(Show, TransparentWindowPutsTheModeObjectUnescapedIntoTheGuid)
{
    Script(kAccountApp, {"view=off"});
    int rc = -2;
    loop_.Run([&] { rc = sso_show_with_transparent_win(10, kCaller, RecordFirst, nullptr, true); });
    ASSERT_EQ(rc, 0);
    apptest::Record r = WaitForRecord(kAccountApp);
    EXPECT_EQ(r.Get("extra.data"),
              R"({"request_action":"switch_account","guid":"{"mode":"1"}","mode":"1"})");
    EXPECT_TRUE(log().Contains("sso show with transparent window, mode is [1]"));
}

TEST_F(Show, TransparentWindowModeObjectForOtherTypes)
{
    Script(kAccountApp, {"view=off"});
    loop_.Run([&] {
        ASSERT_EQ(sso_show_with_transparent_win(0, kCaller, RecordFirst, nullptr, true), 0);
    });
    EXPECT_EQ(WaitForRecord(kAccountApp).Get("extra.data"), R"({"mode":"1"})");
}

TEST_F(Show, NoneTransparentWindowSendsASingleSpace)
{
    Script(kAccountApp, {"view=off"});
    loop_.Run([&] {
        ASSERT_EQ(sso_show_with_transparent_win(0, kCaller, RecordFirst, nullptr, false), 0);
    });
    apptest::Record r = WaitForRecord(kAccountApp);
    EXPECT_EQ(r.Get("extra.data"), " ");
    EXPECT_EQ(r.Get("extra.page"), "0");
    EXPECT_TRUE(log().Contains("by default, sso show with none transparent window"));
}

TEST_F(Show, LogsThePageCutToTwoCharacters)
{
    Script(kAccountApp, {"view=off"});
    loop_.Run([&] { ASSERT_EQ(sso_show(123, nullptr, kCaller, RecordFirst, nullptr), 0); });
    EXPECT_TRUE(log().Contains("[START] type [123]"));
    EXPECT_TRUE(log().Contains("AppID:[com.veltra.tv.CSAccount], CallerID:[org.orvex.test.caller], "
                               "Data:[0], Page:[12]"));
    EXPECT_TRUE(log().Contains("return of set extra data:[page = 0, data = 0, caller = 0], "
                               "return of set app_id:[0]"));
}

TEST_F(Show, IsNotRefusedWhenSignedOut)
{
    SetLoginState(0);
    Script(kAccountApp, {"view=off"});
    loop_.Run([&] { ASSERT_EQ(sso_show(0, nullptr, kCaller, RecordFirst, nullptr), 0); });
    WaitForRecord(kAccountApp);
}

TEST_F(Show, LaunchFailureReturns1WithoutCallbackAndDisarms)
{
    ExpectLaunchFailure(kAccountApp, 0);
    // A later close of some view reports nothing.
    ASSERT_EQ(vconf_set_int(kViewStateKey, 0), 0);
    ASSERT_TRUE(ssotest::WaitUntil(
        [&] { return log().Contains("s_account_view_state_changed_callback is null"); }));
    loop_.Run([] {});
    EXPECT_EQ(FirstCalls().Count(), 0u);
}

TEST_F(Show, WebPageLaunchFailureReturns1WithoutCallbackAndDisarms)
{
    ExpectLaunchFailure(kWebApp, 8);
    EXPECT_EQ(FirstCalls().Count(), 0u);
}

TEST_F(Show, NullArgumentsAreRefused)
{
    int window = 0;
    loop_.Run([&] {
        EXPECT_EQ(sso_show(0, nullptr, nullptr, RecordFirst, nullptr), -1);
        EXPECT_EQ(sso_show(0, "d", kCaller, nullptr, nullptr), -1);
        EXPECT_EQ(sso_show_term_page(nullptr, nullptr, kCaller, RecordFirst, nullptr), -1);
        EXPECT_EQ(sso_show_term_page(&window, nullptr, nullptr, RecordFirst, nullptr), -1);
        EXPECT_EQ(sso_show_term_page(&window, nullptr, kCaller, nullptr, nullptr), -1);
        EXPECT_EQ(sso_show_with_transparent_win(0, nullptr, RecordFirst, nullptr, true), -1);
        EXPECT_EQ(sso_show_with_transparent_win(0, kCaller, nullptr, nullptr, false), -1);
        EXPECT_EQ(sso_private_armed_view_state_callback(), nullptr);
    });
    EXPECT_EQ(FirstCalls().Count(), 0u);
    // "one of the input param..." also contains the shorter message.
    EXPECT_EQ(log().Count("the input param is nullptr, please check first"), 7);
    EXPECT_EQ(log().Count("one of the input param is nullptr, please check first"), 3);
    EXPECT_FALSE(log().Contains("Succeeded to launch"));
}

} // namespace
