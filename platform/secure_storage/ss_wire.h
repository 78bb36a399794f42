/*
 * The secure-storage wire format, shared by the client library and the
 * storage service. Internal to the platform; applications use ss_manager.h.
 *
 * One request per connection on the service's Unix stream socket:
 *   request  header (SS_WIRE_REQUEST_HEADER_LEN bytes, big-endian fields):
 *              magic "SSQ1" | op | flags | module id | uuid word 0 | uuid word 1
 *              | item id length | data length
 *            then the item id (no NUL) and, for a write, the data.
 *   reply    header (SS_WIRE_REPLY_HEADER_LEN bytes):
 *              magic "SSA1" | status (an SS_ERROR_* code) | data length
 *            then, for a successful read, the item's contents.
 * Who asks is never part of a request: the service takes it from the
 * socket's peer credentials.
 */
#ifndef SSO_PLATFORM_SS_WIRE_H
#define SSO_PLATFORM_SS_WIRE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SS_WIRE_REQUEST_MAGIC 0x53535131u /* "SSQ1" */
#define SS_WIRE_REPLY_MAGIC 0x53534131u   /* "SSA1" */
#define SS_WIRE_REQUEST_HEADER_LEN 40
#define SS_WIRE_REPLY_HEADER_LEN 12
#define SS_WIRE_MAX_ITEM_ID_LEN 255

/* Where the service listens, relative to the platform root. */
#define SS_WIRE_STORE_DIR "secure-storage"
#define SS_WIRE_SOCKET SS_WIRE_STORE_DIR "/socket"

enum ss_wire_op {
    SS_WIRE_OP_READ = 1,
    SS_WIRE_OP_VALIDATE = 2,
    SS_WIRE_OP_WRITE = 3,
    SS_WIRE_OP_DELETE = 4,
};

struct ss_wire_request {
    uint32_t op;
    uint32_t flags;
    uint32_t module_id;
    uint64_t uuid[2];
    uint32_t item_len;
    uint32_t data_len;
    char item_id[SS_WIRE_MAX_ITEM_ID_LEN + 1]; /* NUL-terminated after decoding */
};

/* SS_ERROR_NONE for an id of 1..255 bytes without control characters, else
 * SS_ERROR_INVALID_PARAMETER. */
int ss_wire_check_item_id(const char *item_id);

/* Flags each operation accepts. */
unsigned int ss_wire_allowed_flags(uint32_t op);

/* Writes the header of a request whose item id and data lengths are set. */
void ss_wire_encode_request_header(const struct ss_wire_request *request,
                                   unsigned char out[SS_WIRE_REQUEST_HEADER_LEN]);

/* Reads and checks a request header: magic, a known operation with flags it
 * accepts, an item id length of 1..255, and a data length that only a write
 * may have, at most SS_MAX_ITEM_SIZE. SS_ERROR_NONE or
 * SS_ERROR_INVALID_PARAMETER (SS_ERROR_TOO_LARGE for a write above the
 * limit). The body still has to be read and passed to ss_wire_decode_item. */
int ss_wire_decode_request_header(const unsigned char *header, size_t len,
                                  struct ss_wire_request *request);

/* Takes the item id that follows the header (request->item_len bytes) and
 * checks it. */
int ss_wire_decode_item(const unsigned char *item, size_t len, struct ss_wire_request *request);

void ss_wire_encode_reply_header(int32_t status, uint32_t data_len,
                                 unsigned char out[SS_WIRE_REPLY_HEADER_LEN]);

/* SS_ERROR_NONE with the status and data length, or
 * SS_ERROR_SERVICE_UNAVAILABLE for a header no service of ours sends: another
 * magic, an unknown status, data with a failure or more than
 * SS_MAX_ITEM_SIZE. */
int ss_wire_decode_reply_header(const unsigned char *header, size_t len, int32_t *status,
                                uint32_t *data_len);

#ifdef __cplusplus
}
#endif

#endif
