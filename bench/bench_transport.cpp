// The D-Bus link against the simulator on a private bus, side by side with
// bare GDBus doing the same work: one request's round trip, and the time from
// a request to its result callback.
#include <gio/gio.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "SSOAPIClientUtil.h"
#include "bench_support.h"
#include "sso_api/sso_api.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

// One outstanding result at a time.
std::mutex g_mutex;
std::condition_variable g_cv;
int g_results = 0;

int OnResult(void *, int, char *)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    ++g_results;
    g_cv.notify_one();
    return 0;
}

void WaitForResult(int expected)
{
    std::unique_lock<std::mutex> lock(g_mutex);
    g_cv.wait_for(lock, std::chrono::seconds(10), [&] { return g_results >= expected; });
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

void BM_CheckAlive_Library(benchmark::State &state)
{
    for (auto _ : state)
        if (sso_check_alive() != 0)
            state.SkipWithError("sso_check_alive failed");
}
BENCHMARK(BM_CheckAlive_Library)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);

void BM_CheckAlive_BareGDBus(benchmark::State &state)
{
    GDBusConnection *conn = PrivateConnection();
    std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    gint64 tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    for (auto _ : state) {
        GVariant *reply = g_dbus_connection_call_sync(
            conn, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE,
            "sso_check_alive", g_variant_new("(sxs)", obj.c_str(), tid, "sso_check_alive"), nullptr,
            G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (reply == nullptr) {
            state.SkipWithError("call failed");
            break;
        }
        gint32 accepted = 0;
        g_variant_get(reply, "(i)", &accepted);
        g_variant_unref(reply);
        benchmark::DoNotOptimize(accepted);
    }
    g_object_unref(conn);
}
BENCHMARK(BM_CheckAlive_BareGDBus)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);

void BM_RequestToCallback_Library(benchmark::State &state)
{
    std::string obj = SSOAPIClientUtil::GetDBusObjectName();
    gint64 tid = SSOAPIClientUtil::GetDBusProxyThreadId();
    int expected = g_results;
    for (auto _ : state) {
        GVariant *params =
            g_variant_new("(ssssxxxis)", obj.c_str(), "bench-app", "bench-secret", "HAS_NO_VALUE",
                          static_cast<gint64>(reinterpret_cast<intptr_t>(&OnResult)), tid,
                          gint64{0}, 0, "sso_request_access_token");
        GVariant *reply = nullptr;
        if (sso_private_request_method("sso_request_access_token", params, &reply) != 0) {
            state.SkipWithError("request refused");
            break;
        }
        WaitForResult(++expected);
    }
}
BENCHMARK(BM_RequestToCallback_Library)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);

// The bare baseline of a result delivery: its own bus name and client object,
// dispatched on a thread of its own, and the same request.
struct BareClient {
    GDBusConnection *conn = nullptr;
    GMainContext *context = nullptr;
    GMainLoop *loop = nullptr;
    std::thread thread;
    guint ownerId = 0;
    guint registerId = 0;
    GDBusNodeInfo *node = nullptr;
    std::string objName;
    std::atomic<bool> ready{false};

    static void OnCall(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                       const gchar *, GVariant *parameters, GDBusMethodInvocation *invocation,
                       gpointer)
    {
        gint32 result = 0;
        const gchar *token = nullptr;
        gint64 cb = 0, rid = 0, ud = 0;
        const gchar *obj = nullptr;
        gint32 ae = 0;
        const gchar *mc = nullptr;
        g_variant_get(parameters, "(&sxx&sixi&s)", &obj, &cb, &rid, &token, &result, &ud, &ae, &mc);
        g_dbus_method_invocation_return_value(invocation, nullptr);
        reinterpret_cast<int (*)(void *, int, char *)>(static_cast<intptr_t>(cb))(
            reinterpret_cast<void *>(static_cast<intptr_t>(ud)), result, const_cast<char *>(token));
    }

    void Start()
    {
        objName = "objbare" + std::to_string(getpid());
        context = g_main_context_new();
        loop = g_main_loop_new(context, FALSE);
        thread = std::thread([this] {
            g_main_context_push_thread_default(context);
            conn = PrivateConnection();
            node = g_dbus_node_info_new_for_xml(CSSOSvcGdbus::m_introspectionXml.c_str(), nullptr);
            static const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {nullptr}};
            registerId = g_dbus_connection_register_object(
                conn, SSO_CLIENT_OBJECT_PATH, node->interfaces[0], &vtable, this, nullptr, nullptr);
            GVariant *r = g_dbus_connection_call_sync(
                conn, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "RequestName",
                g_variant_new("(su)", (std::string(SSO_CLIENT_BUS_NAME_PREFIX) + objName).c_str(),
                              0u),
                nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
            if (r)
                g_variant_unref(r);
            ready = true;
            g_main_loop_run(loop);
            g_dbus_connection_unregister_object(conn, registerId);
            g_dbus_node_info_unref(node);
            g_object_unref(conn);
            g_main_context_pop_thread_default(context);
        });
        while (!ready)
            std::this_thread::yield();
    }

    void Stop()
    {
        g_main_context_invoke(
            context,
            [](gpointer l) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(l));
                return G_SOURCE_REMOVE;
            },
            loop);
        thread.join();
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    }
};

void BM_RequestToCallback_BareGDBus(benchmark::State &state)
{
    BareClient client;
    client.Start();
    GDBusConnection *conn = PrivateConnection();
    int expected = g_results;
    for (auto _ : state) {
        GVariant *reply = g_dbus_connection_call_sync(
            conn, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE,
            "sso_request_access_token",
            g_variant_new("(ssssxxxis)", client.objName.c_str(), "bench-app", "bench-secret",
                          "HAS_NO_VALUE",
                          static_cast<gint64>(reinterpret_cast<intptr_t>(&OnResult)), gint64{1},
                          gint64{0}, 0, "sso_request_access_token"),
            nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (reply == nullptr) {
            state.SkipWithError("call failed");
            break;
        }
        g_variant_unref(reply);
        WaitForResult(++expected);
    }
    g_object_unref(conn);
    client.Stop();
}
BENCHMARK(BM_RequestToCallback_BareGDBus)
    ->UseRealTime()
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    // The library's default log threshold and destination, as an
    // application would run it.
    ssotest::PlatformRoot root;
    if (getenv("SSO_BENCH_LOG") != nullptr) {
        setenv("SSO_PLATFORM_LOG", getenv("SSO_BENCH_LOG"), 1);
    } else {
        unsetenv("SSO_PLATFORM_LOG");
    }
    unsetenv("SSO_PLATFORM_LOG_LEVEL");
    dlog_reload_config();
    ssotest::PrivateBus bus;
    bus.Start();
    ssotest::Simulator sim;
    sim.Start();
    if (sso_check_alive() != 0) {
        std::fprintf(stderr, "the simulator does not answer\n");
        return 1;
    }
    ssobench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios({{"BM_CheckAlive_Library", "BM_CheckAlive_BareGDBus"},
                          {"BM_RequestToCallback_Library", "BM_RequestToCallback_BareGDBus"}});
    sso_give_proxy();
    sim.Stop();
    bus.Stop();
    benchmark::Shutdown();
    return 0;
}
