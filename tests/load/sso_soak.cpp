// sso-soak: many client processes, each with many threads, request from the
// SSO service simulator at once while it refuses, delays and drops at random.
//
//   sso-soak [--processes N] [--threads N] [--seconds S] [OPTIONS]
//
// It starts its own private system bus, platform root and simulator (one
// account signed in), runs the clients (this program with --client), and
// checks for every client process:
//   - every callback carries the user_data of a request of that process that
//     returned 0, and each such request gets at most one callback; a request
//     that returned -1 gets none (checked on the fly, by unique user_data);
//   - the service's own count agrees: as many requests accepted as the
//     process saw return 0, as many callbacks as results the service sent,
//     and the accepted requests left without a callback are exactly the
//     results the service dropped;
//   - resident memory and open descriptors stay flat: sampled once the
//     warm-up is over and again at the end, the growth stays within bounds;
//   - no request ran into the call time-out (the load must leave the service
//     able to answer).
// Exit status 0 when every check holds, 1 when one fails, 2 on bad usage.
#include <dirent.h>
#include <gio/gio.h>
#include <sso_api/sso_api.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char *kAppId = "org.example.soak";
constexpr long kTimedOutMs = 4500; // a request this slow ran into the 5000 ms call time-out

struct Options {
    int processes = 20;
    int threads = 8;
    int seconds = 120;
    int warmup = -1; // seconds; default: a fifth of the run, at least 2
    std::uint32_t seed = 1;
    std::uint32_t refuse_percent = 10;
    std::uint32_t drop_percent = 5;
    std::uint32_t answer_delay_max_ms = 20;
    std::uint32_t result_delay_max_ms = 200;
    std::uint32_t pause_max_ms = 20; // between two requests of a thread
    long rss_growth_kb = -1; // default: 4 MiB; 64 MiB with AddressSanitizer, 8 with ThreadSanitizer
    long fd_growth = 0;
    bool client = false;
    int index = 0;
};

[[noreturn]] void Usage(const std::string &why)
{
    std::fprintf(stderr,
                 "sso-soak: %s\n"
                 "usage: sso-soak [--processes N] [--threads N] [--seconds S] [--warmup S]\n"
                 "                [--seed N] [--refuse-percent P] [--drop-percent P]\n"
                 "                [--answer-delay-max MS] [--result-delay-max MS]\n"
                 "                [--pause-max MS] [--rss-growth-kb KB] [--fd-growth N]\n",
                 why.c_str());
    std::exit(2);
}

Options Parse(int argc, char **argv)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--client") {
            o.client = true;
            continue;
        }
        if (i + 1 >= argc)
            Usage(arg + " needs a value");
        const std::string value = argv[++i];
        char *end = nullptr;
        const long n = std::strtol(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0' || n < 0)
            Usage(arg + " needs a number, not '" + value + "'");
        if (arg == "--processes")
            o.processes = static_cast<int>(n);
        else if (arg == "--threads")
            o.threads = static_cast<int>(n);
        else if (arg == "--seconds")
            o.seconds = static_cast<int>(n);
        else if (arg == "--warmup")
            o.warmup = static_cast<int>(n);
        else if (arg == "--seed")
            o.seed = static_cast<std::uint32_t>(n);
        else if (arg == "--refuse-percent" && n <= 100)
            o.refuse_percent = static_cast<std::uint32_t>(n);
        else if (arg == "--drop-percent" && n <= 100)
            o.drop_percent = static_cast<std::uint32_t>(n);
        else if (arg == "--answer-delay-max" && n < 4000)
            o.answer_delay_max_ms = static_cast<std::uint32_t>(n);
        else if (arg == "--result-delay-max")
            o.result_delay_max_ms = static_cast<std::uint32_t>(n);
        else if (arg == "--pause-max")
            o.pause_max_ms = static_cast<std::uint32_t>(n);
        else if (arg == "--rss-growth-kb")
            o.rss_growth_kb = n;
        else if (arg == "--fd-growth")
            o.fd_growth = n;
        else if (arg == "--index")
            o.index = static_cast<int>(n);
        else
            Usage("unknown option or value out of range: " + arg + " " + value);
    }
    if (o.processes < 1 || o.threads < 1 || o.seconds < 1)
        Usage("--processes, --threads and --seconds must be at least 1");
    if (o.warmup < 0)
        o.warmup = std::max(2, o.seconds / 5);
    if (o.warmup >= o.seconds)
        Usage("--warmup must be shorter than --seconds");
    if (o.rss_growth_kb < 0) {
#if defined(__SANITIZE_ADDRESS__)
        o.rss_growth_kb = 64 * 1024;
#elif defined(__SANITIZE_THREAD__)
        // ThreadSanitizer's allocator and shadow keep growing for a while
        // after the warm-up: 3.5 to 4.5 MiB a client in this run, where a
        // plain build grows by under 0.1 MiB.
        o.rss_growth_kb = 8 * 1024;
#else
        o.rss_growth_kb = 4 * 1024;
#endif
    }
    return o;
}

// ------------------------------------------------------------------ client

struct Sample {
    long rss_kb = 0;
    long fds = 0;
};

Sample TakeSample()
{
    Sample s;
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    if (statm >> size >> resident)
        s.rss_kb = resident * (sysconf(_SC_PAGESIZE) / 1024);
    if (DIR *d = opendir("/proc/self/fd")) {
        while (const struct dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                ++s.fds;
        closedir(d);
        --s.fds; // the directory's own descriptor
    }
    return s;
}

// What became of every request of this process, by its user_data. Entries
// live from just before the request is sent until its callback has come (or
// it was refused); only accepted requests whose result never comes stay.
class Tracker {
public:
    std::uint64_t Begin()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const std::uint64_t id = next_id_++;
        live_.emplace(id, State::Sent);
        ++requests_;
        return id;
    }

    // Runs on the requesting thread once the request returned.
    void Returned(std::uint64_t id, int rc, long elapsed_ms)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (elapsed_ms >= kTimedOutMs)
            ++timed_out_;
        auto it = live_.find(id);
        const bool called = it->second == State::CalledEarly;
        if (rc == 0) {
            ++accepted_;
            if (called) {
                ++callbacks_;
                live_.erase(it);
            } else {
                it->second = State::Accepted;
            }
            return;
        }
        ++refused_;
        if (called)
            Bad("a callback for a refused request");
        live_.erase(it);
    }

    // Runs on the library's SSOProxyMonitor thread.
    void Called(std::uint64_t id)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        last_callback_ = Clock::now();
        auto it = live_.find(id);
        if (it == live_.end()) {
            Bad("a callback for no request in flight (duplicate, refused or foreign)");
        } else if (it->second == State::Sent) {
            // Results may overtake the return of the request.
            it->second = State::CalledEarly;
        } else if (it->second == State::Accepted) {
            ++callbacks_;
            live_.erase(it);
        } else {
            Bad("a second callback before the request returned");
        }
    }

    Clock::time_point last_callback()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return last_callback_;
    }

    std::string Report()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::uint64_t pending = 0;
        for (const auto &kv : live_)
            if (kv.second == State::Accepted)
                ++pending;
        std::ostringstream out;
        out << "requests=" << requests_ << " accepted=" << accepted_ << " refused=" << refused_
            << " timed_out=" << timed_out_ << " callbacks=" << callbacks_
            << " without_callback=" << pending << " bad_callbacks=" << bad_;
        if (!first_bad_.empty())
            out << " first_bad=\"" << first_bad_ << "\"";
        return out.str();
    }

private:
    enum class State : std::uint8_t { Sent, CalledEarly, Accepted };

    void Bad(const char *what)
    {
        if (bad_++ == 0)
            first_bad_ = what;
    }

    std::mutex mutex_; // guards everything below
    std::unordered_map<std::uint64_t, State> live_;
    std::uint64_t next_id_ = 1;
    std::uint64_t requests_ = 0;
    std::uint64_t accepted_ = 0;
    std::uint64_t refused_ = 0;
    std::uint64_t timed_out_ = 0;
    std::uint64_t callbacks_ = 0;
    std::uint64_t bad_ = 0;
    std::string first_bad_;
    Clock::time_point last_callback_ = Clock::now();
};

Tracker g_tracker;

// Lets the main thread stop every request thread between two requests, so a
// sample sees no request in flight (each one holds a descriptor and buffers).
class Gate {
public:
    // Runs on a request thread between two requests.
    void Pass()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!closed_)
            return;
        ++parked_;
        cond_.notify_all();
        cond_.wait(lock, [this] { return !closed_; });
        --parked_;
    }
    // Returns once n threads wait at the gate.
    void CloseAndWait(int n)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        closed_ = true;
        cond_.wait(lock, [this, n] { return parked_ == n; });
    }
    void Open()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = false;
        cond_.notify_all();
    }

private:
    std::mutex mutex_; // guards both below
    std::condition_variable cond_;
    bool closed_ = false;
    int parked_ = 0;
};

Gate g_gate;

// Runs on the SSOProxyMonitor thread, for every request kind of the soak.
int OnResult(void *user_data, int, char *)
{
    g_tracker.Called(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(user_data)));
    return 0;
}

void RequestLoop(const Options &o, int thread, Clock::time_point end)
{
    std::mt19937 random(o.seed * 7919u + static_cast<std::uint32_t>(o.index * 131 + thread));
    std::uniform_int_distribution<std::uint32_t> pause(0, o.pause_max_ms);
    for (unsigned n = 0; Clock::now() < end; ++n) {
        const std::uint64_t id = g_tracker.Begin();
        void *user_data = reinterpret_cast<void *>(static_cast<std::uintptr_t>(id));
        const auto start = Clock::now();
        int rc = -1;
        switch ((n + static_cast<unsigned>(thread)) % 3) {
        case 0:
            rc = sso_request_access_token(kAppId, "soak-secret", &OnResult, user_data);
            break;
        case 1:
            rc = sso_request_auth_code(kAppId, "profile", &OnResult, user_data);
            break;
        default:
            rc = sso_request_device_authcode(kAppId, nullptr, &OnResult, user_data);
            break;
        }
        const long elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
        g_tracker.Returned(id, rc, elapsed);
        std::this_thread::sleep_for(milliseconds(pause(random)));
        g_gate.Pass();
    }
}

int RunClient(const Options &o)
{
    const auto begin = Clock::now();
    const auto warm = begin + std::chrono::seconds(o.warmup);
    const auto end = begin + std::chrono::seconds(o.seconds);
    std::vector<std::thread> threads;
    for (int t = 0; t < o.threads; ++t)
        threads.emplace_back(RequestLoop, std::cref(o), t, end);

    // Samples are taken with no request in flight: once the warm-up is over
    // (every thread held between two requests) and at the end (every thread
    // done, every result in). The largest resident size is sampled as it
    // goes.
    Sample start;
    Sample max;
    bool warmed = false;
    while (Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(100));
        if (!warmed && Clock::now() >= warm) {
            g_gate.CloseAndWait(o.threads);
            start = TakeSample();
            g_gate.Open();
            warmed = true;
        }
        const Sample s = TakeSample();
        max.rss_kb = std::max(max.rss_kb, s.rss_kb);
        max.fds = std::max(max.fds, s.fds);
    }
    for (auto &t : threads)
        t.join();
    // Results still under way: wait until none has come for longer than the
    // service may hold one back.
    const auto quiet = milliseconds(o.result_delay_max_ms + o.answer_delay_max_ms + 1500);
    while (Clock::now() - g_tracker.last_callback() < quiet)
        std::this_thread::sleep_for(milliseconds(50));
    const Sample last = TakeSample();

    std::printf("report index=%d pid=%d %s rss_start_kb=%ld rss_end_kb=%ld rss_max_kb=%ld "
                "fds_start=%ld fds_end=%ld fds_max=%ld\n",
                o.index, static_cast<int>(getpid()), g_tracker.Report().c_str(), start.rss_kb,
                last.rss_kb, max.rss_kb, start.fds, last.fds, max.fds);
    std::fflush(stdout);
    // Give the link up before the library is unloaded, as an application
    // that is done with it would.
    sso_give_proxy();
    return 0;
}

// ------------------------------------------------------------------ driver

std::map<std::string, std::string> ParseReport(const std::string &out)
{
    std::map<std::string, std::string> fields;
    const std::size_t at = out.find("report ");
    if (at == std::string::npos)
        return fields;
    std::istringstream in(out.substr(at + 7, out.find('\n', at) - at - 7));
    std::string item;
    while (in >> item) {
        const std::size_t eq = item.find('=');
        if (eq != std::string::npos)
            fields[item.substr(0, eq)] = item.substr(eq + 1);
    }
    const std::size_t bad = out.find("first_bad=\"", at);
    if (bad != std::string::npos) {
        const std::size_t from = bad + 11;
        fields["first_bad"] = out.substr(from, out.find('"', from) - from);
    }
    return fields;
}

long Field(const std::map<std::string, std::string> &f, const std::string &key)
{
    auto it = f.find(key);
    return it == f.end() ? -1 : std::atol(it->second.c_str());
}

GVariant *ControlCall(ssotest::Simulator &sim, const char *method, GVariant *params,
                      const char *reply_type)
{
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        sim.connection(), ssotest::kSsoServiceName, ssotest::kSimulatorControlPath,
        ssotest::kSimulatorControlInterface, method, params, G_VARIANT_TYPE(reply_type),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, 30000, nullptr, &error);
    if (reply == nullptr) {
        std::string message = error->message;
        g_error_free(error);
        throw std::runtime_error(std::string(method) + " failed: " + message);
    }
    return reply;
}

void ConfigureRandom(ssotest::Simulator &sim, const Options &o)
{
    GVariantBuilder dict;
    g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&dict, "{sv}", "random_seed", g_variant_new_uint32(o.seed));
    g_variant_builder_add(&dict, "{sv}", "refuse_percent", g_variant_new_uint32(o.refuse_percent));
    g_variant_builder_add(&dict, "{sv}", "drop_percent", g_variant_new_uint32(o.drop_percent));
    g_variant_builder_add(&dict, "{sv}", "answer_delay_max_ms",
                          g_variant_new_uint32(o.answer_delay_max_ms));
    g_variant_builder_add(&dict, "{sv}", "result_delay_max_ms",
                          g_variant_new_uint32(o.result_delay_max_ms));
    g_variant_unref(ControlCall(sim, "Configure", g_variant_new("(sa{sv})", "*", &dict), "()"));
}

struct Tally {
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;
    std::uint64_t delivered = 0;
    std::uint64_t dropped = 0;
};

std::map<std::string, Tally> Tallies(ssotest::Simulator &sim)
{
    std::map<std::string, Tally> tallies;
    GVariant *reply = ControlCall(sim, "GetTallies", nullptr, "(a(stttt))");
    GVariantIter *iter = nullptr;
    g_variant_get(reply, "(a(stttt))", &iter);
    const gchar *name = nullptr;
    guint64 a = 0;
    guint64 r = 0;
    guint64 d = 0;
    guint64 x = 0;
    while (g_variant_iter_next(iter, "(&stttt)", &name, &a, &r, &d, &x))
        tallies[name] = Tally{a, r, d, x};
    g_variant_iter_free(iter);
    g_variant_unref(reply);
    return tallies;
}

std::string SelfPath()
{
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        throw std::runtime_error("cannot read /proc/self/exe");
    return std::string(buf, static_cast<std::size_t>(n));
}

int RunDriver(const Options &o)
{
    std::printf("sso-soak: %d processes x %d threads, %d s (warm-up %d s), seed %u; the service "
                "refuses %u%%, drops %u%% of the results, answers within 0-%u ms, delivers "
                "within 0-%u ms\n",
                o.processes, o.threads, o.seconds, o.warmup, o.seed, o.refuse_percent,
                o.drop_percent, o.answer_delay_max_ms, o.result_delay_max_ms);
    std::fflush(stdout);

    // Nothing of the run is logged: the log would measure the disk.
    ssotest::PlatformRoot root;
    setenv("SSO_PLATFORM_LOG", "none", 1);
    ssotest::PrivateBus bus;
    bus.Start();
    ssotest::Simulator sim;
    sim.Start();
    ssotest::AccountSpec account;
    account.login_id = "soak.user@example.com";
    sim.AddAccount(account);
    sim.SignIn(account.login_id);
    ConfigureRandom(sim, o);

    const std::string self = SelfPath();
    std::vector<ssotest::ChildProcess> clients;
    for (int i = 0; i < o.processes; ++i) {
        std::vector<std::string> argv = {self, "--client"};
        for (const auto &[name, value] : std::vector<std::pair<const char *, long>>{
                 {"--index", i},
                 {"--threads", o.threads},
                 {"--seconds", o.seconds},
                 {"--warmup", o.warmup},
                 {"--seed", o.seed},
                 {"--answer-delay-max", o.answer_delay_max_ms},
                 {"--result-delay-max", o.result_delay_max_ms},
                 {"--pause-max", o.pause_max_ms}}) {
            argv.push_back(name);
            argv.push_back(std::to_string(value));
        }
        std::map<std::string, std::string> env = {
            {"SSO_PLATFORM_APP_ID", std::string(kAppId) + std::to_string(i)}};
#if defined(__SANITIZE_ADDRESS__)
        // A small quarantine fills during the warm-up; the default one keeps
        // growing for minutes and would read as a leak.
        const char *asan = getenv("ASAN_OPTIONS");
        env["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":quarantine_size_mb=16";
#endif
        clients.push_back(ssotest::ChildProcess::Spawn(argv, env));
    }

    // The simulator keeps every request, result and token for tests to read;
    // forgetting them as we go keeps it flat too. Its tallies stay.
    const auto deadline = Clock::now() + std::chrono::seconds(o.seconds + 60);
    std::vector<int> status(clients.size(), -1);
    std::size_t running = clients.size();
    while (running > 0 && Clock::now() < deadline) {
        sim.ClearJournal();
        sim.ClearDeliveries();
        sim.ClearIssued();
        for (std::size_t i = 0; i < clients.size(); ++i)
            if (status[i] == -1) {
                status[i] = clients[i].Wait(milliseconds(1000 / static_cast<long>(clients.size())));
                if (status[i] != -1)
                    --running;
            }
    }
    const std::map<std::string, Tally> tallies = Tallies(sim);

    std::vector<std::string> failures;
    auto fail = [&failures](int i, const std::string &why) {
        failures.push_back("process " + std::to_string(i) + ": " + why);
    };
    long sum[11] = {};
    std::printf("\n%4s %8s %9s %9s %8s %9s %8s %8s %26s %11s\n", "proc", "pid", "requests",
                "accepted", "refused", "callbacks", "dropped", "timeouts", "rss KB start/end/max",
                "fds st/end");
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const int index = static_cast<int>(i);
        if (status[i] == -1) {
            clients[i].Kill();
            fail(index, "still running after the deadline");
            continue;
        }
        const auto f = ParseReport(clients[i].ReadStdout(milliseconds(500)));
        if (status[i] != 0 || f.empty()) {
            fail(index, "exited with status " + std::to_string(status[i]) +
                            (f.empty() ? " without a report" : ""));
            continue;
        }
        const long pid = Field(f, "pid");
        const std::string object =
            "obj" + std::to_string(pid) + "_" + std::string(kAppId) + std::to_string(i);
        const auto t = tallies.find(object);
        const Tally tally = t == tallies.end() ? Tally{} : t->second;
        const long v[11] = {
            Field(f, "requests"),     Field(f, "accepted"),         Field(f, "refused"),
            Field(f, "callbacks"),    Field(f, "without_callback"), Field(f, "timed_out"),
            Field(f, "rss_start_kb"), Field(f, "rss_end_kb"),       Field(f, "fds_start"),
            Field(f, "fds_end"),      Field(f, "rss_max_kb")};
        for (int k = 0; k < 11; ++k)
            sum[k] += v[k];
        std::printf("%4d %8ld %9ld %9ld %8ld %9ld %8ld %8ld %8ld/%8ld/%-8ld %5ld/%-5ld\n", index,
                    pid, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[10], v[8], v[9]);
        if (Field(f, "bad_callbacks") != 0)
            fail(index, std::to_string(Field(f, "bad_callbacks")) +
                            " wrong callbacks, first: " + f.at("first_bad"));
        if (v[5] != 0)
            fail(index, std::to_string(v[5]) + " requests ran into the call time-out");
        if (static_cast<std::uint64_t>(v[1]) != tally.accepted)
            fail(index, "returned 0 for " + std::to_string(v[1]) + " requests, the service " +
                            "accepted " + std::to_string(tally.accepted));
        if (static_cast<std::uint64_t>(v[3]) != tally.delivered)
            fail(index, std::to_string(v[3]) + " callbacks for " + std::to_string(tally.delivered) +
                            " results sent");
        if (static_cast<std::uint64_t>(v[4]) != tally.dropped)
            fail(index, std::to_string(v[4]) + " accepted requests without a callback, " +
                            std::to_string(tally.dropped) + " results dropped by the service");
        if (v[7] - v[6] > o.rss_growth_kb)
            fail(index, "resident memory grew by " + std::to_string(v[7] - v[6]) + " KB (bound " +
                            std::to_string(o.rss_growth_kb) + " KB)");
        if (v[9] - v[8] > o.fd_growth)
            fail(index, "open descriptors grew from " + std::to_string(v[8]) + " to " +
                            std::to_string(v[9]));
    }
    std::printf("%4s %8s %9ld %9ld %8ld %9ld %8ld %8ld %8ld/%8ld/%-8ld %5ld/%-5ld\n", "all", "",
                sum[0], sum[1], sum[2], sum[3], sum[4], sum[5], sum[6], sum[7], sum[10], sum[8],
                sum[9]);
    std::printf("%.0f requests/s, %.0f callbacks/s over %d s\n",
                static_cast<double>(sum[0]) / o.seconds, static_cast<double>(sum[3]) / o.seconds,
                o.seconds);
    // The run proves nothing about refusals and drops unless it met some.
    if (o.refuse_percent > 0 && sum[2] == 0)
        failures.push_back("no request was refused");
    if (o.drop_percent > 0 && sum[4] == 0)
        failures.push_back("no result was dropped");
    if (sum[3] == 0)
        failures.push_back("no callback at all");

    if (failures.empty()) {
        std::printf("PASS: every accepted request got exactly one callback or was dropped by the "
                    "service, no refused one got any; memory and descriptors stayed flat\n");
        return 0;
    }
    for (const auto &f : failures)
        std::printf("FAIL: %s\n", f.c_str());
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Options options = Parse(argc, argv);
    try {
        return options.client ? RunClient(options) : RunDriver(options);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "sso-soak: %s\n", e.what());
        return 1;
    }
}
