/*
 * system_info: facts about the device, here the custom feature flags a build
 * or an operator switches on and off (e.g.
 * "com.veltra/featureconf/account.signin_mandatory").
 *
 * On this Linux platform a flag lives under $SSO_PLATFORM_ROOT/features, one
 * file a key, replaced atomically on every write. Every call reads the file
 * afresh, so a flag changed by another process (or `sso-platform feature`) is
 * seen by the next call.
 */
#ifndef SSO_PLATFORM_SYSTEM_INFO_H
#define SSO_PLATFORM_SYSTEM_INFO_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SYSTEM_INFO_ERROR_NONE = 0,
    SYSTEM_INFO_ERROR_INVALID_PARAMETER = -22, /* null argument or unusable key */
    SYSTEM_INFO_ERROR_OUT_OF_MEMORY = -12,
    SYSTEM_INFO_ERROR_IO_ERROR = -5,       /* unreadable, unwritable or malformed flag */
    SYSTEM_INFO_ERROR_NOT_SUPPORTED = -95, /* the flag is not set on this device */
} system_info_error_e;

/*
 * Keys are 1 to 255 bytes without control characters that still fit a file
 * name once bytes outside [A-Za-z0-9_.-] are written as %XX (247 bytes).
 * Other keys, and null arguments, fail with SYSTEM_INFO_ERROR_INVALID_PARAMETER.
 */

/* Reads a boolean flag into *value. A flag that is not set fails with
 * SYSTEM_INFO_ERROR_NOT_SUPPORTED, a file that does not hold "true" or "false"
 * with SYSTEM_INFO_ERROR_IO_ERROR; on any failure *value is left untouched. */
int system_info_get_custom_bool(const char *key, bool *value);

/* Sets a boolean flag, creating the store when needed (for the platform
 * tools and tests). */
int system_info_set_custom_bool(const char *key, bool value);

/* Removes a flag. SYSTEM_INFO_ERROR_NOT_SUPPORTED when it was not set. */
int system_info_unset_custom(const char *key);

#ifdef __cplusplus
}
#endif

#endif
