// Genuine results while hostile connections flood the client object.
//
// A process of hostile connections (this program with --hostile, each
// connection its own GDBus connection on a thread of its own) calls the
// library's client object as fast as a given total rate allows, with calls the
// library must refuse or drop: the library's own object name from another
// process (the sender check refuses it), the hostile process's own object
// name with a request id of no thread (dropped), and with the right request
// id but callback values the library never sent (dropped). Meanwhile
// application threads request access tokens from the simulator at a steady
// pace and time each from the request to its callback. Each repetition is
// one phase of kPhaseSeconds:
//   BM_GenuineResults_Quiet              no hostile calls (the baseline)
//   BM_GenuineResults_UnderFlood         40 connections, kept for the phase
//   BM_GenuineResults_UnderChurningFlood 40 connections, each replaced by a
//                                        new one every kChurnCalls calls, so
//                                        the library keeps meeting senders
//                                        whose process id it must look up
// Counters: p50_ns, p99_ns, max_ns, mean_ns (request to callback),
// genuine_requests, genuine_lost (accepted, no callback within 10 s),
// hostile_calls_per_s (calls the library answered, per second of flood),
// hostile_connections (connections made over the phase).
//
// Runs on its own (own bus, platform root and simulator) or, with
// SSO_BENCH_ATTACH=1, on those of scripts/bench. For other loads:
// SSO_BENCH_FLOOD_CONNECTIONS (40), SSO_BENCH_FLOOD_RATE (4000 calls/s in
// total) and SSO_BENCH_FLOOD_CHURN (25 calls per connection in the churning
// phase; 1: a new connection for every call).
#include <sso_api/sso_api.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "bench_support.h"
#include "sso_api_proxy.h"

namespace {

using Clock = std::chrono::steady_clock;
using ssobench::NowNs;
using ssobench::Waiter;

// The load, unless the environment names another (see above).
int Setting(const char *name, int fallback)
{
    const char *value = std::getenv(name);
    const int n = value != nullptr ? std::atoi(value) : 0;
    return n > 0 ? n : fallback;
}
const int kHostileConnections = Setting("SSO_BENCH_FLOOD_CONNECTIONS", 40);
const int kHostileCallsPerSecond = Setting("SSO_BENCH_FLOOD_RATE", 4000); // in total
const int kChurnCalls = Setting("SSO_BENCH_FLOOD_CHURN", 25);
constexpr double kPhaseSeconds = 1.5;
constexpr int kGenuineThreads = 2;
constexpr auto kGenuineInterval = std::chrono::milliseconds(10); // per thread

// ------------------------------------------------------------ hostile side

std::atomic<bool> g_stop{false};

void OnTerm(int)
{
    g_stop = true;
}

struct HostileTotals {
    std::atomic<long long> calls{0};
    std::atomic<long long> failed{0};
    std::atomic<long long> connections{0};
};

// One hostile connection (replaced every churn calls when churn > 0), paced
// to interval between calls.
void HostileThread(int index, const std::string &busName, const std::string &victimObj,
                   long long tid, std::chrono::nanoseconds interval, int churn,
                   HostileTotals &totals, std::atomic<int> &connected)
{
    const std::string ownObj = "obj" + std::to_string(getpid()) + "_hostile";
    GDBusConnection *conn = ssobench::PrivateConnection();
    if (conn == nullptr)
        return;
    ++totals.connections;
    ++connected;
    // The three kinds take turns; threads start at different ones.
    long long n = index;
    Clock::time_point next = Clock::now();
    while (!g_stop) {
        const int kind = static_cast<int>(n % 3);
        const std::string &obj = kind == 0 ? victimObj : ownObj;
        const gint64 requestId = kind == 1 ? tid + 1 + n : tid;
        GVariant *args =
            g_variant_new("(sxxsixis)", obj.c_str(), gint64{0x1000} + n, requestId, "AT.hostile", 0,
                          gint64{0x2000} + n, 0, "sso_request_access_token");
        GError *error = nullptr;
        GVariant *reply = g_dbus_connection_call_sync(
            conn, busName.c_str(), SSO_CLIENT_OBJECT_PATH, SSO_CLIENT_INTERFACE,
            "sso_request_access_token", args, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000,
            nullptr, &error);
        if (reply != nullptr) {
            g_variant_unref(reply);
        } else {
            // The sender check's refusal is an answer too; a time-out is not.
            if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT))
                ++totals.failed;
            g_error_free(error);
        }
        ++totals.calls;
        ++n;
        if (churn > 0 && n % churn == 0) {
            g_object_unref(conn);
            conn = ssobench::PrivateConnection();
            if (conn == nullptr)
                return;
            ++totals.connections;
        }
        next += interval;
        const Clock::time_point now = Clock::now();
        if (next < now - interval)
            next = now; // fell behind: no burst to catch up
        std::this_thread::sleep_until(next);
    }
    g_object_unref(conn);
}

// --hostile BUS_NAME OBJECT_NAME REQUEST_ID CONNECTIONS CALLS_PER_S CHURN:
// floods until SIGTERM, then prints "calls N failed N connections N seconds S".
int RunHostile(char **argv)
{
    signal(SIGTERM, OnTerm);
    const std::string busName = argv[2];
    const std::string victimObj = argv[3];
    const long long tid = std::atoll(argv[4]);
    const int connections = std::atoi(argv[5]);
    const int rate = std::atoi(argv[6]);
    const int churn = std::atoi(argv[7]);
    const auto interval = std::chrono::nanoseconds(1000000000LL * connections / rate);
    HostileTotals totals;
    std::atomic<int> connected{0};
    std::vector<std::thread> threads;
    Clock::time_point start = Clock::now();
    for (int i = 0; i < connections; ++i)
        threads.emplace_back(HostileThread, i, busName, victimObj, tid, interval, churn,
                             std::ref(totals), std::ref(connected));
    while (connected < connections && !g_stop)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::printf("ready\n");
    std::fflush(stdout);
    for (auto &t : threads)
        t.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("calls %lld failed %lld connections %lld seconds %.3f\n", totals.calls.load(),
                totals.failed.load(), totals.connections.load(), seconds);
    return 0;
}

// ------------------------------------------------------------ genuine side

ssobench::Environment *g_env = nullptr;
std::string g_self;

// Genuine requests at a steady pace for the phase; latencies from request to
// callback. Returns the number of requests made; lost counts those refused
// and those whose result did not come.
long long GenuinePhase(ssobench::Latencies &latencies, long long &lost)
{
    // For the life of the process: a late result still finds its waiter.
    static Waiter *waiters[kGenuineThreads] = {};
    static long long expected[kGenuineThreads] = {};
    std::atomic<long long> requests{0}, missing{0};
    std::vector<std::thread> threads;
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(kPhaseSeconds));
    for (int t = 0; t < kGenuineThreads; ++t) {
        if (waiters[t] == nullptr)
            waiters[t] = new Waiter;
        threads.emplace_back([&, t] {
            Waiter &waiter = *waiters[t];
            const long long missingBefore = waiter.Missing();
            Clock::time_point next = Clock::now();
            while (Clock::now() < end) {
                next += kGenuineInterval;
                ++requests;
                std::int64_t start = NowNs();
                if (sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                             waiter.NewTicket()) != 0) {
                    ++missing;
                } else if (!waiter.Wait(++expected[t])) {
                    // Its count is off from here on: this thread stops.
                    missing += waiter.Missing() - missingBefore;
                    return;
                } else {
                    latencies.Add(NowNs() - start);
                }
                std::this_thread::sleep_until(next);
            }
        });
    }
    for (auto &t : threads)
        t.join();
    lost = missing;
    return requests;
}

void Phase(benchmark::State &state, int connections, int churn)
{
    ssobench::Latencies latencies;
    latencies.Clear();
    long long requests = 0, lost = 0;
    double hostileRate = 0, hostileConnections = 0, hostileFailed = 0;
    for (auto _ : state) {
        g_env->sim().ClearJournal();
        g_env->sim().ClearDeliveries();
        g_env->sim().ClearIssued();
        ssotest::ChildProcess hostile;
        if (connections > 0) {
            hostile = ssotest::ChildProcess::Spawn(
                {g_self, "--hostile",
                 SSO_CLIENT_BUS_NAME_PREFIX + SSOAPIClientUtil::GetDBusObjectName(),
                 SSOAPIClientUtil::GetDBusObjectName(),
                 std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId()),
                 std::to_string(connections), std::to_string(kHostileCallsPerSecond),
                 std::to_string(churn)});
            if (!hostile.WaitForOutput("ready\n", std::chrono::seconds(20))) {
                state.SkipWithError("the hostile connections did not come up");
                break;
            }
        }
        const std::int64_t start = NowNs();
        long long phaseLost = 0;
        requests += GenuinePhase(latencies, phaseLost);
        lost += phaseLost;
        state.SetIterationTime(static_cast<double>(NowNs() - start) / 1e9);
        if (connections > 0) {
            hostile.Kill(SIGTERM);
            if (hostile.Wait(std::chrono::seconds(20)) != 0) {
                state.SkipWithError("the hostile process did not end");
                break;
            }
            const std::string out = hostile.ReadStdout(std::chrono::milliseconds(500));
            long long calls = 0, failed = 0, made = 0;
            double seconds = 0;
            const char *line = std::strstr(out.c_str(), "calls ");
            if (line == nullptr ||
                std::sscanf(line,
                            "calls %lld failed %lld connections %lld "
                            "seconds %lf",
                            &calls, &failed, &made, &seconds) != 4 ||
                seconds <= 0) {
                state.SkipWithError("the hostile process reported nothing");
                break;
            }
            hostileRate = static_cast<double>(calls) / seconds;
            hostileConnections = static_cast<double>(made);
            hostileFailed = static_cast<double>(failed);
        }
    }
    latencies.Report(state);
    state.counters["genuine_requests"] = static_cast<double>(requests);
    state.counters["genuine_lost"] = static_cast<double>(lost);
    state.counters["hostile_calls_per_s"] = hostileRate;
    state.counters["hostile_connections"] = hostileConnections;
    state.counters["hostile_calls_timed_out"] = hostileFailed;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 8 && std::strcmp(argv[1], "--hostile") == 0)
        return RunHostile(argv);
    char self[4096] = {0};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0)
        return 1;
    g_self = self;

    ssobench::Initialize(&argc, &argv);
    ssobench::Environment env(true, true);
    g_env = &env;
    if (!ssobench::StartLibrary(env))
        return 1;

    benchmark::RegisterBenchmark("BM_GenuineResults_Quiet",
                                 [](benchmark::State &state) { Phase(state, 0, 0); })
        ->Iterations(1)
        ->UseManualTime();
    benchmark::RegisterBenchmark(
        "BM_GenuineResults_UnderFlood",
        [](benchmark::State &state) { Phase(state, kHostileConnections, 0); })
        ->Iterations(1)
        ->UseManualTime();
    benchmark::RegisterBenchmark(
        "BM_GenuineResults_UnderChurningFlood",
        [](benchmark::State &state) { Phase(state, kHostileConnections, kChurnCalls); })
        ->Iterations(1)
        ->UseManualTime();

    benchmark::ConsoleReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    sso_give_proxy();
    benchmark::Shutdown();
    return 0;
}
