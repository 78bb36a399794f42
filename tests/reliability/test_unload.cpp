// Unloading the library (dlclose) while it is busy: results still arriving,
// a request blocked on a slow service. Nothing may run in the unloaded code
// afterwards: no callback is called, the library's thread is joined, and the
// process holds what it held before the library was loaded.
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "sso_api/sso_api.h"
#include "unload_support.h"

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
        before_ = reliability::HoldingsWithGlibThreads();
        fdList_ = reliability::OpenFds();
    }

    void TearDown() override
    {
        library_.reset();
        SimulatorTest::TearDown();
    }

    void Load()
    {
        library_.reset(new reliability::LoadedLibrary);
        library_->Load();
        library_->Find("sso_request_authcode_for_other_device", request_);
        library_->Find("sso_check_alive", check_);
    }

    // dlclose, and the library really went.
    void Unload_()
    {
        library_->Unload(log(), kAppId);
        g_unloaded = true;
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

    std::unique_ptr<reliability::LoadedLibrary> library_;
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
