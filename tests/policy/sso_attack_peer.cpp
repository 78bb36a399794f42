// A hostile bus peer for the result-delivery tests, run as another user. It
// uses bare GDBus (not the library) and reports every method call that
// reaches its connection, whatever the name, path or interface, so a result
// that went astray shows up in its output:
//   sso-attack-peer hold NAME FLAGS
//       asks the bus for NAME with RequestName FLAGS; prints "reply N" (1
//       primary owner, 2 queued, 3 exists) or "error NAME: MESSAGE", then
//       "ready", then "acquired NAME" / "lost NAME" as the bus says so, until
//       it is killed
//   sso-attack-peer forge OBJECT_NAME CALLBACK USER_DATA REQUEST_ID
//       asks the service for an access token in OBJECT_NAME's name, with
//       those numbers; prints "answer N" or "error NAME: MESSAGE"; when the
//       service accepted, waits (up to 10 s) until a result reaches this
//       connection
//   sso-attack-peer call BUS_NAME METHOD ARGS
//       calls METHOD of the client interface on BUS_NAME's client object
//       with ARGS (GVariant text); prints "ok" or "error NAME: MESSAGE"
// Every mode first prints "uid N", "pid N" and "unique NAME" (its connection's
// unique name); every call that reaches the connection is answered with an
// empty reply and printed as "caught METHOD ARGS". Exit status 0 when the
// mode's own step ran (a refusal is reported, not a failure), 1 otherwise, 2
// on bad usage.
#include <gio/gio.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace {

constexpr const char *kServiceName = "org.orvex.tv.ssoservice.server";
constexpr const char *kServicePath = "/org/orvex/tv/ssoservice/server";
constexpr const char *kServiceInterface = "org.orvex.tv.ssoservice.server.interface";
constexpr const char *kClientPath = "/org/orvex/tv/ssoservice/ssoclient";
constexpr const char *kClientInterface = "org.orvex.tv.ssoservice.ssoclient.interface";

std::mutex g_mutex;
std::condition_variable g_cond;
int g_caught = 0; // guarded by g_mutex

void PrintError(GError *error)
{
    gchar *name = g_dbus_error_get_remote_error(error);
    std::printf("error %s: %s\n", name ? name : "(local)", error->message);
    g_free(name);
    g_error_free(error);
}

// Runs on GDBus's worker thread for every message that comes in.
GDBusMessage *Watch(GDBusConnection *connection, GDBusMessage *message, gboolean incoming, gpointer)
{
    if (!incoming)
        return message;
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    if (type == G_DBUS_MESSAGE_TYPE_SIGNAL &&
        g_strcmp0(g_dbus_message_get_sender(message), "org.freedesktop.DBus") == 0) {
        const char *member = g_dbus_message_get_member(message);
        GVariant *body = g_dbus_message_get_body(message);
        if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)")) &&
            (g_strcmp0(member, "NameAcquired") == 0 || g_strcmp0(member, "NameLost") == 0)) {
            const gchar *name = nullptr;
            g_variant_get(body, "(&s)", &name);
            std::printf("%s %s\n", g_strcmp0(member, "NameAcquired") == 0 ? "acquired" : "lost",
                        name);
        }
        return message;
    }
    if (type != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return message;
    GVariant *body = g_dbus_message_get_body(message);
    gchar *args = body != nullptr ? g_variant_print(body, TRUE) : g_strdup("()");
    std::printf("caught %s %s\n", g_dbus_message_get_member(message), args);
    g_free(args);
    // Answered, so the sender does not wait; nothing else sees it.
    GDBusMessage *reply = g_dbus_message_new_method_reply(message);
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(reply);
    g_object_unref(message);
    std::lock_guard<std::mutex> lock(g_mutex);
    ++g_caught;
    g_cond.notify_all();
    return nullptr;
}

GDBusConnection *Connect()
{
    GError *error = nullptr;
    GDBusConnection *connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        PrintError(error);
        return nullptr;
    }
    g_dbus_connection_add_filter(connection, Watch, nullptr, nullptr);
    std::printf("unique %s\n", g_dbus_connection_get_unique_name(connection));
    return connection;
}

// Prints the bus's answer to RequestName; false when the call failed.
bool RequestName(GDBusConnection *connection, const char *name, guint32 flags)
{
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, flags), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
    if (reply == nullptr) {
        PrintError(error);
        return false;
    }
    guint32 code = 0;
    g_variant_get(reply, "(u)", &code);
    std::printf("reply %u\n", code);
    g_variant_unref(reply);
    return true;
}

int Hold(GDBusConnection *connection, const char *name, const char *flags)
{
    RequestName(connection, name, static_cast<guint32>(std::strtoul(flags, nullptr, 0)));
    std::printf("ready\n");
    for (;;)
        pause();
}

int Forge(GDBusConnection *connection, const char *object_name, const char *callback,
          const char *user_data, const char *request_id)
{
    GVariant *args = g_variant_new(
        "(ssssxxxis)", object_name, "org.example.victim", "stolen-secret", "HAS_NO_VALUE",
        static_cast<gint64>(std::strtoll(callback, nullptr, 10)),
        static_cast<gint64>(std::strtoll(request_id, nullptr, 10)),
        static_cast<gint64>(std::strtoll(user_data, nullptr, 10)), 0, "sso_request_access_token");
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection, kServiceName, kServicePath, kServiceInterface, "sso_request_access_token", args,
        G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
    if (reply == nullptr) {
        PrintError(error);
        return 0;
    }
    gint32 answer = 0;
    g_variant_get(reply, "(i)", &answer);
    g_variant_unref(reply);
    std::printf("answer %d\n", answer);
    if (answer != 1)
        return 0;
    std::unique_lock<std::mutex> lock(g_mutex);
    if (!g_cond.wait_for(lock, std::chrono::seconds(10), [] { return g_caught > 0; })) {
        std::printf("no result\n");
        return 1;
    }
    return 0;
}

int Call(GDBusConnection *connection, const char *bus_name, const char *method, const char *text)
{
    GError *error = nullptr;
    GVariant *args = g_variant_parse(nullptr, text, nullptr, nullptr, &error);
    if (args == nullptr) {
        PrintError(error);
        return 1;
    }
    GVariant *reply = g_dbus_connection_call_sync(
        connection, bus_name, kClientPath, kClientInterface, method, args, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000, nullptr, &error);
    if (reply == nullptr) {
        PrintError(error);
    } else {
        std::printf("ok\n");
        g_variant_unref(reply);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string mode = argc > 1 ? argv[1] : "";
    const int want = mode == "hold" ? 4 : mode == "forge" ? 6 : mode == "call" ? 5 : -1;
    if (argc != want) {
        std::fprintf(stderr,
                     "usage: %s hold NAME FLAGS | forge OBJECT_NAME CALLBACK USER_DATA "
                     "REQUEST_ID | call BUS_NAME METHOD ARGS\n",
                     argv[0]);
        return 2;
    }
    std::printf("uid %d\npid %d\n", static_cast<int>(getuid()), static_cast<int>(getpid()));
    GDBusConnection *connection = Connect();
    if (connection == nullptr)
        return 1;
    int status = 1;
    if (mode == "hold")
        status = Hold(connection, argv[2], argv[3]);
    else if (mode == "forge")
        status = Forge(connection, argv[2], argv[3], argv[4], argv[5]);
    else
        status = Call(connection, argv[2], argv[3], argv[4]);
    g_object_unref(connection);
    return status;
}
