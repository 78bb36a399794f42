/* Internals shared by the app_control sources; never exported. */
#ifndef SSO_PLATFORM_APP_CONTROL_PRIVATE_H
#define SSO_PLATFORM_APP_CONTROL_PRIVATE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "app_control.h"

struct app_control_extra {
    char *key;
    char *value;
};

struct app_control_s {
    char *app_id;    /* NULL when unset */
    char *operation; /* NULL when unset */
    app_control_launch_mode_e launch_mode;
    struct app_control_extra *extras; /* in the order added */
    size_t n_extras;
    size_t cap_extras;
    bool received; /* a launch request this process received */
    char *caller;  /* received requests only */
};

/* An empty handle, or NULL when out of memory. */
struct app_control_s *app_control_new_handle(void);
void app_control_free_handle(struct app_control_s *h);
/* Appends key = value without looking for an existing key (decoders only). */
int app_control_append_extra(struct app_control_s *h, const char *key, size_t key_len,
                             const char *value, size_t value_len);
bool app_control_valid_result(int result);

/* ---- the application registry ---- */

/* "<root>/apps/<encoded id>"; -1 for an unusable id. */
int app_registry_entry_path(const char *app_id, char *buf, size_t size);
/* Whether an app id is usable (length, bytes, encoded length). */
bool app_registry_valid_id(const char *app_id);

/* ---- messages between caller and callee ---- */

/* Messages above this are refused on both ends. */
#define APP_WIRE_MAX_MESSAGE (16u * 1024u * 1024u)
#define APP_WIRE_TOKEN_LEN 16
#define APP_WIRE_REPLY_HEADER 12 /* magic and body length */

struct app_wire_buffer {
    unsigned char *data;
    size_t len;
    size_t cap;
    bool failed; /* out of memory or above the limit */
};

void app_wire_buffer_free(struct app_wire_buffer *b);

/* The request as the callee reads it. */
int app_wire_encode_request(struct app_wire_buffer *out, const unsigned char *token,
                            const char *callee_id, const char *caller_id,
                            const struct app_control_s *request);
/* Decodes a request whose token must match; the result is marked received.
 * APP_CONTROL_ERROR_NO_LAUNCH_REQUEST for anything that is not one. */
int app_wire_decode_request(const unsigned char *data, size_t len, const unsigned char *token,
                            struct app_control_s **request);

/* A reply frame: header (magic, body length) and body (result, extras). */
int app_wire_encode_reply(struct app_wire_buffer *out, const struct app_control_s *reply,
                          int result);
/* How long the frame starting at data is in total, once the header is there:
 * 0 while the header is incomplete, -1 for a bad header. */
long app_wire_reply_frame_len(const unsigned char *data, size_t len);
/* Decodes a complete frame. */
int app_wire_decode_reply(const unsigned char *data, size_t len, struct app_control_s **reply,
                          int *result);

#endif
