// Shared by the library benchmarks: the private bus, platform root and
// simulator they run against, the bare-GDBus counterpart of the library's
// link, exactly-once accounting of result callbacks, per-operation latency
// percentiles, and a console reporter that prints library / baseline ratios.
//
// Every benchmark binary runs on its own (it starts a private bus and the
// simulator through the test harness) or, with SSO_BENCH_ATTACH=1 as
// scripts/bench sets it, on the bus, platform root and simulator that the
// environment names (DBUS_SYSTEM_BUS_ADDRESS, SSO_PLATFORM_ROOT).
#pragma once

#include <benchmark/benchmark.h>
#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench_client.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace ssobench {

// Adds the defaults of these benchmarks to the command line unless given:
// 3 repetitions, randomly interleaved (library and baseline see the same
// noise), aggregates only on the console. Then benchmark::Initialize.
void Initialize(int *argc, char ***argv);

// The platform log as an application runs it: SSO_BENCH_LOG when set (a
// destination such as "none" or "file:/tmp/x"), else the platform's default
// destination and threshold.
void UseDefaultLogging();
// A destination and a threshold; null leaves the variable unset (default).
void UseLogging(const char *destination, const char *level);

// The bus, the platform root and the simulator one benchmark binary runs on.
class Environment {
public:
    Environment(bool bus, bool simulator);
    ~Environment();
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

    bool attached() const { return attached_; }
    ssotest::Simulator &sim() { return sim_; }
    // Registers the account unless the simulator has it already, then signs
    // it in.
    void SignIn(const std::string &login_id);

private:
    bool attached_ = false;
    std::unique_ptr<ssotest::PlatformRoot> root_;
    std::unique_ptr<ssotest::PrivateBus> bus_;
    ssotest::Simulator sim_;
};

// Signs the benchmark account in and brings the library's link up with one
// request (so nothing timed includes the set-up). False, with the reason on
// stderr, when that fails.
bool StartLibrary(Environment &env);
// The same, then starts the bare client.
bool StartClients(Environment &env, BareClient &bare);

// The main of a binary that times the library against the bare client:
// environment and both clients up (*env and *bare point at them; with bare
// null the bare client stops at once, only the library's sides run), then
// registerAll, the benchmarks with ratios printed, and finish, which winds
// down and gives the exit code.
int RunWithClients(int argc, char **argv, Environment **env, BareClient **bare,
                   void (*registerAll)(), int (*finish)(BareClient &));

// Per-operation latencies of one repetition, from any number of threads.
// Report (on thread 0, after the loop) sets the counters p50_ns and p99_ns.
class Latencies {
public:
    void Clear();
    void Add(std::int64_t ns);
    // Counters <prefix>p50_ns, p99_ns, max_ns and mean_ns.
    void Report(benchmark::State &state, const std::string &prefix = "");

private:
    std::mutex mutex_;
    std::vector<std::int64_t> samples_;
};

// Two operations measured side by side in one benchmark, alternating which
// goes first, so that both see the same moments of a shared machine. Each
// returns the nanoseconds to count (its own timing), or a negative number on
// failure. Registered as "<name of A>|<name of B>"; the counters a_* and b_*
// (see Latencies::Report) are what the report turns into the two figures.
// The iteration time is that of the pair.
template <typename A, typename B, typename F>
void RunPaired(benchmark::State &state, A a, B b, F finish)
{
    Latencies la, lb;
    la.Clear();
    lb.Clear();
    long long i = 0;
    for (auto _ : state) {
        std::int64_t ta, tb;
        if (i++ % 2 == 0) {
            ta = a();
            tb = ta < 0 ? -1 : b();
        } else {
            tb = b();
            ta = tb < 0 ? -1 : a();
        }
        if (ta < 0 || tb < 0) {
            state.SkipWithError(ta < 0 ? "the first operation failed" : "the second one failed");
            break;
        }
        la.Add(ta);
        lb.Add(tb);
        state.SetIterationTime(static_cast<double>(ta + tb) / 1e9);
    }
    la.Report(state, "a_");
    lb.Report(state, "b_");
    finish(state);
}

// With counters of its own: finish(state) may add a_<name> and b_<name>.
template <typename A, typename B, typename F>
benchmark::internal::Benchmark *RegisterPair(const std::string &nameA, const std::string &nameB,
                                             A a, B b, F finish)
{
    return benchmark::RegisterBenchmark(
               (nameA + "|" + nameB).c_str(),
               [a, b, finish](benchmark::State &state) { RunPaired(state, a, b, finish); })
        ->UseManualTime();
}

// Registers RunPaired(a, b) under the names of the two figures.
template <typename A, typename B>
benchmark::internal::Benchmark *RegisterPair(const std::string &nameA, const std::string &nameB,
                                             A a, B b)
{
    return RegisterPair(nameA, nameB, a, b, [](benchmark::State &) {});
}

// A stand-in for the system log daemon: a datagram socket at a path of its
// own (use it with SSO_PLATFORM_LOG=syslog:PATH), drained by a thread.
class SyslogSink {
public:
    SyslogSink();
    ~SyslogSink();
    SyslogSink(const SyslogSink &) = delete;
    SyslogSink &operator=(const SyslogSink &) = delete;

    const std::string &path() const { return path_; }
    long long lines() const { return lines_.load(); }

private:
    std::string dir_;
    std::string path_;
    int fd_ = -1;
    int wake_[2] = {-1, -1};
    std::atomic<long long> lines_{0};
    std::thread thread_;
};

// Collects each benchmark's median real time per iteration and prints the
// ratios between a library benchmark and its bare baseline of the same run.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override;
    void PrintRatios(const std::vector<std::pair<std::string, std::string>> &pairs) const;
    // The benchmarks of RegisterPair: median per-operation times of both
    // sides and their ratio.
    void PrintPairs() const;

private:
    std::map<std::string, double> times_;
    std::map<std::string, std::string> unit_;
    std::map<std::string, std::pair<double, double>> pairs_; // a_p50_ns, b_p50_ns
};

} // namespace ssobench
