// Unloading the library (dlclose) while the system bus hangs or is gone:
// the unload waits on nothing the bus does, cuts a set-up in progress short,
// joins the library's threads and leaves the process holding what it held
// before the library was loaded.
#include <dlfcn.h>
#include <gio/gio.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "bus_fault_support.h"
#include "sso_api/sso_api.h"

#ifndef SSO_API_LIBRARY
#error "SSO_API_LIBRARY must name the built libsso_api.so"
#endif

namespace {

using reliability::BusFault;
using reliability::ReceivedLog;
using reliability::Timed;

constexpr const char *kAppId = "org.example.unloadbus";

using RequestFn = int (*)(const char *, sso_request_auth_code_cb, void *);

class UnloadBusFaults : public reliability::BusFaultTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        BusFaultTest::SetUp();
        ReceivedLog::Get().Clear();
        // GLib's own threads come before the library, as in the other
        // unload tests: they are GLib's and stay.
        (void)sim_.Accounts();
        GTask *task = g_task_new(nullptr, nullptr, nullptr, nullptr);
        g_task_run_in_thread_sync(task, [](GTask *t, gpointer, gpointer, GCancellable *) {
            g_task_return_boolean(t, TRUE);
        });
        g_object_unref(task);
        before_ = reliability::Holdings::Now();
    }

    void TearDown() override
    {
        if (handle_ != nullptr)
            dlclose(handle_);
        BusFaultTest::TearDown();
    }

    void Load()
    {
        handle_ = dlopen(SSO_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        request_ =
            reinterpret_cast<RequestFn>(dlsym(handle_, "sso_request_authcode_for_other_device"));
        ASSERT_NE(request_, nullptr);
    }

    // dlclose, timed; the library really went (its destructor logged).
    long long Unload()
    {
        log().Clear();
        long long took = Timed([&] { EXPECT_EQ(dlclose(handle_), 0); }).count();
        handle_ = nullptr;
        EXPECT_TRUE(log().Contains("m_appId[" + std::string(kAppId) + "] Alive[0]"))
            << "the library was not unloaded";
        return took;
    }

    void ExpectBackToBeforeTheLoad()
    {
        EXPECT_TRUE(reliability::SettlesTo(before_))
            << "threads " << reliability::ThreadNames() << "(were " << before_.threads << ")\nfds "
            << reliability::OpenFds();
    }

    void *handle_ = nullptr;
    RequestFn request_ = nullptr;
    reliability::Holdings before_;
};

TEST_P(UnloadBusFaults, OfAnIdleClientTakesUnderASecond)
{
    Load();
    static int linked;
    ASSERT_EQ(request_("DSC-unload-bus", &reliability::RecordingCb, &linked), 0);
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));
    BreakBus();
    EXPECT_LT(Unload(), 1000);
    ExpectBackToBeforeTheLoad();
}

TEST_P(UnloadBusFaults, WithARequestInsideTheSetUpTakesUnderTwoSeconds)
{
    Load();
    BreakBus();
    std::atomic<int> result{-2};
    RequestFn request = request_;
    std::thread caller([&] {
        static int queued;
        result = request("DSC-unload-bus", &reliability::RecordingCb, &queued);
    });
    ASSERT_TRUE(ssotest::WaitUntil([&] { return reliability::TransportCreated(log(), getpid()); }));
    EXPECT_LT(Unload(), 2000);
    caller.join();
    // Cut short, not waited out; nothing was called back.
    EXPECT_EQ(result.load(), -1);
    EXPECT_EQ(ReceivedLog::Get().Count(), 0u);
    ExpectBackToBeforeTheLoad();
}

INSTANTIATE_TEST_SUITE_P(Bus, UnloadBusFaults, ::testing::Values(BusFault::Hung, BusFault::Gone),
                         reliability::BusFaultName);

} // namespace
