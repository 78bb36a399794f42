/*
 * cynara-creds-gdbus: credentials of a peer on a GDBus connection.
 */
#ifndef SSO_PLATFORM_CYNARA_CREDS_GDBUS_H
#define SSO_PLATFORM_CYNARA_CREDS_GDBUS_H

#include <gio/gio.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CYNARA_API_SUCCESS 0
#define CYNARA_API_INVALID_PARAM (-4)
#define CYNARA_API_CONFIGURATION_ERROR (-6)
#define CYNARA_API_UNKNOWN_ERROR (-1)

/* Asks the bus daemon for the process id of the peer with the given unique
 * bus name. Blocks for at most a few seconds. Returns CYNARA_API_SUCCESS and
 * sets *pid, or a negative error when the bus cannot tell. */
int cynara_creds_gdbus_get_pid(GDBusConnection *connection, const gchar *unique_name, pid_t *pid);

#ifdef __cplusplus
}
#endif

#endif
