// Whole processes against the simulator on a private bus, the library side by
// side with bare GDBus doing the same steps:
//   - the first request of a fresh process: connection, bus name, client
//     object, call;
//   - 20 client processes sending access-token requests at once, each
//     waiting for its own callbacks, every callback counted;
//   - memory, threads and open descriptors over 100,000 requests (the
//     bench_memory_child probe, which loads the shared library itself).
// The children are this program again (--child=...), so each starts with a
// fresh library.
#include <sso_api/sso_api.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench_support.h"
#include "sso_api_proxy.h"

namespace {

using ssobench::NowNs;
using ssobench::Ticket;
using ssobench::Waiter;

ssobench::Environment *g_env = nullptr;

std::string SelfPath()
{
    char buf[4096];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        return "";
    buf[n] = '\0';
    return buf;
}

int EnvInt(const char *name, int fallback)
{
    const char *v = getenv(name);
    return v != nullptr && atoi(v) > 0 ? atoi(v) : fallback;
}

// "key=value" words of a child's output line.
std::map<std::string, std::string> Fields(const std::string &text)
{
    std::map<std::string, std::string> out;
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        size_t eq = word.find('=');
        if (eq != std::string::npos)
            out[word.substr(0, eq)] = word.substr(eq + 1);
    }
    return out;
}

double Number(const std::map<std::string, std::string> &fields, const char *key)
{
    auto it = fields.find(key);
    return it == fields.end() ? -1.0 : atof(it->second.c_str());
}

void ClearSimulator(const benchmark::State &)
{
    g_env->sim().ClearJournal();
    g_env->sim().ClearDeliveries();
    g_env->sim().ClearIssued();
}

// ================================================================ children

// The first request of this process, through the library.
int ChildFirstLibrary()
{
    std::int64_t start = NowNs();
    int rc = sso_check_alive();
    std::int64_t end = NowNs();
    std::printf("first ns=%lld rc=%d\n", static_cast<long long>(end - start), rc);
    std::fflush(stdout);
    return rc == 0 ? 0 : 1;
}

struct BareFirst {
    GMainContext *context = nullptr;
    GMainLoop *loop = nullptr;
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    bool owned = false;
};

void OnBareCall(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *,
                GVariant *, GDBusMethodInvocation *invocation, gpointer)
{
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

void OnBareName(GDBusConnection *, const gchar *, gpointer data, bool owned)
{
    auto *state = static_cast<BareFirst *>(data);
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->done = true;
        state->owned = owned;
    }
    state->cv.notify_all();
}

// The same steps in bare GDBus: the shared system-bus connection, a thread
// with its own context that registers the object and owns the name, then
// the call.
int ChildFirstBare()
{
    BareFirst state;
    std::int64_t start = NowNs();
    GDBusConnection *conn = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (conn == nullptr)
        return 1;
    std::int64_t connected = NowNs();
    // An object name the service accepts from this process, as the library's.
    const std::string objName = "obj" + std::to_string(getpid()) + "_bare.first";
    const std::string name = SSO_CLIENT_BUS_NAME_PREFIX + objName;
    state.context = g_main_context_new();
    state.loop = g_main_loop_new(state.context, FALSE);
    std::thread thread([&] {
        g_main_context_push_thread_default(state.context);
        GDBusNodeInfo *node =
            g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), nullptr);
        static const GDBusInterfaceVTable vtable = {OnBareCall, nullptr, nullptr, {nullptr}};
        guint registration = g_dbus_connection_register_object(
            conn, SSO_CLIENT_OBJECT_PATH, node->interfaces[0], &vtable, nullptr, nullptr, nullptr);
        guint owner = g_bus_own_name_on_connection(
            conn, name.c_str(), G_BUS_NAME_OWNER_FLAGS_NONE,
            [](GDBusConnection *c, const gchar *n, gpointer d) { OnBareName(c, n, d, true); },
            [](GDBusConnection *c, const gchar *n, gpointer d) { OnBareName(c, n, d, false); },
            &state, nullptr);
        g_main_loop_run(state.loop);
        g_bus_unown_name(owner);
        g_dbus_connection_unregister_object(conn, registration);
        g_dbus_node_info_unref(node);
        g_main_context_pop_thread_default(state.context);
    });
    {
        std::unique_lock<std::mutex> lock(state.mutex);
        state.cv.wait_for(lock, std::chrono::seconds(10), [&] { return state.done; });
    }
    std::int64_t owned = NowNs();
    GVariant *reply = g_dbus_connection_call_sync(
        conn, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE, "sso_check_alive",
        g_variant_new("(sxs)", objName.c_str(), gint64{1}, "sso_check_alive"),
        G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    std::int64_t end = NowNs();
    gint32 accepted = 0;
    if (reply != nullptr) {
        g_variant_get(reply, "(i)", &accepted);
        g_variant_unref(reply);
    }
    int rc = accepted == 1 && state.owned ? 0 : -1;
    std::printf("first ns=%lld rc=%d connect_ns=%lld name_ns=%lld call_ns=%lld\n",
                static_cast<long long>(end - start), rc, static_cast<long long>(connected - start),
                static_cast<long long>(owned - connected), static_cast<long long>(end - owned));
    std::fflush(stdout);
    ssobench::QuitLoop(state.context, state.loop);
    thread.join();
    g_main_loop_unref(state.loop);
    g_main_context_unref(state.context);
    g_object_unref(conn);
    return rc == 0 ? 0 : 1;
}

// One of many client processes: warm up, say "ready", wait for the start
// (end of file on the go pipe), send `count` requests one after another, and
// report when it finished and what arrived.
int ChildProcessLoad(bool library, int count, int goRead, int goWrite)
{
    close(goWrite);
    Waiter waiter;
    ssobench::BareClient bare;
    auto send = [&](Ticket *ticket, int i) {
        if (library)
            return sso_request_access_token("bench-app", "bench-secret", &Waiter::OnResult,
                                            ticket) == 0;
        return bare.RequestAccessToken(ticket, i);
    };
    if (!library && !bare.Start(CSSOSvcGdbus::m_introspectionXml, "load"))
        return 1;
    long long expected = 0;
    if (!send(waiter.NewTicket(), 0) || !waiter.Wait(++expected))
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    char c;
    while (read(goRead, &c, 1) > 0) {
    }
    close(goRead);
    std::int64_t start = NowNs();
    int refused = 0;
    for (int i = 1; i <= count; ++i) {
        if (!send(waiter.NewTicket(), i)) {
            ++refused;
            continue;
        }
        if (!waiter.Wait(++expected))
            break;
    }
    std::int64_t end = NowNs();
    // Stragglers and repeats would arrive now.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::printf("done start=%lld end=%lld refused=%d missing=%lld duplicated=%lld\n",
                static_cast<long long>(start), static_cast<long long>(end), refused,
                waiter.Missing(), waiter.Duplicated());
    std::fflush(stdout);
    bare.Stop();
    if (library)
        sso_give_proxy();
    return 0;
}

// ============================================================ benchmarks

// One fresh process's first request, as that process timed it; -1 when it
// failed.
std::int64_t FirstRequest(const char *mode)
{
    ssotest::ChildProcess child =
        ssotest::ChildProcess::Spawn({SelfPath(), std::string("--child=") + mode});
    if (!child.WaitForOutput("first ", std::chrono::seconds(30)))
        return -1;
    auto fields = Fields(child.output());
    child.Wait(std::chrono::seconds(10));
    return Number(fields, "rc") == 0 ? static_cast<std::int64_t>(Number(fields, "ns")) : -1;
}

constexpr int kProcesses = 20;

// What the client processes of one side reported, over the whole run.
struct ProcessTotals {
    double missing = 0, duplicated = 0, refused = 0;
};
ProcessTotals g_processTotals[2]; // library, bare

// One round: 20 fresh client processes warm up, then all start at once; the
// wall time per request from the start to the last one's end, or -1.
std::int64_t ProcessRound(bool library)
{
    const char *mode = library ? "procs-lib" : "procs-bare";
    ProcessTotals &totals = g_processTotals[library ? 0 : 1];
    int count = EnvInt("SSO_BENCH_PROCESS_REQUESTS", 100);
    int go[2];
    if (pipe(go) != 0)
        return -1;
    std::vector<ssotest::ChildProcess> children;
    for (int i = 0; i < kProcesses; ++i)
        children.push_back(ssotest::ChildProcess::Spawn(
            {SelfPath(), std::string("--child=") + mode, std::to_string(count),
             std::to_string(go[0]), std::to_string(go[1])}));
    close(go[0]);
    bool ready = true;
    for (auto &child : children)
        ready = child.WaitForOutput("ready", std::chrono::seconds(30)) && ready;
    std::int64_t start = NowNs();
    close(go[1]); // every child starts now
    std::int64_t end = start;
    bool done = ready;
    for (auto &child : children) {
        if (!child.WaitForOutput("done ", std::chrono::seconds(60))) {
            done = false;
            continue;
        }
        std::string out = child.output();
        auto fields = Fields(out.substr(out.find("done ")));
        end = std::max(end, static_cast<std::int64_t>(Number(fields, "end")));
        totals.missing += Number(fields, "missing");
        totals.duplicated += Number(fields, "duplicated");
        totals.refused += Number(fields, "refused");
        child.Wait(std::chrono::seconds(10));
    }
    return done ? (end - start) / (kProcesses * count) : -1;
}

// Memory, threads and descriptors over many requests, in a probe that loads
// the shared library (or does the same in bare GDBus) after taking its
// first measurement.
void RunMemory(benchmark::State &state, bool library)
{
    int requests = EnvInt("SSO_BENCH_MEMORY_REQUESTS", 100000);
    for (auto _ : state) {
        std::vector<std::string> argv = {SSO_BENCH_MEMORY_CHILD, library ? "lib" : "bare",
                                         library ? SSO_BENCH_LIBRARY : SSO_BENCH_CLIENT_XML,
                                         std::to_string(requests), "4"};
        ssotest::ChildProcess child = ssotest::ChildProcess::Spawn(argv);
        if (!child.WaitForOutput("summary ", std::chrono::seconds(600))) {
            state.SkipWithError("the memory probe did not finish");
            break;
        }
        child.Wait(std::chrono::seconds(30));
        std::string out = child.output();
        std::fprintf(stderr, "%s", out.c_str());
        auto fields = Fields(out.substr(out.find("summary ")));
        state.SetIterationTime(Number(fields, "elapsed_ns") / 1e9);
        for (const auto &f : fields)
            if (f.first != "elapsed_ns" && f.first != "thread_names")
                state.counters[f.first] = atof(f.second.c_str());
        state.SetLabel("threads added: " + fields["thread_names"]);
    }
    state.SetItemsProcessed(state.iterations() * requests);
}

void BM_Memory_Library(benchmark::State &state)
{
    RunMemory(state, true);
}
BENCHMARK(BM_Memory_Library)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond)
    ->Setup(ClearSimulator);

void BM_Memory_Bare(benchmark::State &state)
{
    RunMemory(state, false);
}
BENCHMARK(BM_Memory_Bare)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond)
    ->Setup(ClearSimulator);

} // namespace

int main(int argc, char **argv)
{
    if (argc >= 2 && strncmp(argv[1], "--child=", 8) == 0) {
        std::string mode = argv[1] + 8;
        if (mode == "first-lib")
            return ChildFirstLibrary();
        if (mode == "first-bare")
            return ChildFirstBare();
        if ((mode == "procs-lib" || mode == "procs-bare") && argc >= 5)
            return ChildProcessLoad(mode == "procs-lib", atoi(argv[2]), atoi(argv[3]),
                                    atoi(argv[4]));
        return 2;
    }
    ssobench::Initialize(&argc, &argv);
    ssobench::Environment env(true, true);
    g_env = &env;
    env.SignIn("bench@example.com");

    // Rounds of 20 library processes and of 20 bare ones by turns; a
    // figure is the time per request of its rounds.
    ssobench::RegisterPair(
        "BM_Throughput20P_Library", "BM_Throughput20P_Bare", [] { return ProcessRound(true); },
        [] { return ProcessRound(false); },
        [](benchmark::State &state) {
            const char *side[] = {"a_", "b_"};
            for (int i = 0; i < 2; ++i) {
                state.counters[std::string(side[i]) + "callbacks_missing"] =
                    g_processTotals[i].missing;
                state.counters[std::string(side[i]) + "callbacks_duplicated"] =
                    g_processTotals[i].duplicated;
                state.counters[std::string(side[i]) + "refused"] = g_processTotals[i].refused;
                g_processTotals[i] = ProcessTotals();
            }
        })
        ->Iterations(3)
        ->Setup(ClearSimulator);

    // A library process and a bare one by turns.
    ssobench::RegisterPair(
        "BM_FirstRequest_Library", "BM_FirstRequest_Bare", [] { return FirstRequest("first-lib"); },
        [] { return FirstRequest("first-bare"); })
        ->Iterations(10)
        ->Unit(benchmark::kMicrosecond)
        ->Setup(ClearSimulator);

    ssobench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintPairs();
    reporter.PrintRatios({{"BM_Memory_Library", "BM_Memory_Bare"}});
    benchmark::Shutdown();
    return 0;
}
