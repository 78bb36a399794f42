// The library's threads never take the application's signals: an
// application that waits for its signals with sigwait() gets every one, and
// its handlers never run on a thread of the library.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstring>
#include <string>

#include "sso_api/sso_api.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"
#include "../reliability/reliability_support.h"

namespace {

using reliability::ReceivedLog;
using reliability::RecordingCb;

constexpr char kAppId[] = "org.example.signals";

std::atomic<int> g_handled{0};

void CountingHandler(int)
{
    ++g_handled;
}

class ThreadSignals : public reliability::AppTest<ssotest::SimulatorTest, kAppId> {
protected:
    // A device auth code needs no account; its result shows the link up,
    // with the reader and the monitor thread running.
    void Delivered()
    {
        static int marker;
        ASSERT_EQ(0, sso_request_device_authcode(kAppId, nullptr, &RecordingCb, &marker));
        ASSERT_TRUE(ssotest::WaitUntil([&] { return ReceivedLog::Get().CountFor(&marker) >= 1; }));
    }
};

TEST_F(ThreadSignals, TheLibrarysThreadsBlockTheApplicationsSignalsButNotFaults)
{
    Delivered();
    for (const char *name : {"SSOBusReader", "SSOProxyMonitor"}) {
        const auto mask = reliability::BlockedSignalsOf(name);
        ASSERT_TRUE(mask) << name << " is not running: " << reliability::ThreadNames();
        for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE, SIGALRM})
            EXPECT_TRUE(reliability::MaskHolds(*mask, sig)) << name << " takes " << strsignal(sig);
        for (int sig : {SIGSEGV, SIGBUS, SIGABRT})
            EXPECT_FALSE(reliability::MaskHolds(*mask, sig))
                << name << " blocks " << strsignal(sig);
    }
}

TEST_F(ThreadSignals, AnApplicationThatWaitsForItsSignalGetsEveryOne)
{
    Delivered();
    struct sigaction handler = {};
    struct sigaction before = {};
    handler.sa_handler = CountingHandler;
    ASSERT_EQ(0, sigaction(SIGUSR1, &handler, &before));
    g_handled = 0;
    // Every thread of the test's own blocks SIGUSR1 from here on; only a
    // thread of the library could still take it.
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    sigset_t saved;
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &usr1, &saved));
    int waited = 0;
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(0, kill(getpid(), SIGUSR1));
        const timespec limit = {10, 0};
        if (sigtimedwait(&usr1, nullptr, &limit) == SIGUSR1)
            ++waited;
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(waited, 50);
    EXPECT_EQ(g_handled.load(), 0);
}

} // namespace
