// Shared by the account UI tests: the stand-in account UI program registered
// under the three account UI ids in a fresh platform root, its scripts and
// records, and a recorder of the library's account UI callbacks.
#pragma once

#include <app_control_registry.h>
#include <sso_api/sso_api.h>
#include <sys/stat.h>
#include <vconf.h>

#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../platform/app_control_test_util.h"
#include "records.h"
#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace uitest {

using apptest::kAccountApp;
using apptest::kPinApp;
using apptest::kWebApp;
inline constexpr const char *kCaller = "org.orvex.test.caller";
inline constexpr const char *kViewStateKey = "memory/sso/view_status";
inline constexpr const char *kLoginStateKey = "db/sso/login_status";

// One call of an account UI callback.
struct Call {
    void *userData = nullptr;
    int result = 0;
    bool hasData = false;
    std::string data;
    std::thread::id thread;
};

class Calls : public ssotest::Records<Call> {
public:
    bool WaitForCount(size_t n) const { return WaitFor(n, std::chrono::seconds(20)); }
};

// Two distinct callbacks over one recorder each.
inline Calls &FirstCalls()
{
    static Calls calls;
    return calls;
}
inline Calls &SecondCalls()
{
    static Calls calls;
    return calls;
}

inline int RecordFirst(void *userData, int result, char *data)
{
    FirstCalls().Add(
        {userData, result, data != nullptr, data ? data : "", std::this_thread::get_id()});
    return 0;
}
inline int RecordSecond(void *userData, int result, char *data)
{
    SecondCalls().Add(
        {userData, result, data != nullptr, data ? data : "", std::this_thread::get_id()});
    return 0;
}

// A fresh platform root with the stand-in registered under the three ids and
// a user signed in (the login-state key only: nothing here talks to the
// service), and an application main loop.
class AccountUiTest : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        RootTest::SetUp();
        for (const char *id : {kAccountApp, kPinApp, kWebApp})
            ASSERT_EQ(app_control_register_app(id, AppPath().c_str()), APP_CONTROL_ERROR_NONE);
        SetLoginState(1);
        FirstCalls().Clear();
        SecondCalls().Clear();
    }
    void TearDown() override
    {
        loop_.Run([] { sso_cb_reset(); });
        loop_.Stop();
    }

    static std::string AppPath() { return ssotest::ToolPath("sso-account-ui-test"); }
    static void SetLoginState(int value) { ASSERT_EQ(vconf_set_int(kLoginStateKey, value), 0); }

    std::string RunDir() const { return apptest::AccountUiRunDir(root_.path()); }
    std::string RecordPath(const std::string &appId) const
    {
        return RunDir() + "/" + appId + ".record";
    }
    // Script lines for one application id, "name=value" each.
    void Script(const std::string &appId, const std::vector<std::string> &lines) const
    {
        apptest::ScriptAccountUi(root_.path(), appId, lines);
    }
    apptest::Record WaitForRecord(const std::string &appId) const
    {
        return apptest::WaitForRecord(RecordPath(appId));
    }
    apptest::Record WaitForDone(const std::string &appId) const
    {
        return apptest::WaitForRecord(RecordPath(appId) + ".done");
    }
    bool Launched(const std::string &appId) const { return apptest::FileExists(RecordPath(appId)); }

    vconftest::LoopThread loop_;
};

} // namespace uitest
