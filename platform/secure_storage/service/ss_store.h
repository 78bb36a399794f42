/*
 * The storage service's sealed files: what the service does once it has
 * decided that a request may go ahead. Item ids and credentials are checked
 * by the caller (ss_wire_check_item_id); the credential's module id and uuid
 * are used, its magic is not. Every function takes the platform root afresh
 * and keeps nothing between calls; all are safe to call from several threads
 * and processes at once. Nothing here logs, and item contents never leave
 * but through the buffer handed to the caller.
 */
#ifndef SSO_PLATFORM_SS_STORE_H
#define SSO_PLATFORM_SS_STORE_H

#include <stddef.h>

#include "ss_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the store directory (0711) and the items directory (0700) when they
 * are missing and takes group and other access away from existing ones.
 * SS_ERROR_IO when the root is missing or the store cannot be made. */
int ss_store_prepare(void);

/* Reads and authenticates an item. With buffer, the plaintext is handed out
 * in a malloc'ed buffer (one NUL byte after *length) the caller wipes and
 * frees; without, the item is only authenticated (validation). */
int ss_store_read(const char *item_id, const ss_credential_t *credential, unsigned char **buffer,
                  size_t *length);

/* Seals and stores an item, replacing any previous one atomically. The first
 * write creates the device key. */
int ss_store_write(const char *item_id, const unsigned char *data, size_t length,
                   const ss_credential_t *credential);

/* Removes an item, whatever credential sealed it. */
int ss_store_delete(const char *item_id);

/* Wipes and frees a buffer from ss_store_read; NULL is ignored. */
void ss_store_free(unsigned char *buffer, size_t length);

/* Frees what the cryptography keeps for the calling thread (its random
 * generator). A worker calls it before it reports itself gone, so a service
 * that exits right after has nothing of a worker's left behind. */
void ss_store_thread_done(void);

#ifdef __cplusplus
}
#endif

#endif
