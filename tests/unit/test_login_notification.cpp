// Login-state notification: the single subscriber (plain and extended), the
// registered callbacks, the one shared settings watch, and the one-shot
// account-view callback. Subscriptions are made on a thread that runs a GLib
// main loop, as an application does; deliveries must arrive there.
#include <sso_api/sso_api.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SSOAPIUtil.h"
#include "account_documents.h"
#include "records.h"
#include "sso_api_private.h"
#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

using ssotest::MakeAccount;
using ssotest::TestAccount;

struct Call {
    std::string who;
    std::thread::id thread;
    void *userData = nullptr;
    int result = -1;
    sso_login_state state = SSO_NOT_LOGIN;
    std::string text;
    bool hasIcon = false;
    std::string icon;
};

ssotest::Records<Call> g_calls;

void Add(Call c)
{
    g_calls.Add(std::move(c));
}

std::vector<Call> Calls()
{
    return g_calls.All();
}

template <int N> int Single(void *ud, int result, sso_login_state state, char *text, char *icon)
{
    Call c;
    c.who = "single" + std::to_string(N);
    c.thread = std::this_thread::get_id();
    c.userData = ud;
    c.result = result;
    c.state = state;
    c.text = text ? text : "(null)";
    c.hasIcon = icon != nullptr;
    c.icon = icon ? icon : "";
    Add(c);
    return 0;
}

template <int N> int Multi(sso_login_state state, char *guid, void *icon)
{
    Call c;
    c.who = "multi" + std::to_string(N);
    c.thread = std::this_thread::get_id();
    c.state = state;
    c.text = guid ? guid : "(null)";
    c.hasIcon = icon != nullptr;
    c.icon = icon ? static_cast<char *>(icon) : "";
    Add(c);
    return 0;
}

int ViewClosed(void *ud, int result, char *data)
{
    Call c;
    c.who = "view";
    c.thread = std::this_thread::get_id();
    c.userData = ud;
    c.result = result;
    c.text = data ? data : "(null)";
    Add(c);
    return 0;
}

class LoginNotification : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        g_calls.Clear();
        accounts_ = {MakeAccount(1), MakeAccount(2)};
        ssotest::PublishDocument(ssotest::Document(accounts_, -1));
        vconf_set_int("db/sso/login_status", 0);
    }
    void TearDown() override
    {
        loop_.Run([] { sso_cb_reset(); });
        for (auto fn : registered_)
            loop_.Run([fn] { sso_unregister_login_state_changed_cb(fn); });
        loop_.Stop();
    }

    int Register(sso_login_state_changed_multi_cb fn, void *ud)
    {
        int rc = -1;
        loop_.Run([&] { rc = sso_register_login_state_changed_cb(fn, ud); });
        if (rc == 0)
            registered_.push_back(fn);
        return rc;
    }

    // The service's sign-in: the document first, the login state last.
    void ServiceSignsIn(int index, const std::string &eventExtra = "")
    {
        vconf_set_str("memory/sso/event_extra",
                      eventExtra.empty()
                          ? (accounts_[index].id + "|" + accounts_[index].guid + "|LOGIN").c_str()
                          : eventExtra.c_str());
        ssotest::SignIn(accounts_, index);
    }

    void ServiceSignsOut(int index)
    {
        vconf_set_str("memory/sso/prev_login_id", accounts_[index].id.c_str());
        vconf_set_str("memory/sso/prev_login_guid", accounts_[index].guid.c_str());
        vconf_set_str("memory/sso/event_extra",
                      (accounts_[index].id + "|" + accounts_[index].guid + "|LOGOUT|x").c_str());
        ssotest::SignIn(accounts_, -1);
    }

    bool WaitForCalls(size_t n) { return g_calls.WaitFor(n); }

    vconftest::LoopThread loop_;
    std::vector<TestAccount> accounts_;
    std::vector<sso_login_state_changed_multi_cb> registered_;
};

TEST_F(LoginNotification, ASignInReachesTheSubscriberOnItsMainLoopThread)
{
    int ud = 0;
    int rc = -1;
    loop_.Run([&] { rc = sso_subscribe_login_state_change(Single<1>, &ud); });
    ASSERT_EQ(rc, 0);
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(1));
    Call c = Calls()[0];
    EXPECT_EQ(c.thread, loop_.id());
    EXPECT_EQ(c.userData, &ud);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.state, SSO_LOGEDIN);
    EXPECT_EQ(c.text, accounts_[0].id);
    EXPECT_TRUE(c.hasIcon);
    EXPECT_EQ(c.icon, accounts_[0].icon);
    EXPECT_TRUE(log().Contains("(START) s_login_state_changed_callback [SSO_LOGEDIN][" +
                               accounts_[0].id + "]"));
}

TEST_F(LoginNotification, ASignOutCarriesThePreviousLoginIdAndNoIcon)
{
    loop_.Run([] { sso_subscribe_login_state_change(Single<1>, nullptr); });
    ServiceSignsIn(1);
    ASSERT_TRUE(WaitForCalls(1));
    ServiceSignsOut(1);
    ASSERT_TRUE(WaitForCalls(2));
    Call c = Calls()[1];
    EXPECT_EQ(c.state, SSO_NOT_LOGIN);
    EXPECT_EQ(c.text, accounts_[1].id);
    EXPECT_FALSE(c.hasIcon);
}

TEST_F(LoginNotification, TheExtendedTextJoinsLoginIdGuidAndEventSubType)
{
    loop_.Run([] { sso_subscribe_login_state_change_extra(Single<1>, nullptr); });
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Calls()[0].text, accounts_[0].id + "|" + accounts_[0].guid + "|LOGIN");
    ServiceSignsOut(0);
    ASSERT_TRUE(WaitForCalls(2));
    EXPECT_EQ(Calls()[1].text, accounts_[0].id + "|" + accounts_[0].guid + "|LOGOUT");
    // The GUID stays out of the log without the debug marker.
    EXPECT_FALSE(log().Contains(accounts_[0].guid));
}

TEST_F(LoginNotification, AnEventExtraOfTwoPiecesGivesSubTypeNone)
{
    loop_.Run([] { sso_subscribe_login_state_change_extra(Single<1>, nullptr); });
    ServiceSignsIn(0, "only|two");
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Calls()[0].text, accounts_[0].id + "|" + accounts_[0].guid + "|NONE");
    EXPECT_TRUE(log().Contains("vecEventExtra.size < 3"));
}

TEST_F(LoginNotification, TheExtendedFormSurvivesAPlainResubscription)
{
    loop_.Run([] {
        sso_subscribe_login_state_change_extra(Single<1>, nullptr);
        sso_subscribe_login_state_change(Single<2>, nullptr);
    });
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Calls()[0].who, "single2");
    EXPECT_EQ(Calls()[0].text, accounts_[0].id + "|" + accounts_[0].guid + "|LOGIN");
}

TEST_F(LoginNotification, SubscribingTwiceReplacesTheFirstSubscriber)
{
    int a = 0, b = 0;
    loop_.Run([&] {
        EXPECT_EQ(sso_subscribe_login_state_change(Single<1>, &a), 0);
        EXPECT_EQ(sso_subscribe_login_state_change(Single<2>, &b), 0);
    });
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(1));
    ssotest::SetLoginState(0);
    ASSERT_TRUE(WaitForCalls(2));
    for (const auto &c : Calls()) {
        EXPECT_EQ(c.who, "single2");
        EXPECT_EQ(c.userData, &b);
    }
    EXPECT_TRUE(log().Contains("Already registered vconf [db/sso/login_status] changed callback"));
}

TEST_F(LoginNotification, AStoredValueOtherThanOneIsDeliveredAsSignedOut)
{
    loop_.Run([] { sso_subscribe_login_state_change(Single<1>, nullptr); });
    ssotest::SetLoginState(2);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(Calls()[0].state, SSO_NOT_LOGIN);
    EXPECT_TRUE(log().Contains("SSO_VCONF_LOGIN_STATE [2]"));
}

TEST_F(LoginNotification, TheSingleSubscriberComesFirstThenTheMapInPointerOrder)
{
    loop_.Run([] { sso_subscribe_login_state_change(Single<1>, nullptr); });
    int ud1 = 0, ud2 = 0, ud3 = 0;
    ASSERT_EQ(Register(Multi<1>, &ud1), 0);
    ASSERT_EQ(Register(Multi<2>, &ud2), 0);
    ASSERT_EQ(Register(Multi<3>, &ud3), 0);
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(4));
    auto calls = Calls();
    EXPECT_EQ(calls[0].who, "single1");
    std::vector<std::pair<void *, std::string>> expected = {
        {reinterpret_cast<void *>(&Multi<1>), "multi1"},
        {reinterpret_cast<void *>(&Multi<2>), "multi2"},
        {reinterpret_cast<void *>(&Multi<3>), "multi3"}};
    std::sort(expected.begin(), expected.end());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(calls[i + 1].who, expected[i].second);
        EXPECT_EQ(calls[i + 1].thread, loop_.id());
        EXPECT_EQ(calls[i + 1].state, SSO_LOGEDIN);
        EXPECT_EQ(calls[i + 1].text, accounts_[0].guid);
        // The third argument is the icon path, not the registered user data.
        EXPECT_TRUE(calls[i + 1].hasIcon);
        EXPECT_EQ(calls[i + 1].icon, accounts_[0].icon);
    }
}

TEST_F(LoginNotification, MapEntriesGetThePreviousGuidOnSignOut)
{
    ASSERT_EQ(Register(Multi<1>, nullptr), 0);
    ServiceSignsIn(0);
    ASSERT_TRUE(WaitForCalls(1));
    ServiceSignsOut(0);
    ASSERT_TRUE(WaitForCalls(2));
    EXPECT_EQ(Calls()[1].state, SSO_NOT_LOGIN);
    EXPECT_EQ(Calls()[1].text, accounts_[0].guid);
    EXPECT_FALSE(Calls()[1].hasIcon);
}

TEST_F(LoginNotification, RegisteringTheSameCallbackTwiceKeepsTheFirstUserData)
{
    int a = 0, b = 0;
    ASSERT_EQ(Register(Multi<1>, &a), 0);
    int rc = 0;
    sso_error_e cause = SSO_ERROR_NONE;
    loop_.Run([&] {
        rc = sso_register_login_state_changed_cb(Multi<1>, &b);
        cause = sso_last_error();
    });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(cause, SSO_ERROR_INVALID_ARGUMENT) << sso_error_name(cause);
    EXPECT_TRUE(log().Contains("Callback already present return .."));
    EXPECT_TRUE(log().Contains("map size 1"));
}

TEST_F(LoginNotification, UnregisteringAnUnknownCallbackIsNoError)
{
    int rc = -1;
    loop_.Run([&] { rc = sso_unregister_login_state_changed_cb(Multi<5>); });
    EXPECT_EQ(rc, 0);
}

TEST_F(LoginNotification, AfterUnsubscribeMapEntriesHearNothingUntilANewSubscription)
{
    ASSERT_EQ(Register(Multi<1>, nullptr), 0);
    loop_.Run([] { sso_subscribe_login_state_change(Single<1>, nullptr); });
    loop_.Run([] { sso_unsubscribe_login_state_change(); });
    ServiceSignsIn(0);
    // A marker subscriber of the platform's own proves the change was
    // delivered to this process before asserting that ours heard nothing.
    vconftest::Recorder marker;
    loop_.Subscribe("db/sso/login_status", vconftest::Recorder::Callback<7>, &marker);
    ssotest::SetLoginState(0);
    ASSERT_TRUE(ssotest::WaitUntil([&] { return marker.Count("db/sso/login_status") >= 1; }));
    loop_.Run([] {});
    EXPECT_EQ(g_calls.Count(), 0u);
    // A new registration brings the watch back for everyone in the map.
    ASSERT_EQ(Register(Multi<2>, nullptr), 0);
    ServiceSignsIn(1);
    ASSERT_TRUE(WaitForCalls(2));
}

TEST_F(LoginNotification, TheWatchGoesWithTheLastEntryWhenNoSingleSubscriberRemains)
{
    ASSERT_EQ(Register(Multi<1>, nullptr), 0);
    ASSERT_EQ(Register(Multi<2>, nullptr), 0);
    loop_.Run([] { sso_unregister_login_state_changed_cb(Multi<1>); });
    EXPECT_FALSE(log().Contains("[START] s_is_vconf_notify_login_state_registered [1]"));
    loop_.Run([] { sso_unregister_login_state_changed_cb(Multi<2>); });
    EXPECT_TRUE(log().Contains("[START] s_is_vconf_notify_login_state_registered [1]"));
    registered_.clear();
}

TEST_F(LoginNotification, NothingIsDeliveredOnceTheLibraryIsTerminated)
{
    loop_.Run([] { sso_subscribe_login_state_change(Single<1>, nullptr); });
    SSOAPIUtil::SetClientToTerminated();
    ServiceSignsIn(0);
    ASSERT_TRUE(
        ssotest::WaitUntil([&] { return log().Contains("SSOAPIClientLifeCycle is deleted"); }));
    EXPECT_EQ(g_calls.Count(), 0u);
    SSOAPIUtil::SetClientToAlive();
}

// --------------------------------------------------------- account view

TEST_F(LoginNotification, TheViewCallbackFiresOnceWhenTheViewCloses)
{
    int ud = 0;
    loop_.Run([&] { sso_private_arm_view_state_callback(ViewClosed, &ud); });
    vconf_set_int("memory/sso/view_status", 1);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return log().Contains("Ignore! s_account_view_state_changed_callback will not be invoked.");
    }));
    EXPECT_EQ(g_calls.Count(), 0u);
    vconf_set_int("memory/sso/view_status", 0);
    ASSERT_TRUE(WaitForCalls(1));
    Call c = Calls()[0];
    EXPECT_EQ(c.who, "view");
    EXPECT_EQ(c.thread, loop_.id());
    EXPECT_EQ(c.userData, &ud);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.text, "(null)");
    // A further close finds the callback gone; the watch itself stays.
    vconf_set_int("memory/sso/view_status", 0);
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return log().Contains(
            "SSO_API_CHECK_NULL_RETURN. Return (s_account_view_state_changed_callback is null)");
    }));
    EXPECT_EQ(g_calls.Count(), 1u);
}

TEST_F(LoginNotification, ClearingTheViewCallbackRemovesTheWatch)
{
    loop_.Run([] { sso_private_arm_view_state_callback(ViewClosed, nullptr); });
    loop_.Run([] { sso_private_clear_vconf_view_state_callback(); });
    EXPECT_TRUE(log().Contains("Clear vconf view state callback"));
    EXPECT_EQ(sso_private_armed_view_state_callback(), nullptr);
    vconftest::Recorder marker;
    loop_.Subscribe("memory/sso/view_status", vconftest::Recorder::Callback<3>, &marker);
    vconf_set_int("memory/sso/view_status", 0);
    ASSERT_TRUE(ssotest::WaitUntil([&] { return marker.Count("memory/sso/view_status") >= 1; }));
    loop_.Run([] {});
    EXPECT_EQ(g_calls.Count(), 0u);
}

TEST_F(LoginNotification, CbResetDropsEveryRegistrationAndReturnsZero)
{
    loop_.Run([] {
        sso_subscribe_login_state_change(Single<1>, nullptr);
        sso_private_arm_view_state_callback(ViewClosed, nullptr);
    });
    int rc = -1;
    loop_.Run([&] { rc = sso_cb_reset(); });
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(sso_private_armed_view_state_callback(), nullptr);
    loop_.Run([&] { rc = sso_cb_reset(); });
    EXPECT_EQ(rc, 0);
}

TEST_F(LoginNotification, DeprecatedMappingAnswersFollowTheLoginState)
{
    EXPECT_EQ(sso_private_return_by_login_state_as_deprecated_api(), -1);
    EXPECT_TRUE(log().Contains("ssoResult(0) loginState(0)"));
    ssotest::SetLoginState(1);
    EXPECT_EQ(sso_private_return_by_login_state_as_deprecated_api(), 0);
    EXPECT_TRUE(log().Contains("loginState = SSO_LOGEDIN"));
}

} // namespace
