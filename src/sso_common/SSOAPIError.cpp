#include "SSOAPIError.h"

#include "sso_glib_ptr.h"

#include <cstring>

namespace {

thread_local sso_error_e t_lastError = SSO_ERROR_NONE;
thread_local int t_lastAnswer = 0;

} // namespace

void SSOAPIError::Set(sso_error_e error)
{
    t_lastError = error;
    t_lastAnswer = 0;
}

void SSOAPIError::SetRefused(int answer)
{
    t_lastError = SSO_ERROR_SERVICE_REFUSED;
    t_lastAnswer = answer;
}

sso_error_e SSOAPIError::Last()
{
    return t_lastError;
}

int SSOAPIError::LastServiceAnswer()
{
    return t_lastAnswer;
}

sso_error_e SSOAPIError::FromBusError(const GError *error)
{
    if (error == nullptr)
        return SSO_ERROR_BUS_ERROR;
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMED_OUT))
        return SSO_ERROR_TIMED_OUT;
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
        return SSO_ERROR_UNLOADING;
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
        return SSO_ERROR_SERVICE_NOT_RUNNING;
    // A remote error GLib does not map: tell by its name.
    if (g_dbus_error_is_remote_error(error)) {
        sso_glib::CharPtr name(g_dbus_error_get_remote_error(error));
        bool unknown = name != nullptr &&
                       (strcmp(name.get(), "org.freedesktop.DBus.Error.ServiceUnknown") == 0 ||
                        strcmp(name.get(), "org.freedesktop.DBus.Error.NameHasNoOwner") == 0);
        if (unknown)
            return SSO_ERROR_SERVICE_NOT_RUNNING;
    }
    if (error->domain == G_IO_ERROR &&
        (error->code == G_IO_ERROR_NOT_FOUND || error->code == G_IO_ERROR_CONNECTION_REFUSED ||
         error->code == G_IO_ERROR_CLOSED || error->code == G_IO_ERROR_BROKEN_PIPE ||
         error->code == G_IO_ERROR_CONNECTION_CLOSED ||
         error->code == G_IO_ERROR_PERMISSION_DENIED || error->code == G_IO_ERROR_INVALID_ARGUMENT))
        return SSO_ERROR_NO_BUS;
    return SSO_ERROR_BUS_ERROR;
}
