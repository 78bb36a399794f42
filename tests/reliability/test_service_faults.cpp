// Faults on the far side of the link: the service dies with requests in
// flight, the bus daemon restarts, the service answers too late, and an
// application callback blocks. After each, requests work again, every result
// reaches the callback of its own request once at most, and the process holds
// no more threads or descriptors than before.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "reliability_support.h"
#include "sso_api/sso_api.h"

namespace {

using reliability::Ms;
using reliability::ReceivedLog;
using reliability::RecordingCb;
using reliability::ThreadCount;
using reliability::Timed;

constexpr char kAppId[] = "org.example.faults";
// Needs neither a signed-in user nor a liveness check: one D-Bus call each.
constexpr const char *kRequest = "sso_request_authcode_for_other_device";

int Send(void *userData)
{
    return sso_request_authcode_for_other_device("DSC-faults", &RecordingCb, userData);
}

std::string ClientBusName()
{
    return std::string(ssotest::kSsoClientNamePrefix) + "obj" + std::to_string(getpid()) + "_" +
           kAppId;
}

class ServiceFaults : public reliability::AppTest<ssotest::SimulatorTest, kAppId> {
protected:
    // One request through and called back: the link, its thread and the
    // harness's own connection exist, so later counts compare like with like.
    void Warm()
    {
        static int warm;
        ASSERT_EQ(Send(&warm), 0);
        ASSERT_TRUE(ReceivedLog::Get().WaitFor(1));
        (void)sim_.Accounts();
        before_ = reliability::Holdings::Now();
        fdList_ = reliability::OpenFds();
    }

    void ExpectNothingLeaked()
    {
        EXPECT_TRUE(reliability::SettlesTo(before_))
            << "threads " << reliability::ThreadNames() << "(were " << before_.threads << ")\nfds "
            << reliability::OpenFds() << "\nbefore: " << fdList_;
    }

    // Every callback carried the payload the simulator sent with that very
    // user data, and no user data came back twice.
    void ExpectEachResultWentToItsOwnRequest()
    {
        std::set<void *> seen;
        for (const auto &r : ReceivedLog::Get().All()) {
            EXPECT_TRUE(seen.insert(r.userData).second) << "delivered twice: " << r.userData;
            EXPECT_EQ(r.thread, "SSOProxyMonitor");
            EXPECT_TRUE(reliability::SimulatorSent(sim_, r))
                << "callback with " << r.userData << " got '" << r.text
                << "', which the simulator never sent with that user data";
        }
    }

    reliability::Holdings before_;
    std::string fdList_;
};

TEST_F(ServiceFaults, DyingWithRequestsInFlightLosesThemAndLaterRequestsSucceed)
{
    Warm();
    ReceivedLog::Get().Clear();

    // Ten requests accepted with their results still due, and one caller
    // blocked waiting for an answer, when the service is killed.
    ssotest::Behaviour late;
    late.result_delay_ms = 3000;
    sim_.Configure(kRequest, late);
    ssotest::Behaviour slow;
    slow.answer_delay_ms = 4000;
    sim_.Configure("sso_check_alive", slow);
    std::vector<int> lost(10);
    for (auto &slot : lost)
        ASSERT_EQ(Send(&slot), 0);
    std::promise<int> blockedResult;
    std::atomic<long long> killedAt{0};
    std::thread blocked([&] { blockedResult.set_value(sso_check_alive()); });
    ASSERT_TRUE(sim_.WaitForJournal(11));

    auto kill = reliability::Clock::now();
    ASSERT_EQ(::kill(sim_.pid(), SIGKILL), 0);
    auto answer = blockedResult.get_future();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(3)), std::future_status::ready)
        << "a caller waiting on a dead service stays blocked";
    EXPECT_EQ(answer.get(), -1);
    killedAt = std::chrono::duration_cast<Ms>(reliability::Clock::now() - kill).count();
    blocked.join();
    sim_.Stop();

    // The same bus, a new service: nothing is rebuilt, requests go through.
    sim_.Start();
    std::vector<int> fresh(10);
    for (auto &slot : fresh)
        EXPECT_EQ(Send(&slot), 0);
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(fresh.size()));
    for (auto &slot : fresh)
        EXPECT_EQ(ReceivedLog::Get().CountFor(&slot), 1);
    for (auto &slot : lost)
        EXPECT_EQ(ReceivedLog::Get().CountFor(&slot), 0) << "a result of the dead service";
    // A last request is a barrier: anything queued before it has been run.
    static int barrier;
    ASSERT_EQ(Send(&barrier), 0);
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(fresh.size() + 1));
    EXPECT_EQ(ReceivedLog::Get().Count(), fresh.size() + 1);
    ExpectEachResultWentToItsOwnRequest();
    ExpectNothingLeaked();
}

TEST_F(ServiceFaults, AfterTheBusRestartsTheNextRequestRebuildsBothDirections)
{
    Warm();
    const std::string busName = ClientBusName();
    ASSERT_TRUE(sim_.NameHasOwner(busName));

    const char *rebuilt =
        "m_pConnectionToServer is disconnected. Try to clean up and connect again.";
    const int rebuiltBefore = log().Count(rebuilt);
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE("bus restart " + std::to_string(cycle + 1));
        ReceivedLog::Get().Clear();
        ASSERT_EQ(::kill(bus_.pid(), SIGKILL), 0);
        sim_.Stop();
        bus_.Restart();
        sim_.Start();
        ASSERT_FALSE(sim_.NameHasOwner(busName));
        // Threads that came and went leave their stacks for the next thread
        // to take: the rebuilt link's thread need not get its old id back.
        for (int i = 0; i < 3; ++i)
            std::thread([] {}).join();

        int first = 0;
        int second = 0;
        EXPECT_EQ(Send(&first), 0);
        // The client name is ours again on the new bus, and the object
        // behind it takes results: the first request's result arrives.
        EXPECT_TRUE(sim_.NameHasOwner(busName));
        ASSERT_TRUE(ReceivedLog::Get().WaitFor(1))
            << "the first request after the restart was never called back";
        EXPECT_EQ(Send(&second), 0);
        ASSERT_TRUE(ReceivedLog::Get().WaitFor(2));
        EXPECT_EQ(ReceivedLog::Get().CountFor(&first), 1);
        EXPECT_EQ(ReceivedLog::Get().CountFor(&second), 1);
        ExpectEachResultWentToItsOwnRequest();
    }
    EXPECT_EQ(log().Count(rebuilt), rebuiltBefore + 3);
    // The old monitor threads are joined, the old connections closed.
    ExpectNothingLeaked();
}

TEST_F(ServiceFaults, ALateServiceCostsEachCallerAtMostTheCallTimeOut)
{
    Warm();
    ssotest::Behaviour slow;
    slow.answer_delay_ms = 8000;
    sim_.Configure("sso_check_alive", slow);

    constexpr int kCallers = 3;
    std::vector<int> results(kCallers, 0);
    std::vector<Ms> blockedFor(kCallers);
    std::vector<std::thread> callers;
    for (int i = 0; i < kCallers; ++i)
        callers.emplace_back(
            [&, i] { blockedFor[i] = Timed([&] { results[i] = sso_check_alive(); }); });
    ASSERT_TRUE(sim_.WaitForJournal(1 + kCallers));

    // While they wait, another thread's request is neither queued behind
    // them nor slowed down, and its result arrives.
    static int quick;
    int quickResult = -2;
    Ms quickFor = Timed([&] { quickResult = Send(&quick); });
    EXPECT_EQ(quickResult, 0);
    EXPECT_LT(quickFor.count(), 1000);
    EXPECT_TRUE(ReceivedLog::Get().WaitFor(2));

    for (auto &t : callers)
        t.join();
    for (int i = 0; i < kCallers; ++i) {
        EXPECT_EQ(results[i], -1);
        // 5000 ms is the time-out of every call; the margin is for a loaded
        // machine, not for a second wait.
        EXPECT_GE(blockedFor[i].count(), 4900);
        EXPECT_LE(blockedFor[i].count(), 6500);
    }
    EXPECT_GE(log().Count("detail[message:Timeout was reached"), kCallers);
}

TEST_F(ServiceFaults, ALateLivenessCheckFailsTheRequestWithinOneTimeOut)
{
    // Nothing in this process has marked the service alive yet, so the
    // request asks first; that one slow answer is all it waits for.
    Warm();
    sim_.AddAccount(ssotest::KimAccount());
    sim_.SignIn("kim@example.com");
    ssotest::Behaviour slow;
    slow.answer_delay_ms = 8000;
    sim_.Configure("sso_check_alive", slow);
    static int ud;
    int result = 0;
    Ms blockedFor = Timed([&] {
        result = sso_request_access_token("org.example.player", "s3cret", &RecordingCb, &ud);
    });
    EXPECT_EQ(result, -1);
    EXPECT_GE(blockedFor.count(), 4900);
    EXPECT_LE(blockedFor.count(), 6500);
    for (const auto &entry : sim_.Journal())
        EXPECT_NE(entry.method, "sso_request_access_token") << "sent despite the failed check";
}

TEST_F(ServiceFaults, ABlockingCallbackHoldsUpLaterResultsButLosesNone)
{
    Warm();
    ReceivedLog::Get().Clear();

    static std::mutex gateMutex;
    static std::condition_variable gate;
    static bool open = false;
    static std::atomic<bool> inside{false};
    auto blocking = [](void *ud, int result, char *text) -> int {
        inside = true;
        std::unique_lock<std::mutex> lock(gateMutex);
        // Bounded, so a broken test cannot hang the run.
        gate.wait_for(lock, std::chrono::seconds(20), [] { return open; });
        ReceivedLog::Get().Add(ud, result, text);
        return 0;
    };
    static int blocker;
    ASSERT_EQ(sso_request_authcode_for_other_device("DSC-block", blocking, &blocker), 0);
    ASSERT_TRUE(ssotest::WaitUntil([] { return inside.load(); }));

    // Requests still go out at once while the library's thread is held.
    constexpr int kLater = 8;
    std::vector<int> later(kLater);
    for (auto &slot : later) {
        int result = -2;
        EXPECT_LT(Timed([&] { result = Send(&slot); }).count(), 1000);
        EXPECT_EQ(result, 0);
    }
    // The service has sent every result; none reached the application yet.
    ASSERT_TRUE(sim_.WaitForDeliveries(2 + kLater));
    EXPECT_EQ(ReceivedLog::Get().Count(), 0u);

    {
        std::lock_guard<std::mutex> lock(gateMutex);
        open = true;
    }
    gate.notify_all();
    ASSERT_TRUE(ReceivedLog::Get().WaitFor(1 + kLater));
    auto all = ReceivedLog::Get().All();
    ASSERT_EQ(all.size(), 1u + kLater);
    // In the order the service sent them, each once.
    EXPECT_EQ(all[0].userData, &blocker);
    for (int i = 0; i < kLater; ++i)
        EXPECT_EQ(all[1 + i].userData, &later[i]);
    ExpectEachResultWentToItsOwnRequest();
}

} // namespace
