/*
 * Registering packages, for the platform tools and tests.
 *
 * A package is the text file $SSO_PLATFORM_ROOT/packages/<package id>, one
 * record a line:
 *     app <application id>
 *     cert <type> <base64 of the DER certificate, no line breaks>
 * Package ids are 1 to 200 bytes of [A-Za-z0-9_.-], not starting with '.'.
 * Application ids are 1 to 255 bytes without spaces or control characters.
 */
#ifndef SSO_PLATFORM_PACKAGE_MANAGER_ADMIN_H
#define SSO_PLATFORM_PACKAGE_MANAGER_ADMIN_H

#include <stddef.h>

#include "package_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One certificate to register, in DER. */
typedef struct {
    package_cert_type_e type;
    const unsigned char *der;
    size_t der_len;
} package_manager_cert_s;

/* Registers (or replaces) a package with its applications (at least one)
 * and certificates (any number), atomically. */
int package_manager_add_package(const char *package_id, const char *const *app_ids,
                                size_t app_count, const package_manager_cert_s *certs,
                                size_t cert_count);

/* PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE when it was not registered. */
int package_manager_remove_package(const char *package_id);

/* Calls back once per application of a package, in registration order, until
 * the callback returns false. */
typedef bool (*package_manager_app_cb)(const char *app_id, void *user_data);
int package_manager_foreach_app(const char *package_id, package_manager_app_cb callback,
                                void *user_data);

#ifdef __cplusplus
}
#endif

#endif
