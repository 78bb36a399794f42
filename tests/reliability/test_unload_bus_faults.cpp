// Unloading the library (dlclose) while the system bus hangs, is gone or
// refuses connections: the unload waits on nothing the bus does, cuts a
// set-up in progress short, joins the library's threads and leaves the
// process holding what it held before the library was loaded.
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "bus_fault_support.h"
#include "sso_api/sso_api.h"
#include "unload_support.h"

namespace {

using reliability::ReceivedLog;
using reliability::Timed;

constexpr char kAppId[] = "org.example.unloadbus";

using RequestFn = int (*)(const char *, sso_request_auth_code_cb, void *);

class UnloadBusFaults : public reliability::AppTest<reliability::BusFaultTest, kAppId> {
protected:
    void SetUp() override
    {
        AppTest::SetUp();
        (void)sim_.Accounts();
        before_ = reliability::HoldingsWithGlibThreads();
    }

    void TearDown() override
    {
        library_.reset();
        BusFaultTest::TearDown();
    }

    void Load()
    {
        library_.reset(new reliability::LoadedLibrary);
        library_->Load();
        library_->Find("sso_request_authcode_for_other_device", request_);
    }

    // dlclose, timed; the library really went.
    long long Unload()
    {
        return Timed([&] { library_->Unload(log(), kAppId); }).count();
    }

    void ExpectBackToBeforeTheLoad()
    {
        EXPECT_TRUE(reliability::SettlesTo(before_))
            << "threads " << reliability::ThreadNames() << "(were " << before_.threads << ")\nfds "
            << reliability::OpenFds();
    }

    std::unique_ptr<reliability::LoadedLibrary> library_;
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

INSTANTIATE_TEST_SUITE_P(Bus, UnloadBusFaults, reliability::AllBusFaults(),
                         reliability::BusFaultName);

} // namespace
