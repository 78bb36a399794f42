/*
 * Secure storage: small items (account documents, application data) kept
 * encrypted and authenticated at rest, readable only with the credential they
 * were written with and only by the processes the item is meant for.
 *
 * On this Linux platform the items belong to the storage service
 * (sso-storaged), which owns $SSO_PLATFORM_ROOT/secure-storage: the device
 * key and one sealed file an item (AES-256-GCM under a key derived from the
 * device key and the writer's credential), none of them readable by
 * applications. These calls are its client: each one is a request on the
 * service's socket ($SSO_PLATFORM_ROOT/secure-storage/socket), and the
 * service decides by the kernel's word on who is asking (the peer's user id),
 * never by anything the request says:
 *
 *   item                              read by                    written by
 *   SSO_PUBLICDATA_ID                 every process              privileged users
 *   SSO_PUBLICDATA_ID_<package id>    the package's processes    privileged users
 *                                     (its user in the package
 *                                     registry), privileged users
 *   any other item                    privileged users           privileged users
 *
 * The privileged users are the SSO service's account (sso-storaged
 * --service-user), the account the storage service runs as, and root.
 *
 * A tampered, truncated or foreign-credential item fails to read or validate
 * with an error, never with garbage. No call blocks for longer than
 * SSO_PLATFORM_SS_TIMEOUT_MS milliseconds (default 5000) in all: a missing,
 * hung or dying service is SS_ERROR_SERVICE_UNAVAILABLE and a line in the
 * platform log (with the tag "SS_CLIENT"; never item contents).
 */
#ifndef SSO_PLATFORM_SS_MANAGER_H
#define SSO_PLATFORM_SS_MANAGER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results. */
#define SS_ERROR_NONE 0
#define SS_ERROR_INVALID_PARAMETER (-1)
#define SS_ERROR_NO_ITEM (-2)        /* no such item */
#define SS_ERROR_AUTHENTICATION (-3) /* tampered, truncated or foreign credential */
#define SS_ERROR_IO (-4)             /* the store cannot be read or written */
#define SS_ERROR_OUT_OF_MEMORY (-5)
#define SS_ERROR_CRYPTO (-6)               /* the cipher failed or no device key */
#define SS_ERROR_TOO_LARGE (-7)            /* above SS_MAX_ITEM_SIZE */
#define SS_ERROR_NOT_INITIALIZED (-8)      /* credential not made by ss_init_credential */
#define SS_ERROR_ACCESS_DENIED (-9)        /* the caller may not do this to this item */
#define SS_ERROR_SERVICE_UNAVAILABLE (-10) /* no storage service, or no answer in time */
#define SS_ERROR_LAST SS_ERROR_SERVICE_UNAVAILABLE

/* Flags (bit masks). */
#define SS_FLAG_READ 0x0001      /* read access is asked for */
#define SS_FLAG_INTEGRITY 0x0020 /* authenticate before handing data out */
#define SS_FLAG_SCOPED 0x10000   /* the scope argument names a sub-scope (e.g. an account GUID) */
#define SS_FLAG_INIT 0x0001      /* ss_init_credential: a fresh credential */

#define SS_MAX_ITEM_SIZE (16u * 1024u * 1024u)

typedef struct {
    uint64_t word[2];
} ss_uuid_t;

/* Who reads and writes: a module id and a 128-bit identifier, fixed per
 * deployment and shared by the writer (the SSO service) and its readers. */
typedef struct {
    uint32_t magic; /* set by ss_init_credential */
    uint32_t module_id;
    struct {
        uint32_t major;
        uint32_t minor;
    } version;
    ss_uuid_t uuid;
} ss_credential_t;

/* Fills a credential. flags: 0 or SS_FLAG_INIT. Every other function refuses
 * a credential this did not fill with SS_ERROR_NOT_INITIALIZED. */
int ss_init_credential(ss_credential_t *credential, uint32_t module_id, const ss_uuid_t *uuid,
                       unsigned int flags);

/* SS_ERROR_NONE when the item exists and authenticates under the credential.
 * flags as for ss_read (SS_FLAG_READ required). A caller that may not read
 * the item gets SS_ERROR_ACCESS_DENIED whether or not it exists. */
int ss_validate(const char *item_id, const ss_credential_t *credential, unsigned int flags);

/* Reads an item into a new buffer (*buffer, *length) that the caller releases
 * with ss_free_buffer. owner is reserved and must be NULL; scope, with
 * SS_FLAG_SCOPED, names the sub-scope the caller is after (accepted, not
 * enforced: the whole item is returned; it may be NULL). flags must include
 * SS_FLAG_READ and may add SS_FLAG_INTEGRITY (always done anyway) and
 * SS_FLAG_SCOPED; other bits are SS_ERROR_INVALID_PARAMETER. *buffer and
 * *length are left untouched on failure. The buffer carries one extra NUL byte
 * not counted in *length. SS_ERROR_ACCESS_DENIED when the caller may not read
 * the item (whether or not it exists).
 * Item ids are 1..255 bytes without control characters. */
int ss_read(unsigned char **buffer, size_t *length, const char *owner, const char *scope,
            const char *item_id, const ss_credential_t *credential, unsigned int flags);

/* Wipes and frees a buffer from ss_read; NULL is ignored. */
void ss_free_buffer(unsigned char *buffer);

/* Writes (replaces atomically) or deletes an item. For the SSO service and
 * the platform's tools: anyone else gets SS_ERROR_ACCESS_DENIED. Both go by
 * item id alone (whatever credential sealed the old item); the credential
 * seals what ss_write stores. data may be NULL only when length is 0. flags:
 * 0 or any of the ss_read flags. The first write on a device creates the
 * device key. */
int ss_write(const char *item_id, const unsigned char *data, size_t length,
             const ss_credential_t *credential, unsigned int flags);
int ss_delete(const char *item_id, const ss_credential_t *credential, unsigned int flags);

#ifdef __cplusplus
}
#endif

#endif
