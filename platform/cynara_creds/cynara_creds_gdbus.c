#include "cynara-creds-gdbus.h"

#include "sso_platform_common.h"

/* The bus daemon answers from its own table of connections; two seconds is
 * far beyond a healthy daemon's answer and keeps a wedged one from holding
 * the caller for GDBus's default 25 seconds. */
#define CREDS_TIMEOUT_MS 2000

SSO_PLATFORM_EXPORT int cynara_creds_gdbus_get_pid(GDBusConnection *connection,
                                                   const gchar *unique_name, pid_t *pid)
{
    if (!connection || !unique_name || !pid || !g_dbus_is_name(unique_name))
        return CYNARA_API_INVALID_PARAM;
    GError *error = NULL;
    GVariant *reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetConnectionUnixProcessID", g_variant_new("(s)", unique_name), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, CREDS_TIMEOUT_MS, NULL, &error);
    if (!reply) {
        int ret = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)
                      ? CYNARA_API_INVALID_PARAM
                      : CYNARA_API_UNKNOWN_ERROR;
        g_clear_error(&error);
        return ret;
    }
    guint32 value = 0;
    g_variant_get(reply, "(u)", &value);
    g_variant_unref(reply);
    if (value == 0)
        return CYNARA_API_UNKNOWN_ERROR;
    *pid = (pid_t)value;
    return CYNARA_API_SUCCESS;
}
