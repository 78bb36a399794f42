#include "bench_client.h"

#include <time.h>
#include <unistd.h>

#include <chrono>

// The fixed names of the service and of the client object.
#include "sso_api_proxy.h"

namespace ssobench {

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

void QuitLoop(GMainContext *context, GMainLoop *loop)
{
    GSource *quit = g_idle_source_new();
    g_source_set_callback(
        quit,
        [](gpointer l) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop *>(l));
            return G_SOURCE_REMOVE;
        },
        loop, nullptr);
    g_source_attach(quit, context);
    g_source_unref(quit);
}

gint64 AsInt(const void *pointer)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(pointer));
}

std::int64_t NowNs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

// ------------------------------------------------------------------ Waiter

Ticket *Waiter::NewTicket()
{
    std::lock_guard<std::mutex> lock(mutex_);
    tickets_.emplace_back();
    tickets_.back().waiter = this;
    return &tickets_.back();
}

bool Waiter::Wait(long long expected)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cv_.wait_for(lock, std::chrono::seconds(10), [&] { return results_ >= expected; });
}

long long Waiter::results() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return results_;
}

long long Waiter::Missing() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    long long n = 0;
    for (const Ticket &t : tickets_)
        n += t.hits.load() == 0 ? 1 : 0;
    return n;
}

long long Waiter::Duplicated() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    long long n = 0;
    for (const Ticket &t : tickets_)
        n += t.hits.load() > 1 ? t.hits.load() - 1 : 0;
    return n;
}

int Waiter::OnResult(void *userData, int, char *)
{
    auto *ticket = static_cast<Ticket *>(userData);
    ticket->hits.fetch_add(1);
    Waiter *waiter = ticket->waiter;
    {
        std::lock_guard<std::mutex> lock(waiter->mutex_);
        ++waiter->results_;
    }
    waiter->cv_.notify_all();
    return 0;
}

// -------------------------------------------------------------- BareClient

BareClient::~BareClient()
{
    Stop();
}

bool BareClient::Start(const std::string &introspectionXml, const std::string &suffix)
{
    xml_ = introspectionXml;
    // The service checks that the name is this process's ("obj<pid>_..."); the
    // rest keeps it apart from the library's own name in the same process.
    objName_ = "obj" + std::to_string(getpid()) + "_bare." + suffix;
    context_ = g_main_context_new();
    loop_ = g_main_loop_new(context_, FALSE);
    thread_ = std::thread([this] { Run(); });
    std::unique_lock<std::mutex> lock(mutex_);
    cv_.wait(lock, [&] { return ready_; });
    return ok_;
}

void BareClient::Stop()
{
    if (!thread_.joinable())
        return;
    QuitLoop(context_, loop_);
    thread_.join();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
    loop_ = nullptr;
    context_ = nullptr;
}

bool BareClient::CallService(const char *method, GVariant *parameters)
{
    GVariant *reply = g_dbus_connection_call_sync(
        conn_, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE, method,
        parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    if (reply == nullptr)
        return false;
    gint32 accepted = 0;
    if (g_variant_is_of_type(reply, G_VARIANT_TYPE("(i)")))
        g_variant_get(reply, "(i)", &accepted);
    g_variant_unref(reply);
    return accepted == 1;
}

bool BareClient::RequestAccessToken(void *userData, int aeIndex)
{
    return CallService("sso_request_access_token",
                       g_variant_new("(ssssxxxis)", objName_.c_str(), "bench-app", "bench-secret",
                                     "HAS_NO_VALUE",
                                     AsInt(reinterpret_cast<void *>(&Waiter::OnResult)), gint64{1},
                                     AsInt(userData), aeIndex, "sso_request_access_token"));
}

bool BareClient::CheckAlive()
{
    return CallService("sso_check_alive",
                       g_variant_new("(sxs)", objName_.c_str(), gint64{1}, "sso_check_alive"));
}

// Runs on the client's own thread: decode, answer, call back, as the
// library's dispatcher does for a string result.
void BareClient::OnCall(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                        const gchar *, GVariant *parameters, GDBusMethodInvocation *invocation,
                        gpointer)
{
    gchar *obj = nullptr;
    gchar *token = nullptr;
    gchar *methodCall = nullptr;
    gint64 cb = 0, rid = 0, ud = 0;
    gint32 result = 0, ae = 0;
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sxxsixis)")))
        g_variant_get(parameters, "(sxxsixis)", &obj, &cb, &rid, &token, &result, &ud, &ae,
                      &methodCall);
    g_dbus_method_invocation_return_value(invocation, nullptr);
    if (cb != 0)
        reinterpret_cast<int (*)(void *, int, char *)>(static_cast<intptr_t>(cb))(
            reinterpret_cast<void *>(static_cast<intptr_t>(ud)), result, token);
    g_free(obj);
    g_free(token);
    g_free(methodCall);
}

void BareClient::Run()
{
    g_main_context_push_thread_default(context_);
    conn_ = PrivateConnection();
    GDBusNodeInfo *node = nullptr;
    guint registration = 0;
    bool ok = false;
    if (conn_ != nullptr) {
        node = g_dbus_node_info_new_for_xml(xml_.c_str(), nullptr);
        static const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {nullptr}};
        if (node != nullptr)
            registration = g_dbus_connection_register_object(conn_, SSO_CLIENT_OBJECT_PATH,
                                                             node->interfaces[0], &vtable, this,
                                                             nullptr, nullptr);
        GVariant *r = g_dbus_connection_call_sync(
            conn_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName",
            g_variant_new("(su)", (std::string(SSO_CLIENT_BUS_NAME_PREFIX) + objName_).c_str(), 0u),
            G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (r != nullptr) {
            guint32 code = 0;
            g_variant_get(r, "(u)", &code);
            ok = registration != 0 && code == 1; // primary owner
            g_variant_unref(r);
        }
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ok_ = ok;
        ready_ = true;
    }
    cv_.notify_all();
    g_main_loop_run(loop_);
    if (registration != 0)
        g_dbus_connection_unregister_object(conn_, registration);
    if (node != nullptr)
        g_dbus_node_info_unref(node);
    if (conn_ != nullptr) {
        g_dbus_connection_close_sync(conn_, nullptr, nullptr);
        g_object_unref(conn_);
        conn_ = nullptr;
    }
    g_main_context_pop_thread_default(context_);
}

} // namespace ssobench
