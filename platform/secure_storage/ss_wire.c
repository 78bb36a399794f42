#include "ss_wire.h"

#include <string.h>

#include "ss_manager.h"

#define READ_FLAGS (SS_FLAG_READ | SS_FLAG_INTEGRITY | SS_FLAG_SCOPED)

static void put_be32(unsigned char *p, uint32_t v)
{
    p[0] = (unsigned char)(v >> 24);
    p[1] = (unsigned char)(v >> 16);
    p[2] = (unsigned char)(v >> 8);
    p[3] = (unsigned char)v;
}

static void put_be64(unsigned char *p, uint64_t v)
{
    put_be32(p, (uint32_t)(v >> 32));
    put_be32(p + 4, (uint32_t)v);
}

static uint32_t get_be32(const unsigned char *p)
{
    return (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | (uint32_t)p[3];
}

static uint64_t get_be64(const unsigned char *p)
{
    return (uint64_t)get_be32(p) << 32 | get_be32(p + 4);
}

int ss_wire_check_item_id(const char *item_id)
{
    if (!item_id)
        return SS_ERROR_INVALID_PARAMETER;
    size_t len = strnlen(item_id, SS_WIRE_MAX_ITEM_ID_LEN + 1);
    if (len == 0 || len > SS_WIRE_MAX_ITEM_ID_LEN)
        return SS_ERROR_INVALID_PARAMETER;
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = (unsigned char)item_id[i];
        if (c < 0x20 || c == 0x7f)
            return SS_ERROR_INVALID_PARAMETER;
    }
    return SS_ERROR_NONE;
}

unsigned int ss_wire_allowed_flags(uint32_t op)
{
    switch (op) {
    case SS_WIRE_OP_READ:
    case SS_WIRE_OP_VALIDATE:
    case SS_WIRE_OP_WRITE:
    case SS_WIRE_OP_DELETE:
        return READ_FLAGS;
    default:
        return 0;
    }
}

void ss_wire_encode_request_header(const struct ss_wire_request *request,
                                   unsigned char out[SS_WIRE_REQUEST_HEADER_LEN])
{
    put_be32(out, SS_WIRE_REQUEST_MAGIC);
    put_be32(out + 4, request->op);
    put_be32(out + 8, request->flags);
    put_be32(out + 12, request->module_id);
    put_be64(out + 16, request->uuid[0]);
    put_be64(out + 24, request->uuid[1]);
    put_be32(out + 32, request->item_len);
    put_be32(out + 36, request->data_len);
}

int ss_wire_decode_request_header(const unsigned char *header, size_t len,
                                  struct ss_wire_request *request)
{
    if (len < SS_WIRE_REQUEST_HEADER_LEN || get_be32(header) != SS_WIRE_REQUEST_MAGIC)
        return SS_ERROR_INVALID_PARAMETER;
    memset(request, 0, sizeof(*request));
    request->op = get_be32(header + 4);
    request->flags = get_be32(header + 8);
    request->module_id = get_be32(header + 12);
    request->uuid[0] = get_be64(header + 16);
    request->uuid[1] = get_be64(header + 24);
    request->item_len = get_be32(header + 32);
    request->data_len = get_be32(header + 36);
    unsigned int allowed = ss_wire_allowed_flags(request->op);
    if (allowed == 0 || (request->flags & ~allowed) != 0)
        return SS_ERROR_INVALID_PARAMETER;
    if ((request->op == SS_WIRE_OP_READ || request->op == SS_WIRE_OP_VALIDATE) &&
        !(request->flags & SS_FLAG_READ))
        return SS_ERROR_INVALID_PARAMETER;
    if (request->item_len == 0 || request->item_len > SS_WIRE_MAX_ITEM_ID_LEN)
        return SS_ERROR_INVALID_PARAMETER;
    if (request->op != SS_WIRE_OP_WRITE && request->data_len != 0)
        return SS_ERROR_INVALID_PARAMETER;
    if (request->data_len > SS_MAX_ITEM_SIZE)
        return SS_ERROR_TOO_LARGE;
    return SS_ERROR_NONE;
}

int ss_wire_decode_item(const unsigned char *item, size_t len, struct ss_wire_request *request)
{
    if (len != request->item_len || len > SS_WIRE_MAX_ITEM_ID_LEN)
        return SS_ERROR_INVALID_PARAMETER;
    memcpy(request->item_id, item, len);
    request->item_id[len] = '\0';
    /* A NUL inside would shorten the id the service acts on. */
    if (strlen(request->item_id) != len)
        return SS_ERROR_INVALID_PARAMETER;
    return ss_wire_check_item_id(request->item_id);
}

void ss_wire_encode_reply_header(int32_t status, uint32_t data_len,
                                 unsigned char out[SS_WIRE_REPLY_HEADER_LEN])
{
    put_be32(out, SS_WIRE_REPLY_MAGIC);
    put_be32(out + 4, (uint32_t)status);
    put_be32(out + 8, data_len);
}

int ss_wire_decode_reply_header(const unsigned char *header, size_t len, int32_t *status,
                                uint32_t *data_len)
{
    if (len < SS_WIRE_REPLY_HEADER_LEN || get_be32(header) != SS_WIRE_REPLY_MAGIC)
        return SS_ERROR_SERVICE_UNAVAILABLE;
    int32_t s = (int32_t)get_be32(header + 4);
    uint32_t n = get_be32(header + 8);
    if (s > SS_ERROR_NONE || s < SS_ERROR_LAST || (s != SS_ERROR_NONE && n != 0) ||
        n > SS_MAX_ITEM_SIZE)
        return SS_ERROR_SERVICE_UNAVAILABLE;
    *status = s;
    *data_len = n;
    return SS_ERROR_NONE;
}
