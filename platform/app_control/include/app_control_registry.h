/*
 * The application registry of the Linux platform, for the platform tools and
 * tests: which program runs for an application id.
 *
 * An application is a file $SSO_PLATFORM_ROOT/apps/<encoded app id> holding
 * the absolute path of its program. App ids are 1 to 255 bytes without
 * control characters that still fit a file name once bytes outside
 * [A-Za-z0-9_.-] are written as %XX (247 bytes).
 */
#ifndef SSO_PLATFORM_APP_CONTROL_REGISTRY_H
#define SSO_PLATFORM_APP_CONTROL_REGISTRY_H

#include <stdbool.h>

#include "app_control.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Registers (or re-registers) an application. exec_path must be absolute and
 * hold no newline; whether it exists is checked at launch. */
int app_control_register_app(const char *app_id, const char *exec_path);

/* APP_CONTROL_ERROR_APP_NOT_FOUND when it was not registered. */
int app_control_unregister_app(const char *app_id);

/* The program of a registered application, malloc'ed.
 * APP_CONTROL_ERROR_APP_NOT_FOUND when it is not registered,
 * APP_CONTROL_ERROR_IO_ERROR when its entry cannot be read or is malformed. */
int app_control_get_app_exec(const char *app_id, char **exec_path);

/* Calls back once for every well-formed registration, in app id order, until
 * the callback returns false. */
typedef bool (*app_control_registered_app_cb)(const char *app_id, const char *exec_path,
                                              void *user_data);
int app_control_foreach_registered_app(app_control_registered_app_cb callback, void *user_data);

#ifdef __cplusplus
}
#endif

#endif
