/*
 * Registering packages, for the platform tools, the storage service and
 * tests.
 *
 * A package is the text file $SSO_PLATFORM_ROOT/packages/<package id>, one
 * record a line:
 *     app <application id>
 *     cert <type> <base64 of the DER certificate, no line breaks>
 *     uid <user id>
 * Package ids are 1 to 200 bytes of [A-Za-z0-9_.-], not starting with '.'.
 * Application ids are 1 to 255 bytes without spaces or control characters.
 *
 * Identity. Every package registered here has a system user of its own (a
 * user id; no passwd entry is needed): its processes run as that user, so
 * the kernel vouches for which package a process belongs to (the peer
 * credentials of a socket), whatever the process says about itself. No two
 * packages share a user id, and none is root's. Unless the registration names
 * one, a package keeps the user id it had, or gets the lowest one free in
 * PACKAGE_MANAGER_UID_MIN..PACKAGE_MANAGER_UID_MAX (a range distributions
 * leave to dynamic allocation, clear of login accounts).
 *
 * The registry vouches for these identities only as far as nobody but its
 * administrator can write it: the platform root and packages/ are writable
 * by their owner only (0755), entries are 0644.
 */
#ifndef SSO_PLATFORM_PACKAGE_MANAGER_ADMIN_H
#define SSO_PLATFORM_PACKAGE_MANAGER_ADMIN_H

#include <stddef.h>
#include <sys/types.h>

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

#define PACKAGE_MANAGER_UID_MIN ((uid_t)70000)
#define PACKAGE_MANAGER_UID_MAX ((uid_t)79999)
/* "Choose the user id": keep the package's, or take the lowest free one. */
#define PACKAGE_MANAGER_UID_AUTO ((uid_t)-1)

/* The user id belongs to another package. */
#define PACKAGE_MANAGER_ERROR_UID_IN_USE (-17)
/* No user id is free in the range, or the package has none (an entry
 * written by hand). */
#define PACKAGE_MANAGER_ERROR_NO_UID (-61)

/* Registers (or replaces) a package with its applications (at least one)
 * and certificates (any number), atomically, under the user id it had or
 * the lowest free one (PACKAGE_MANAGER_UID_AUTO). */
int package_manager_add_package(const char *package_id, const char *const *app_ids,
                                size_t app_count, const package_manager_cert_s *certs,
                                size_t cert_count);

/* The same with the package's user id given: PACKAGE_MANAGER_UID_AUTO, or
 * any id but root's (0, PACKAGE_MANAGER_ERROR_INVALID_PARAMETER) that no
 * other package has (else PACKAGE_MANAGER_ERROR_UID_IN_USE). On success
 * *assigned (may be NULL) is the package's user id. */
int package_manager_add_package_as(const char *package_id, const char *const *app_ids,
                                   size_t app_count, const package_manager_cert_s *certs,
                                   size_t cert_count, uid_t uid, uid_t *assigned);

/* The package's user id. PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE when it is not
 * registered, PACKAGE_MANAGER_ERROR_NO_UID when its entry names none. */
int package_manager_get_package_uid(const char *package_id, uid_t *uid);

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
