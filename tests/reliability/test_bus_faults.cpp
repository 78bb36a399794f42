// A system bus that hangs (the daemon stopped, its socket still there), is
// gone (socket removed) or refuses connections (a socket nobody listens on)
// under a client. Every wait of the library is bounded
// all the same: a request fails within the link's set-up plus one call, and
// so does a request queued behind it; sso_give_proxy() and the exit() of a
// process end within moments, whatever other threads are doing inside the
// library; once the bus answers again, requests work again.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "bus_fault_support.h"
#include "sso_api/sso_api.h"

#ifndef SSO_FAULT_APP
#error "SSO_FAULT_APP must name the sso-fault-app helper"
#endif

namespace {

using reliability::Ms;
using reliability::ReceivedLog;
using reliability::RecordingCb;
using reliability::Timed;

constexpr char kAppId[] = "org.example.busfaults";

// The most one request may block: the link's set-up (10 s) and one call
// (5 s), with room for a loaded machine.
constexpr long long kRequestBoundMs = 16000;
// Tear-down never waits on the bus.
constexpr long long kTearDownBoundMs = 1000;
// Tear-down while another thread is inside the set-up.
constexpr long long kTearDownBusyBoundMs = 2000;

int Send(void *userData)
{
    return sso_request_authcode_for_other_device("DSC-busfaults", &RecordingCb, userData);
}

class BusFaults : public reliability::AppTest<reliability::BusFaultTest, kAppId> {
protected:
    // A request and its result: the link is up and idle.
    void Link()
    {
        static int linked;
        ASSERT_EQ(Send(&linked), 0);
        ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));
    }

    // A thread of this process inside the link's set-up.
    std::thread RequestInsideTheSetUp(std::atomic<int> &result, std::atomic<long long> &took)
    {
        std::thread caller([&result, &took] {
            static int queued;
            int rc = -2;
            took = Timed([&] { rc = Send(&queued); }).count();
            result = rc;
        });
        EXPECT_TRUE(
            ssotest::WaitUntil([&] { return reliability::TransportCreated(log(), getpid()); }));
        return caller;
    }

    // sso_give_proxy timed while caller is inside a request, and how long the
    // caller then took to leave it.
    struct GiveProxyTimes {
        long long took;
        long long callerLeft;
    };
    static GiveProxyTimes GiveProxyWith(std::thread &caller)
    {
        auto given = reliability::Clock::now();
        long long took = Timed([] { sso_give_proxy(); }).count();
        caller.join();
        return {took, std::chrono::duration_cast<Ms>(reliability::Clock::now() - given).count()};
    }

    // Process pid logged n calls to the service (the transport logs each
    // before it waits for the bus).
    bool CallsLogged(pid_t pid, size_t n)
    {
        return log().LinesWith({" " + std::to_string(pid) + " ", "m_objectName ["}).size() >= n;
    }

    // The fault app's exit: from being told to, to its reaping.
    long long ExitTime(ssotest::ChildProcess &app)
    {
        int status = -2;
        long long took = Timed([&] {
                             app.Kill(SIGUSR1);
                             status = app.Wait(std::chrono::seconds(30));
                         }).count();
        EXPECT_EQ(status, 0) << app.ReadStdout(Ms(100));
        return took;
    }
};

TEST_P(BusFaults, TheFirstRequestAndOneQueuedBehindItFailWithinTheSetUpAndOneCall)
{
    BreakBus();
    std::atomic<int> first{-2};
    std::atomic<long long> firstTook{0};
    std::thread setUp = RequestInsideTheSetUp(first, firstTook);

    static int second;
    int queued = -2;
    long long queuedTook = Timed([&] { queued = Send(&second); }).count();
    setUp.join();

    EXPECT_EQ(first.load(), -1);
    EXPECT_EQ(queued, -1);
    EXPECT_LT(firstTook.load(), kRequestBoundMs);
    EXPECT_LT(queuedTook, kRequestBoundMs);
    EXPECT_EQ(ReceivedLog::Get().Count(), 0u);

    // A failed set-up is not for good: once the bus answers, the next
    // request brings the link up and gets its result.
    MendBus();
    static int later;
    ASSERT_EQ(Send(&later), 0);
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));
    EXPECT_EQ(ReceivedLog::Get().CountFor(&later), 1);
}

TEST_P(BusFaults, GiveProxyOfAnIdleClientTakesUnderASecond)
{
    Link();
    // The helper below finds the monitor thread while the link is up.
    ASSERT_NE(reliability::ThreadIdNamed("SSOProxyMonitor"), 0) << reliability::ThreadNames();
    BreakBus();
    long long took = Timed([] { sso_give_proxy(); }).count();
    EXPECT_LT(took, kTearDownBoundMs);
    // The link is given up: its monitor thread is gone.
    EXPECT_EQ(reliability::ThreadIdNamed("SSOProxyMonitor"), 0) << reliability::ThreadNames();
    // Given up for good: nothing more goes to the bus, nothing waits on it.
    long long checkTook = Timed([] { EXPECT_EQ(sso_check_alive(), -1); }).count();
    EXPECT_LT(checkTook, kTearDownBoundMs);
}

TEST_P(BusFaults, GiveProxyWithARequestInsideTheSetUpTakesUnderASecond)
{
    BreakBus();
    std::atomic<int> result{-2};
    std::atomic<long long> requestTook{0};
    std::thread caller = RequestInsideTheSetUp(result, requestTook);
    auto [took, callerLeft] = GiveProxyWith(caller);

    EXPECT_LT(took, kTearDownBoundMs);
    // The request is cut short, not waited out.
    EXPECT_EQ(result.load(), -1);
    EXPECT_LT(callerLeft, kTearDownBusyBoundMs);
    EXPECT_EQ(sso_check_alive(), -1);
}

TEST_P(BusFaults, GiveProxyWithARequestWaitingForTheBusTakesUnderASecond)
{
    Link();
    BreakBus();
    std::atomic<int> result{-2};
    std::thread caller([&result] {
        static int waiting;
        result = Send(&waiting);
    });
    // The second call (the first was the link's): waiting for the bus, or
    // already failed when nobody can be reached.
    ASSERT_TRUE(ssotest::WaitUntil([&] { return CallsLogged(getpid(), 2) || result != -2; }));
    auto [took, callerLeft] = GiveProxyWith(caller);

    EXPECT_LT(took, kTearDownBoundMs);
    EXPECT_EQ(result.load(), -1);
    EXPECT_LT(callerLeft, kTearDownBusyBoundMs);
}

TEST_P(BusFaults, GiveProxyBeforeAnyRequestTakesUnderASecond)
{
    BreakBus();
    long long took = Timed([] { sso_give_proxy(); }).count();
    EXPECT_LT(took, kTearDownBoundMs);
    EXPECT_EQ(sso_check_alive(), -1);
}

TEST_P(BusFaults, AnIdleClientExitsWithinASecond)
{
    ssotest::ChildProcess app = ssotest::ChildProcess::Spawn({SSO_FAULT_APP, "idle"});
    ASSERT_TRUE(app.WaitForOutput("linked", std::chrono::seconds(20)));
    ASSERT_TRUE(app.WaitForOutput("\n"));
    // Accepted, and its result (whatever the service's code) came back.
    ASSERT_NE(app.output().find("linked 0 "), std::string::npos) << app.output();
    ASSERT_EQ(app.output().find("-1000"), std::string::npos) << app.output();
    BreakBus();
    EXPECT_LT(ExitTime(app), kTearDownBoundMs);
}

TEST_P(BusFaults, AClientWithARequestInsideTheSetUpExitsWithinTwoSeconds)
{
    BreakBus();
    ssotest::ChildProcess app = ssotest::ChildProcess::Spawn({SSO_FAULT_APP, "setup"});
    ASSERT_TRUE(app.WaitForOutput("calling"));
    const pid_t pid = app.pid();
    ASSERT_TRUE(ssotest::WaitUntil([&] { return reliability::TransportCreated(log(), pid); }));
    EXPECT_LT(ExitTime(app), kTearDownBusyBoundMs);
}

TEST_P(BusFaults, AClientWithARequestWaitingForTheBusExitsWithinTwoSeconds)
{
    ssotest::ChildProcess app = ssotest::ChildProcess::Spawn({SSO_FAULT_APP, "call"});
    ASSERT_TRUE(app.WaitForOutput("linked", std::chrono::seconds(20)));
    ASSERT_TRUE(app.WaitForOutput("\n"));
    ASSERT_NE(app.output().find("linked 0 "), std::string::npos) << app.output();
    BreakBus();
    app.Kill(SIGUSR2);
    ASSERT_TRUE(app.WaitForOutput("calling"));
    const pid_t pid = app.pid();
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return CallsLogged(pid, 2) || app.WaitForOutput("returned", Ms(20));
    })) << app.output();
    EXPECT_LT(ExitTime(app), kTearDownBusyBoundMs);
}

INSTANTIATE_TEST_SUITE_P(Bus, BusFaults, reliability::AllBusFaults(), reliability::BusFaultName);

} // namespace
