// A bus peer for the policy tests, run as whichever user the test chose:
//   sso-policy-peer request APP_ID   a device auth code through libsso_api;
//                                    prints "return N" and "callback RESULT"
//   sso-policy-peer serve APP_ID     becomes a library client (one sso_check_alive),
//                                    prints "serving BUS_NAME" and "ready", then waits
//                                    to be killed
//   sso-policy-peer own NAME         asks the bus for NAME; prints "reply N" or
//                                    "error NAME: MESSAGE"
//   sso-policy-peer call BUS_NAME    calls a method of the client interface on
//                                    BUS_NAME's client object; prints "ok" or
//                                    "error NAME: MESSAGE"
// Every mode first prints "uid N". Exit status 0 when the mode's own step
// worked (a denied call is reported, not a failure of the peer), 1 otherwise,
// 2 on bad usage.
#include <gio/gio.h>
#include <sso_api/sso_api.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace {

constexpr const char *kClientPath = "/org/orvex/tv/ssoservice/ssoclient";
constexpr const char *kClientInterface = "org.orvex.tv.ssoservice.ssoclient.interface";

std::mutex g_mutex;
std::condition_variable g_cond;
bool g_called = false;
int g_result = -1;

// Runs on the library's SSOProxyMonitor thread.
int OnAuthCode(void *, int result, char *)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_called = true;
    g_result = result;
    g_cond.notify_all();
    return 0;
}

void PrintError(GError *error)
{
    gchar *name = g_dbus_error_get_remote_error(error);
    std::printf("error %s: %s\n", name ? name : "(local)", error->message);
    g_free(name);
    g_error_free(error);
}

int Request(const char *app_id)
{
    const int rc = sso_request_device_authcode(app_id, nullptr, &OnAuthCode, nullptr);
    std::printf("return %d\n", rc);
    if (rc != 0)
        return 1;
    std::unique_lock<std::mutex> lock(g_mutex);
    if (!g_cond.wait_for(lock, std::chrono::seconds(10), [] { return g_called; })) {
        std::printf("no callback\n");
        return 1;
    }
    std::printf("callback %d\n", g_result);
    return 0;
}

int Serve(const char *app_id)
{
    const int rc = sso_check_alive();
    std::printf("alive %d\n", rc);
    if (rc != 0)
        return 1;
    std::printf("serving org.orvex.tv.ssoservice.ssoclient.obj%d_%s\nready\n",
                static_cast<int>(getpid()), app_id);
    std::fflush(stdout);
    for (;;)
        pause();
}

GDBusConnection *Connect()
{
    GError *error = nullptr;
    GDBusConnection *connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr)
        PrintError(error);
    return connection;
}

int Own(const char *name)
{
    GDBusConnection *connection = Connect();
    if (connection == nullptr)
        return 1;
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, 4u /* DO_NOT_QUEUE */), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
    if (reply == nullptr) {
        PrintError(error);
    } else {
        guint32 code = 0;
        g_variant_get(reply, "(u)", &code);
        std::printf("reply %u\n", code);
        g_variant_unref(reply);
    }
    g_object_unref(connection);
    return 0;
}

int Call(const char *bus_name)
{
    GDBusConnection *connection = Connect();
    if (connection == nullptr)
        return 1;
    // Well-typed, so only the bus or the client's own checks can refuse it.
    GVariant *args =
        g_variant_new("(sxxsixis)", "obj1_policy.peer", gint64{0}, gint64{1}, "AT-from-a-stranger",
                      0, gint64{0}, 0, "sso_request_access_token");
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection, bus_name, kClientPath, kClientInterface, "sso_request_access_token", args,
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000, nullptr, &error);
    if (reply == nullptr) {
        PrintError(error);
    } else {
        std::printf("ok\n");
        g_variant_unref(reply);
    }
    g_object_unref(connection);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s request|serve|own|call ARG\n", argv[0]);
        return 2;
    }
    std::printf("uid %d\n", static_cast<int>(getuid()));
    const std::string mode = argv[1];
    if (mode == "request")
        return Request(argv[2]);
    if (mode == "serve")
        return Serve(argv[2]);
    if (mode == "own")
        return Own(argv[2]);
    if (mode == "call")
        return Call(argv[2]);
    std::fprintf(stderr, "%s: unknown mode '%s'\n", argv[0], argv[1]);
    return 2;
}
