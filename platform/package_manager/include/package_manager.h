/*
 * package_manager: the package registry of the device.
 *
 * A package groups one or more applications and carries the certificates it
 * was signed with. On this Linux platform a package is the file
 * $SSO_PLATFORM_ROOT/packages/<package id> (see package_manager_admin.h for
 * the format and for registering packages). Nothing is cached: every call
 * reads the registry afresh.
 */
#ifndef SSO_PLATFORM_PACKAGE_MANAGER_H
#define SSO_PLATFORM_PACKAGE_MANAGER_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    PACKAGE_MANAGER_ERROR_NONE = 0,
    PACKAGE_MANAGER_ERROR_INVALID_PARAMETER = -22,
    PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY = -12,
    PACKAGE_MANAGER_ERROR_IO_ERROR = -5,
    PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE = -0x01150000 | 0x71,
} package_manager_error_e;

/* The package that holds app_id, in a malloc'ed string the caller frees.
 * When several packages name the same application, the smallest package id
 * (byte order) wins. PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE when no package
 * holds it. */
int package_manager_get_package_id_by_app_id(const char *app_id, char **package_id);

typedef struct package_info_s *package_info_h;

typedef enum {
    PACKAGE_INFO_AUTHOR_ROOT_CERT = 0,
    PACKAGE_INFO_AUTHOR_INTERMEDIATE_CERT = 1,
    PACKAGE_INFO_AUTHOR_SIGNER_CERT = 2,
    PACKAGE_INFO_DISTRIBUTOR_ROOT_CERT = 3,
    PACKAGE_INFO_DISTRIBUTOR_INTERMEDIATE_CERT = 4,
    PACKAGE_INFO_DISTRIBUTOR_SIGNER_CERT = 5,
    PACKAGE_INFO_DISTRIBUTOR2_ROOT_CERT = 6,
    PACKAGE_INFO_DISTRIBUTOR2_INTERMEDIATE_CERT = 7,
    PACKAGE_INFO_DISTRIBUTOR2_SIGNER_CERT = 8,
} package_cert_type_e;

/* Loads a package: a snapshot of its registry entry, released with
 * package_info_destroy. PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE when it is not
 * registered, PACKAGE_MANAGER_ERROR_IO_ERROR when its entry cannot be read or
 * is malformed. */
int package_info_create(const char *package_id, package_info_h *handle);

/* One certificate of a package. cert_value is the base64 text (no line
 * breaks) of the certificate's DER encoding, valid during the call only.
 * Return true (non-zero) for the next certificate, false (0) to stop. */
typedef bool (*package_info_cert_info_cb)(package_info_h handle, package_cert_type_e cert_type,
                                          const char *cert_value, void *user_data);

/* Calls back once per certificate of the package, in registration order,
 * until the callback returns false. A package without certificates succeeds
 * without calling back. */
int package_info_foreach_cert_info(package_info_h handle, package_info_cert_info_cb callback,
                                   void *user_data);

int package_info_destroy(package_info_h handle);

#ifdef __cplusplus
}
#endif

#endif
