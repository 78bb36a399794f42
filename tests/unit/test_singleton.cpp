#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "SSOAPISingleton.h"
#include "sso_test_harness.h"

namespace {

std::atomic<int> g_constructed{0};
std::atomic<int> g_postCreated{0};
std::atomic<int> g_destroyed{0};
std::atomic<bool> g_readyDuringHook{true};

// Holds the hook open until released, so racing callers arrive while the
// first creation is still under way.
std::mutex g_gateMutex;
std::condition_variable g_gateCv;
bool g_gateOpen = true;
std::atomic<bool> g_inHook{false};

class Counted : public SSOAPISingleton<Counted> {
public:
    Counted() { ++g_constructed; }
    ~Counted() override { ++g_destroyed; }
    void PostCreateInstance() override
    {
        g_readyDuringHook = m_bInitialized.load();
        g_inHook = true;
        std::unique_lock<std::mutex> lock(g_gateMutex);
        g_gateCv.wait(lock, [] { return g_gateOpen; });
        ++g_postCreated;
    }
    bool ready() const { return m_bInitialized.load(); }
};

class NeverCreated : public SSOAPISingleton<NeverCreated> {
public:
    NeverCreated() { ++g_constructed; }
};

class Reentrant : public SSOAPISingleton<Reentrant> {
public:
    // Holders must not do this: the nested call finds the pointer set but not
    // ready and waits on the non-recursive mutex this thread already holds.
    void PostCreateInstance() override { SSOAPISingleton<Reentrant>::GetInstance(); }
};

void ResetCounters()
{
    g_constructed = 0;
    g_postCreated = 0;
    g_destroyed = 0;
    g_gateOpen = true;
    g_inHook = false;
}

class Singleton : public ssotest::RootTest {
protected:
    void SetUp() override { ResetCounters(); }
};

TEST_F(Singleton, TwoThreadsRacingTheFirstGetInstanceMakeOneInstanceAndOneHookCall)
{
    {
        std::lock_guard<std::mutex> lock(g_gateMutex);
        g_gateOpen = false;
    }
    Counted *first = nullptr;
    Counted *second = nullptr;
    std::thread a([&] { first = Counted::GetInstance(); });
    ASSERT_TRUE(ssotest::WaitUntil([] { return g_inHook.load(); }));
    // The second caller arrives while the hook of the first is running.
    std::thread b([&] { second = Counted::GetInstance(); });
    ASSERT_TRUE(ssotest::WaitUntil(
        [&] { return log().Count("GetInstance") >= 2 && log().Count("[START]") >= 2; }));
    {
        std::lock_guard<std::mutex> lock(g_gateMutex);
        g_gateOpen = true;
    }
    g_gateCv.notify_all();
    a.join();
    b.join();
    EXPECT_EQ(first, second);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(g_constructed.load(), 1);
    EXPECT_EQ(g_postCreated.load(), 1);
    Counted::RemoveInstance();
}

TEST_F(Singleton, ManyThreadsRacingTheFirstGetInstanceMakeOneInstance)
{
    constexpr int kThreads = 16;
    std::vector<Counted *> got(kThreads, nullptr);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            while (!go.load())
                std::this_thread::yield();
            got[i] = Counted::GetInstance();
        });
    go = true;
    for (auto &t : threads)
        t.join();
    for (auto *p : got)
        EXPECT_EQ(p, got[0]);
    EXPECT_EQ(g_constructed.load(), 1);
    EXPECT_EQ(g_postCreated.load(), 1);
    Counted::RemoveInstance();
    EXPECT_EQ(g_destroyed.load(), 1);
}

TEST_F(Singleton, ReadyFlagIsSetOnlyAfterTheHookReturns)
{
    g_readyDuringHook = true;
    Counted *instance = Counted::GetInstance();
    EXPECT_FALSE(g_readyDuringHook.load());
    EXPECT_TRUE(instance->ready());
    Counted::RemoveInstance();
}

TEST_F(Singleton, FastPathReturnsTheInstanceWithoutLogging)
{
    Counted *instance = Counted::GetInstance();
    log().Clear();
    EXPECT_EQ(Counted::GetInstance(), instance);
    EXPECT_FALSE(log().Contains("GetInstance"));
    Counted::RemoveInstance();
}

TEST_F(Singleton, SlowPathLogsStartAndEndLines)
{
    Counted::GetInstance();
    auto start = log().LinesWith({"SSOAPIClient: SSOAPISingleton.h: GetInstance(", "[START] "});
    auto end = log().LinesWith({"SSOAPIClient: SSOAPISingleton.h: GetInstance(", "[END] "});
    EXPECT_EQ(start.size(), 1u);
    EXPECT_EQ(end.size(), 1u);
    ASSERT_FALSE(start.empty());
    EXPECT_NE(start[0].find("I/main"), std::string::npos) << start[0];
    EXPECT_NE(start[0].find("\033[0;35m[START] \033[0m"), std::string::npos);
    Counted::RemoveInstance();
}

TEST_F(Singleton, RemoveInstanceOfANeverCreatedTypeOnlyLogsStartAndEnd)
{
    NeverCreated::RemoveInstance();
    EXPECT_EQ(g_constructed.load(), 0);
    EXPECT_EQ(log().LinesWith({"RemoveInstance(", "[START] "}).size(), 1u);
    EXPECT_EQ(log().LinesWith({"RemoveInstance(", "[END] "}).size(), 1u);
    EXPECT_EQ(log().Count("RemoveInstance("), 2);
}

TEST_F(Singleton, RemoveInstanceDeletesAndTheNextGetInstanceCreatesAnew)
{
    Counted::GetInstance();
    Counted::RemoveInstance();
    EXPECT_EQ(g_destroyed.load(), 1);
    Counted *again = Counted::GetInstance();
    EXPECT_NE(again, nullptr);
    EXPECT_EQ(g_constructed.load(), 2);
    EXPECT_EQ(g_postCreated.load(), 2);
    Counted::RemoveInstance();
    EXPECT_EQ(g_destroyed.load(), 2);
}

// The main thread's current system call, from /proc: "202" is futex on x86-64.
std::string CurrentSyscall(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/syscall");
    std::string first;
    in >> first;
    return first;
}

TEST_F(Singleton, GetInstanceFromInsideTheHookOfTheSameTypeBlocks)
{
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([] {
        SSOAPISingleton<Reentrant>::GetInstance();
        return 0; // never reached
    });
    // The nested call logs its own [START] and then waits on the mutex.
    ASSERT_TRUE(ssotest::WaitUntil([&] {
        return log().LinesWith({"GetInstance(", "[START] "}).size() >= 2;
    }));
#if defined(__x86_64__)
    EXPECT_TRUE(ssotest::WaitUntil([&] { return CurrentSyscall(child.pid()) == "202"; }))
        << "the child is not waiting on a futex";
#endif
    EXPECT_TRUE(log().LinesWith({"GetInstance(", "[END] "}).empty());
    EXPECT_EQ(child.Wait(std::chrono::milliseconds(0)), -1) << "the child finished";
    child.Kill(SIGKILL);
    EXPECT_EQ(child.Wait(), 128 + SIGKILL);
}

} // namespace
