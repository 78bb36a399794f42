// Unloading the library (dlclose) while it is busy: results still arriving,
// a request blocked on a slow service. Nothing may run in the unloaded code
// afterwards: no callback is called, the library's thread is joined, and the
// process holds what it held before the library was loaded.
#include <dlfcn.h>
#include <gio/gio.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "reliability_support.h"
#include "sso_api/sso_api.h"

#ifndef SSO_API_LIBRARY
#error "SSO_API_LIBRARY must name the built libsso_api.so"
#endif

namespace {

using reliability::Ms;
using reliability::ThreadCount;
using reliability::Timed;

constexpr const char *kAppId = "org.example.unload";

using RequestFn = int (*)(const char *, sso_request_auth_code_cb, void *);
using CheckFn = int (*)();

std::atomic<int> g_calls{0};
std::atomic<int> g_callsAfterUnload{0};
std::atomic<bool> g_unloaded{false};

int SlowCallback(void *, int, char *)
{
    ++g_calls;
    if (g_unloaded)
        ++g_callsAfterUnload;
    // Long enough that results queue up behind each other while unloading.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return 0;
}

class Unload : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        SimulatorTest::SetUp();
        g_calls = 0;
        g_callsAfterUnload = 0;
        g_unloaded = false;
        // GLib's own threads (its D-Bus worker, its task pool) are started
        // before the library comes, as the library's first request would:
        // they are GLib's, and stay.
        (void)sim_.Accounts();
        GTask *task = g_task_new(nullptr, nullptr, nullptr, nullptr);
        g_task_run_in_thread_sync(task, [](GTask *t, gpointer, gpointer, GCancellable *) {
            g_task_return_boolean(t, TRUE);
        });
        g_object_unref(task);
        before_ = reliability::Holdings::Now();
        fdList_ = reliability::OpenFds();
    }

    void TearDown() override
    {
        if (handle_ != nullptr)
            dlclose(handle_);
        SimulatorTest::TearDown();
    }

    void Load()
    {
        handle_ = dlopen(SSO_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        request_ =
            reinterpret_cast<RequestFn>(dlsym(handle_, "sso_request_authcode_for_other_device"));
        check_ = reinterpret_cast<CheckFn>(dlsym(handle_, "sso_check_alive"));
        ASSERT_NE(request_, nullptr);
        ASSERT_NE(check_, nullptr);
    }

    // dlclose, and the library really went: its destructor logged.
    void Unload_()
    {
        log().Clear();
        ASSERT_EQ(dlclose(handle_), 0);
        handle_ = nullptr;
        g_unloaded = true;
        EXPECT_TRUE(log().Contains("m_appId[" + std::string(kAppId) + "] Alive[0]"))
            << "the library was not unloaded";
    }

    void ExpectBackToBeforeTheLoad()
    {
        EXPECT_TRUE(reliability::SettlesTo(before_))
            << "threads " << reliability::ThreadNames() << "(were " << before_.threads << ")\nfds "
            << reliability::OpenFds() << "\nbefore: " << fdList_;
    }

    std::string ClientBusName() const
    {
        return std::string(ssotest::kSsoClientNamePrefix) + "obj" + std::to_string(getpid()) + "_" +
               kAppId;
    }

    void *handle_ = nullptr;
    RequestFn request_ = nullptr;
    CheckFn check_ = nullptr;
    reliability::Holdings before_;
    std::string fdList_;
};

TEST_F(Unload, WhileResultsArriveNoCallbackRunsAfterwardAndTheThreadIsJoined)
{
    Load();
    constexpr int kRequests = 40;
    for (int i = 0; i < kRequests; ++i)
        ASSERT_EQ(request_("DSC-unload", &SlowCallback, nullptr), 0);
    // Unload with results being delivered and more queued behind them.
    ASSERT_TRUE(ssotest::WaitUntil([] { return g_calls.load() >= 1; }));
    Unload_();
    const int delivered = g_calls.load();
    EXPECT_LT(delivered, kRequests) << "every result was in before the unload: nothing tested";

    // The service goes on sending what it owes; nobody takes it any more.
    ASSERT_TRUE(sim_.WaitForDeliveries(kRequests));
    EXPECT_TRUE(ssotest::WaitUntil([&] { return !sim_.NameHasOwner(ClientBusName()); }));
    ExpectBackToBeforeTheLoad();
    EXPECT_EQ(g_callsAfterUnload.load(), 0);
    EXPECT_EQ(g_calls.load(), delivered);
}

TEST_F(Unload, WhileARequestIsBlockedTheCallerIsReleasedAndTheThreadJoined)
{
    Load();
    ASSERT_EQ(check_(), 0);
    ssotest::Behaviour slow;
    slow.answer_delay_ms = 8000;
    sim_.Configure("sso_check_alive", slow);

    std::promise<int> result;
    Ms blockedFor{0};
    CheckFn check = check_;
    std::thread caller([&] { blockedFor = Timed([&] { result.set_value(check()); }); });
    ASSERT_TRUE(sim_.WaitForJournal(2));

    Ms unloadTook = Timed([&] { Unload_(); });
    caller.join();
    // The blocked call is given up, not waited out: the unload does not hang
    // on a slow service, and the caller gets the failure at once.
    EXPECT_EQ(result.get_future().get(), -1);
    EXPECT_LT(unloadTook.count(), 2000);
    EXPECT_LT(blockedFor.count(), 3000);
    ExpectBackToBeforeTheLoad();
}

TEST_F(Unload, LoadingAndUnloadingAgainLeavesNothingBehind)
{
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round + 1));
        Load();
        g_calls = 0;
        ASSERT_EQ(request_("DSC-round", &SlowCallback, nullptr), 0);
        ASSERT_TRUE(ssotest::WaitUntil([] { return g_calls.load() == 1; }));
        Unload_();
        g_unloaded = false;
        ExpectBackToBeforeTheLoad();
    }
}

} // namespace
