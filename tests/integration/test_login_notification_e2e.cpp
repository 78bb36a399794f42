// Login notification across processes: the simulator (a process of its own)
// signs users in and out; this application process runs a GLib main loop on
// which the library delivers the notifications.
#include <sso_api/sso_api.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "records.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

struct Note {
    std::string who;
    std::thread::id thread;
    sso_login_state state = SSO_NOT_LOGIN;
    std::string text;
    std::string icon;
    bool hasIcon = false;
};

ssotest::Records<Note> g_notes;

void Add(Note n)
{
    g_notes.Add(std::move(n));
}

std::vector<Note> Notes()
{
    return g_notes.All();
}

int Single(void *, int, sso_login_state state, char *text, char *icon)
{
    Add({"single", std::this_thread::get_id(), state, text ? text : "", icon ? icon : "",
         icon != nullptr});
    return 0;
}

template <int N> int Entry(sso_login_state state, char *guid, void *icon)
{
    Add({"entry" + std::to_string(N), std::this_thread::get_id(), state, guid ? guid : "",
         icon ? static_cast<char *>(icon) : "", icon != nullptr});
    return 0;
}

class LoginAcrossProcesses : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        SimulatorTest::SetUp();
        kimGuid_ = sim_.AddAccount(ssotest::KimAccount());
        g_notes.Clear();
    }
    void TearDown() override
    {
        loop_.Run([] {
            sso_unregister_login_state_changed_cb(Entry<1>);
            sso_unregister_login_state_changed_cb(Entry<2>);
            sso_unregister_login_state_changed_cb(Entry<3>);
            sso_cb_reset();
        });
        loop_.Stop();
        SimulatorTest::TearDown();
    }
    bool WaitForNotes(size_t n) { return g_notes.WaitFor(n); }

    vconftest::LoopThread loop_;
    std::string kimGuid_;
};

TEST_F(LoginAcrossProcesses, SubscribersHearSignInAndOutInOrderOnTheMainLoopThread)
{
    loop_.Run([] {
        ASSERT_EQ(sso_subscribe_login_state_change(Single, nullptr), 0);
        ASSERT_EQ(sso_register_login_state_changed_cb(Entry<1>, nullptr), 0);
        ASSERT_EQ(sso_register_login_state_changed_cb(Entry<2>, nullptr), 0);
        ASSERT_EQ(sso_register_login_state_changed_cb(Entry<3>, nullptr), 0);
    });
    std::vector<std::pair<void *, std::string>> order = {
        {reinterpret_cast<void *>(&Entry<1>), "entry1"},
        {reinterpret_cast<void *>(&Entry<2>), "entry2"},
        {reinterpret_cast<void *>(&Entry<3>), "entry3"}};
    std::sort(order.begin(), order.end());

    sim_.SignIn("kim@example.com");
    ASSERT_TRUE(WaitForNotes(4));
    auto notes = Notes();
    EXPECT_EQ(notes[0].who, "single");
    EXPECT_EQ(notes[0].state, SSO_LOGEDIN);
    EXPECT_EQ(notes[0].text, "kim@example.com");
    EXPECT_EQ(notes[0].icon, "/opt/usr/share/account/kim.png");
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(notes[i + 1].who, order[i].second);
        EXPECT_EQ(notes[i + 1].text, kimGuid_);
        EXPECT_EQ(notes[i + 1].icon, "/opt/usr/share/account/kim.png");
    }
    for (const auto &n : notes)
        EXPECT_EQ(n.thread, loop_.id());

    sim_.SignOut();
    ASSERT_TRUE(WaitForNotes(8));
    notes = Notes();
    EXPECT_EQ(notes[4].who, "single");
    EXPECT_EQ(notes[4].state, SSO_NOT_LOGIN);
    EXPECT_EQ(notes[4].text, "kim@example.com");
    EXPECT_FALSE(notes[4].hasIcon);
    for (size_t i = 5; i < 8; ++i) {
        EXPECT_EQ(notes[i].state, SSO_NOT_LOGIN);
        EXPECT_EQ(notes[i].text, kimGuid_);
        EXPECT_FALSE(notes[i].hasIcon);
    }
}

TEST_F(LoginAcrossProcesses, TheExtendedTextCarriesTheEventSubType)
{
    loop_.Run([] { ASSERT_EQ(sso_subscribe_login_state_change_extra(Single, nullptr), 0); });
    sim_.SignIn("kim@example.com");
    ASSERT_TRUE(WaitForNotes(1));
    EXPECT_EQ(Notes()[0].text, "kim@example.com|" + kimGuid_ + "|LOGIN");
    sim_.SignOut();
    ASSERT_TRUE(WaitForNotes(2));
    EXPECT_EQ(Notes()[1].text, "kim@example.com|" + kimGuid_ + "|LOGOUT");
}

TEST_F(LoginAcrossProcesses, AfterUnsubscribeEntriesHearNothingUntilANewSubscription)
{
    loop_.Run([] {
        ASSERT_EQ(sso_register_login_state_changed_cb(Entry<1>, nullptr), 0);
        ASSERT_EQ(sso_subscribe_login_state_change(Single, nullptr), 0);
        sso_unsubscribe_login_state_change();
    });
    vconftest::Recorder marker;
    loop_.Subscribe("db/sso/login_status", vconftest::Recorder::Callback<1>, &marker);
    sim_.SignIn("kim@example.com");
    ASSERT_TRUE(marker.WaitForCount("db/sso/login_status", 1));
    loop_.Run([] {});
    EXPECT_TRUE(Notes().empty());
    loop_.Run([] { ASSERT_EQ(sso_subscribe_login_state_change(Single, nullptr), 0); });
    sim_.SignOut();
    ASSERT_TRUE(WaitForNotes(2));
    EXPECT_EQ(Notes()[0].who, "single");
    EXPECT_EQ(Notes()[1].who, "entry1");
}

} // namespace
