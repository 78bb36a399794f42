// Login notification latency: from the moment another process (standing in
// for the SSO service) writes the login state to the moment the library
// calls the application's subscriber on its main-loop thread.
#include <sso_api/sso_api.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <dlog.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "account_documents.h"
#include "bench_support.h"
#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

std::atomic<long long> g_callbackNs{0};
std::atomic<int> g_calls{0};

using ssobench::NowNs;

int OnLoginState(void *, int, sso_login_state, char *, char *)
{
    g_callbackNs = NowNs();
    ++g_calls;
    return 0;
}

// The writer: for each byte read from `go`, flips the login state and reports
// the time just before the write on `done`.
pid_t StartWriter(int go, int goWriteEnd, int done, int doneReadEnd)
{
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // Only the parent's ends stay open there: EOF on `go` ends the writer.
        close(goWriteEnd);
        close(doneReadEnd);
        int state = 0;
        char c;
        while (read(go, &c, 1) == 1) {
            state = 1 - state;
            long long t = NowNs();
            vconf_set_int("db/sso/login_status", state);
            if (write(done, &t, sizeof(t)) != sizeof(t))
                _exit(1);
        }
        _exit(0);
    }
    return pid;
}

void BM_LoginNotificationLatency(benchmark::State &state)
{
    int go[2], done[2];
    if (pipe(go) != 0 || pipe(done) != 0) {
        state.SkipWithError("pipe failed");
        return;
    }
    pid_t writer = StartWriter(go[0], go[1], done[1], done[0]);
    ssobench::Latencies latencies;
    vconftest::LoopThread loop;
    int rc = -1;
    loop.Run([&] { rc = sso_subscribe_login_state_change(OnLoginState, nullptr); });
    if (rc != 0)
        state.SkipWithError("subscription failed");
    for (auto _ : state) {
        int before = g_calls;
        if (write(go[1], "x", 1) != 1)
            break;
        long long written = 0;
        if (read(done[0], &written, sizeof(written)) != sizeof(written))
            break;
        if (!ssotest::WaitUntil([&] { return g_calls > before; }, std::chrono::seconds(5))) {
            state.SkipWithError("no notification");
            break;
        }
        state.SetIterationTime(static_cast<double>(g_callbackNs - written) / 1e9);
        latencies.Add(g_callbackNs - written);
    }
    latencies.Report(state);
    loop.Run([] { sso_unsubscribe_login_state_change(); });
    loop.Stop();
    close(go[1]);
    waitpid(writer, nullptr, 0);
    close(go[0]);
    close(done[0]);
    close(done[1]);
}
BENCHMARK(BM_LoginNotificationLatency)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(200);

} // namespace

int main(int argc, char **argv)
{
    ssobench::Initialize(&argc, &argv);
    ssobench::Environment env(false, false);
    std::vector<ssotest::TestAccount> accounts = {ssotest::MakeAccount(1), ssotest::MakeAccount(2)};
    ssotest::SignIn(accounts, 0);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
