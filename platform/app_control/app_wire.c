#define _GNU_SOURCE
#include <stdlib.h>
#include <string.h>

#include "app_control_private.h"

/*
 * The messages between a caller and the application it launched. Integers
 * are 32-bit little endian; a string is its length and its bytes (no NUL, and
 * none inside).
 *
 * Request, read by the callee from the descriptor it inherits:
 *   "SSOAPRQ1" | token (16 bytes) | callee id | caller id | operation |
 *   launch mode | extra count | (key, value) ...
 * The token is also in the callee's environment, so a process that inherits
 * the environment but not the descriptor never takes another's request.
 *
 * Reply frame, written by the callee to its reply socket:
 *   "SSOAPRP1" | body length | body = result | extra count | (key, value) ...
 */

static const unsigned char request_magic[8] = {'S', 'S', 'O', 'A', 'P', 'R', 'Q', '1'};
static const unsigned char reply_magic[8] = {'S', 'S', 'O', 'A', 'P', 'R', 'P', '1'};

void app_wire_buffer_free(struct app_wire_buffer *b)
{
    free(b->data);
    b->data = NULL;
    b->len = b->cap = 0;
}

static void put_bytes(struct app_wire_buffer *b, const void *data, size_t len)
{
    if (b->failed)
        return;
    if (len > APP_WIRE_MAX_MESSAGE - b->len) {
        b->failed = true;
        return;
    }
    if (b->len + len > b->cap) {
        size_t cap = b->cap ? b->cap : 256;
        while (cap < b->len + len)
            cap *= 2;
        unsigned char *data_new = realloc(b->data, cap);
        if (!data_new) {
            b->failed = true;
            return;
        }
        b->data = data_new;
        b->cap = cap;
    }
    if (len > 0)
        memcpy(b->data + b->len, data, len);
    b->len += len;
}

static void put_u32(struct app_wire_buffer *b, uint32_t v)
{
    unsigned char le[4] = {(unsigned char)v, (unsigned char)(v >> 8), (unsigned char)(v >> 16),
                           (unsigned char)(v >> 24)};
    put_bytes(b, le, sizeof(le));
}

static void put_str(struct app_wire_buffer *b, const char *s)
{
    size_t len = s ? strlen(s) : 0;
    if (len > UINT32_MAX) {
        b->failed = true;
        return;
    }
    put_u32(b, (uint32_t)len);
    put_bytes(b, s, len);
}

static void put_extras(struct app_wire_buffer *b, const struct app_control_s *h)
{
    size_t n = h ? h->n_extras : 0;
    put_u32(b, (uint32_t)n);
    for (size_t i = 0; i < n; ++i) {
        put_str(b, h->extras[i].key);
        put_str(b, h->extras[i].value);
    }
}

/* Only out of memory and oversized messages fail an encoder; either way the
 * message cannot be sent. */
static int finish(struct app_wire_buffer *b)
{
    if (!b->failed)
        return APP_CONTROL_ERROR_NONE;
    app_wire_buffer_free(b);
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
}

int app_wire_encode_request(struct app_wire_buffer *out, const unsigned char *token,
                            const char *callee_id, const char *caller_id,
                            const struct app_control_s *request)
{
    memset(out, 0, sizeof(*out));
    put_bytes(out, request_magic, sizeof(request_magic));
    put_bytes(out, token, APP_WIRE_TOKEN_LEN);
    put_str(out, callee_id);
    put_str(out, caller_id);
    put_str(out, request->operation ? request->operation : APP_CONTROL_OPERATION_DEFAULT);
    put_u32(out, (uint32_t)request->launch_mode);
    put_extras(out, request);
    return finish(out);
}

int app_wire_encode_reply(struct app_wire_buffer *out, const struct app_control_s *reply,
                          int result)
{
    memset(out, 0, sizeof(*out));
    put_bytes(out, reply_magic, sizeof(reply_magic));
    put_u32(out, 0); /* body length, filled in below */
    put_u32(out, (uint32_t)result);
    put_extras(out, reply);
    if (!out->failed) {
        uint32_t body = (uint32_t)(out->len - APP_WIRE_REPLY_HEADER);
        unsigned char *p = out->data + sizeof(reply_magic);
        p[0] = (unsigned char)body;
        p[1] = (unsigned char)(body >> 8);
        p[2] = (unsigned char)(body >> 16);
        p[3] = (unsigned char)(body >> 24);
    }
    return finish(out);
}

/* ---- decoding ---- */

struct reader {
    const unsigned char *p;
    size_t left;
    bool bad;
};

static uint32_t get_u32(struct reader *r)
{
    if (r->bad || r->left < 4) {
        r->bad = true;
        return 0;
    }
    uint32_t v = (uint32_t)r->p[0] | (uint32_t)r->p[1] << 8 | (uint32_t)r->p[2] << 16 |
                 (uint32_t)r->p[3] << 24;
    r->p += 4;
    r->left -= 4;
    return v;
}

/* A string in place: *s points into the message, *len is its length. */
static void get_str(struct reader *r, const char **s, size_t *len)
{
    uint32_t n = get_u32(r);
    *s = "";
    *len = 0;
    if (r->bad || n > r->left || memchr(r->p, '\0', n) != NULL) {
        r->bad = true;
        return;
    }
    *s = (const char *)r->p;
    *len = n;
    r->p += n;
    r->left -= n;
}

static void get_extras(struct reader *r, struct app_control_s *h, int *rc)
{
    uint32_t n = get_u32(r);
    /* Every extra takes at least its two lengths. */
    if (r->bad || n > r->left / 8) {
        r->bad = true;
        return;
    }
    for (uint32_t i = 0; i < n && !r->bad && *rc == APP_CONTROL_ERROR_NONE; ++i) {
        const char *key, *value;
        size_t key_len, value_len;
        get_str(r, &key, &key_len);
        get_str(r, &value, &value_len);
        if (r->bad || key_len == 0) {
            r->bad = true;
            return;
        }
        *rc = app_control_append_extra(h, key, key_len, value, value_len);
    }
}

static char *dup_str(const char *s, size_t len)
{
    return strndup(s, len);
}

int app_wire_decode_request(const unsigned char *data, size_t len, const unsigned char *token,
                            struct app_control_s **request)
{
    if (len < sizeof(request_magic) + APP_WIRE_TOKEN_LEN ||
        memcmp(data, request_magic, sizeof(request_magic)) != 0 ||
        memcmp(data + sizeof(request_magic), token, APP_WIRE_TOKEN_LEN) != 0)
        return APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    size_t skip = sizeof(request_magic) + APP_WIRE_TOKEN_LEN;
    struct reader r = {data + skip, len - skip, false};
    const char *callee, *caller, *operation;
    size_t callee_len, caller_len, operation_len;
    get_str(&r, &callee, &callee_len);
    get_str(&r, &caller, &caller_len);
    get_str(&r, &operation, &operation_len);
    uint32_t mode = get_u32(&r);
    if (r.bad || operation_len == 0 ||
        (mode != APP_CONTROL_LAUNCH_MODE_SINGLE && mode != APP_CONTROL_LAUNCH_MODE_GROUP))
        return APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    struct app_control_s *h = app_control_new_handle();
    if (!h)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    h->received = true;
    h->launch_mode = (app_control_launch_mode_e)mode;
    h->app_id = dup_str(callee, callee_len);
    h->caller = dup_str(caller, caller_len);
    h->operation = dup_str(operation, operation_len);
    int rc = h->app_id && h->caller && h->operation ? APP_CONTROL_ERROR_NONE
                                                    : APP_CONTROL_ERROR_OUT_OF_MEMORY;
    if (rc == APP_CONTROL_ERROR_NONE)
        get_extras(&r, h, &rc);
    if (rc == APP_CONTROL_ERROR_NONE && (r.bad || r.left != 0))
        rc = APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    if (rc != APP_CONTROL_ERROR_NONE) {
        app_control_free_handle(h);
        return rc;
    }
    *request = h;
    return APP_CONTROL_ERROR_NONE;
}

long app_wire_reply_frame_len(const unsigned char *data, size_t len)
{
    if (len < APP_WIRE_REPLY_HEADER)
        return memcmp(data, reply_magic, len < sizeof(reply_magic) ? len : sizeof(reply_magic)) ? -1
                                                                                                : 0;
    if (memcmp(data, reply_magic, sizeof(reply_magic)) != 0)
        return -1;
    const unsigned char *p = data + sizeof(reply_magic);
    uint32_t body =
        (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
    if (body > APP_WIRE_MAX_MESSAGE - APP_WIRE_REPLY_HEADER)
        return -1;
    return (long)(APP_WIRE_REPLY_HEADER + body);
}

int app_wire_decode_reply(const unsigned char *data, size_t len, struct app_control_s **reply,
                          int *result)
{
    long frame = app_wire_reply_frame_len(data, len);
    if (frame <= 0 || (size_t)frame != len)
        return APP_CONTROL_ERROR_IO_ERROR;
    struct reader r = {data + APP_WIRE_REPLY_HEADER, len - APP_WIRE_REPLY_HEADER, false};
    int res = (int)(int32_t)get_u32(&r);
    if (r.bad || !app_control_valid_result(res))
        return APP_CONTROL_ERROR_IO_ERROR;
    struct app_control_s *h = app_control_new_handle();
    if (!h)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    int rc = APP_CONTROL_ERROR_NONE;
    get_extras(&r, h, &rc);
    if (rc == APP_CONTROL_ERROR_NONE && (r.bad || r.left != 0))
        rc = APP_CONTROL_ERROR_IO_ERROR;
    if (rc != APP_CONTROL_ERROR_NONE) {
        app_control_free_handle(h);
        return rc;
    }
    *reply = h;
    *result = res;
    return APP_CONTROL_ERROR_NONE;
}
