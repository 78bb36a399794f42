// sso_request_access_token against the simulator on a private bus, side by
// side with bare GDBus doing the same call and receiving the same callback on
// an object it exports, dispatched on a thread of its own: the latency from
// the request to its callback, and the throughput of 1, 4 and 16 application
// threads that each wait for their own callbacks.
#include <dlog.h>
#include <gio/gio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "SSOAPIClientUtil.h"
#include "bench_support.h"
#include "sso_api/sso_api.h"
#include "sso_api_proxy.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

// One per application thread: the callback counts, the thread waits.
struct Waiter {
    std::mutex mutex;
    std::condition_variable cv;
    long long results = 0;

    void Wait(long long expected)
    {
        std::unique_lock<std::mutex> lock(mutex);
        cv.wait_for(lock, std::chrono::seconds(10), [&] { return results >= expected; });
    }
    bool Reached(long long expected)
    {
        std::lock_guard<std::mutex> lock(mutex);
        return results >= expected;
    }
};

int OnToken(void *userData, int, char *)
{
    auto *waiter = static_cast<Waiter *>(userData);
    std::lock_guard<std::mutex> lock(waiter->mutex);
    ++waiter->results;
    waiter->cv.notify_one();
    return 0;
}

gint64 AsInt(const void *p)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(p));
}

GDBusConnection *PrivateConnection()
{
    gchar *address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    GDBusConnection *conn = g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    g_free(address);
    return conn;
}

// The bare counterpart of the library's link: one connection shared by the
// application threads, a bus name and a client object of its own, results
// dispatched on one thread running its own main context.
class BareClient {
public:
    void Start()
    {
        objName_ = "objbare" + std::to_string(getpid()) + "_bench";
        context_ = g_main_context_new();
        loop_ = g_main_loop_new(context_, FALSE);
        thread_ = std::thread([this] { Run(); });
        std::unique_lock<std::mutex> lock(mutex_);
        cv_.wait(lock, [&] { return ready_; });
    }

    void Stop()
    {
        g_main_context_invoke(
            context_,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return G_SOURCE_REMOVE;
            },
            loop_);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }

    GDBusConnection *connection() const { return conn_; }
    const std::string &objName() const { return objName_; }

    // The same tuple the library sends for sso_request_access_token.
    bool Request(Waiter *waiter, int aeIndex)
    {
        GVariant *reply = g_dbus_connection_call_sync(
            conn_, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE,
            "sso_request_access_token",
            g_variant_new("(ssssxxxis)", objName_.c_str(), "bench-app", "bench-secret",
                          "HAS_NO_VALUE", AsInt(reinterpret_cast<void *>(&OnToken)), gint64{1},
                          AsInt(waiter), aeIndex, "sso_request_access_token"),
            G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (reply == nullptr)
            return false;
        gint32 accepted = 0;
        g_variant_get(reply, "(i)", &accepted);
        g_variant_unref(reply);
        return accepted == 1;
    }

private:
    static void OnCall(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                       const gchar *, GVariant *parameters, GDBusMethodInvocation *invocation,
                       gpointer)
    {
        const gchar *obj = nullptr;
        const gchar *token = nullptr;
        const gchar *methodCall = nullptr;
        gint64 cb = 0, rid = 0, ud = 0;
        gint32 result = 0, ae = 0;
        g_variant_get(parameters, "(&sxx&sixi&s)", &obj, &cb, &rid, &token, &result, &ud, &ae,
                      &methodCall);
        g_dbus_method_invocation_return_value(invocation, nullptr);
        reinterpret_cast<int (*)(void *, int, char *)>(static_cast<intptr_t>(cb))(
            reinterpret_cast<void *>(static_cast<intptr_t>(ud)), result, const_cast<char *>(token));
    }

    void Run()
    {
        g_main_context_push_thread_default(context_);
        conn_ = PrivateConnection();
        GDBusNodeInfo *node =
            g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), nullptr);
        static const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {nullptr}};
        guint registration = g_dbus_connection_register_object(
            conn_, SSO_CLIENT_OBJECT_PATH, node->interfaces[0], &vtable, this, nullptr, nullptr);
        GVariant *r = g_dbus_connection_call_sync(
            conn_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName",
            g_variant_new("(su)", (std::string(SSO_CLIENT_BUS_NAME_PREFIX) + objName_).c_str(), 0u),
            nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (r != nullptr)
            g_variant_unref(r);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ready_ = true;
        }
        cv_.notify_all();
        g_main_loop_run(loop_);
        g_dbus_connection_unregister_object(conn_, registration);
        g_dbus_node_info_unref(node);
        g_object_unref(conn_);
        g_main_context_pop_thread_default(context_);
    }

    std::string objName_;
    GDBusConnection *conn_ = nullptr;
    GMainContext *context_ = nullptr;
    GMainLoop *loop_ = nullptr;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable cv_;
    bool ready_ = false;
};

BareClient g_bare;
std::atomic<int> g_bareAeIndex{0};

// Each benchmark thread has its own waiter, so it waits only for its own
// callbacks.
void RunLibrary(benchmark::State &state)
{
    Waiter waiter;
    long long expected = 0;
    for (auto _ : state) {
        if (sso_request_access_token("bench-app", "bench-secret", &OnToken, &waiter) != 0) {
            state.SkipWithError("request refused");
            break;
        }
        waiter.Wait(++expected);
        if (!waiter.Reached(expected)) {
            state.SkipWithError("no callback within 10 s");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void RunBare(benchmark::State &state)
{
    Waiter waiter;
    long long expected = 0;
    for (auto _ : state) {
        if (!g_bare.Request(&waiter, g_bareAeIndex++)) {
            state.SkipWithError("call failed");
            break;
        }
        waiter.Wait(++expected);
        if (!waiter.Reached(expected)) {
            state.SkipWithError("no callback within 10 s");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// Latency: one application thread, one request at a time, start to callback.
void BM_AccessTokenLatency_Library(benchmark::State &state)
{
    RunLibrary(state);
}
BENCHMARK(BM_AccessTokenLatency_Library)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);

void BM_AccessTokenLatency_BareGDBus(benchmark::State &state)
{
    RunBare(state);
}
BENCHMARK(BM_AccessTokenLatency_BareGDBus)
    ->UseRealTime()
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

// Throughput: N application threads at once, each waiting for its own
// callbacks. The time per item is the wall time per request of all threads
// together; items_per_second is the requests per second.
#define SSO_THROUGHPUT_PAIR(N)                                                                     \
    void BM_AccessTokenThroughput##N##T_Library(benchmark::State &state)                           \
    {                                                                                              \
        RunLibrary(state);                                                                         \
    }                                                                                              \
    BENCHMARK(BM_AccessTokenThroughput##N##T_Library)                                              \
        ->Threads(N)                                                                               \
        ->UseRealTime()                                                                            \
        ->Repetitions(3)                                                                           \
        ->ReportAggregatesOnly(true);                                                              \
    void BM_AccessTokenThroughput##N##T_BareGDBus(benchmark::State &state)                         \
    {                                                                                              \
        RunBare(state);                                                                            \
    }                                                                                              \
    BENCHMARK(BM_AccessTokenThroughput##N##T_BareGDBus)                                            \
        ->Threads(N)                                                                               \
        ->UseRealTime()                                                                            \
        ->Repetitions(3)                                                                           \
        ->ReportAggregatesOnly(true);

SSO_THROUGHPUT_PAIR(1)
SSO_THROUGHPUT_PAIR(4)
SSO_THROUGHPUT_PAIR(16)

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    // The library's default log threshold and destination, as an
    // application would run it.
    ssotest::PlatformRoot root;
    if (getenv("SSO_BENCH_LOG") != nullptr)
        setenv("SSO_PLATFORM_LOG", getenv("SSO_BENCH_LOG"), 1);
    else
        unsetenv("SSO_PLATFORM_LOG");
    unsetenv("SSO_PLATFORM_LOG_LEVEL");
    dlog_reload_config();
    ssotest::PrivateBus bus;
    bus.Start();
    ssotest::Simulator sim;
    sim.Start();
    // Access tokens need a signed-in user.
    ssotest::AccountSpec account;
    account.login_id = "bench@example.com";
    sim.AddAccount(account);
    sim.SignIn("bench@example.com");
    Waiter warmUp;
    if (sso_request_access_token("bench-app", "bench-secret", &OnToken, &warmUp) != 0) {
        std::fprintf(stderr, "the simulator refuses access-token requests\n");
        return 1;
    }
    warmUp.Wait(1);
    g_bare.Start();

    ssobench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios(
        {{"BM_AccessTokenLatency_Library", "BM_AccessTokenLatency_BareGDBus"},
         {"BM_AccessTokenThroughput1T_Library", "BM_AccessTokenThroughput1T_BareGDBus"},
         {"BM_AccessTokenThroughput4T_Library", "BM_AccessTokenThroughput4T_BareGDBus"},
         {"BM_AccessTokenThroughput16T_Library", "BM_AccessTokenThroughput16T_BareGDBus"}});

    g_bare.Stop();
    sso_give_proxy();
    sim.Stop();
    bus.Stop();
    benchmark::Shutdown();
    return 0;
}
