#define _GNU_SOURCE
#include "ss_service.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "dlog.h"
#include "ss_manager.h"
#include "ss_store.h"
#include "ss_wire.h"
#include "sso_platform_common.h"

#define TAG "SS_SERVICE"

static const char *op_name(uint32_t op)
{
    switch (op) {
    case SS_WIRE_OP_READ:
        return "read";
    case SS_WIRE_OP_VALIDATE:
        return "validate";
    case SS_WIRE_OP_WRITE:
        return "write";
    case SS_WIRE_OP_DELETE:
        return "delete";
    default:
        return "?";
    }
}

static int reply(int fd, int status, const unsigned char *data, size_t len)
{
    unsigned char header[SS_WIRE_REPLY_HEADER_LEN];
    ss_wire_encode_reply_header(status, (uint32_t)len, header);
    if (sso_platform_send_all(fd, header, sizeof(header)) != 0 ||
        (len > 0 && sso_platform_send_all(fd, data, len) != 0))
        return SS_ERROR_SERVICE_UNAVAILABLE;
    return status;
}

static int cut_short(const struct ucred *peer)
{
    dlog_print(DLOG_WARN, TAG, "uid %u (pid %d) sent no whole request", (unsigned)peer->uid,
               (int)peer->pid);
    return SS_ERROR_SERVICE_UNAVAILABLE;
}

static int perform(const struct ss_wire_request *request, const unsigned char *data, int fd)
{
    ss_credential_t credential;
    memset(&credential, 0, sizeof(credential));
    credential.module_id = request->module_id;
    credential.uuid.word[0] = request->uuid[0];
    credential.uuid.word[1] = request->uuid[1];
    switch (request->op) {
    case SS_WIRE_OP_READ: {
        unsigned char *buffer = NULL;
        size_t length = 0;
        int rc = ss_store_read(request->item_id, &credential, &buffer, &length);
        if (rc != SS_ERROR_NONE)
            return reply(fd, rc, NULL, 0);
        rc = reply(fd, SS_ERROR_NONE, buffer, length);
        ss_store_free(buffer, length);
        return rc;
    }
    case SS_WIRE_OP_VALIDATE:
        return reply(fd, ss_store_read(request->item_id, &credential, NULL, NULL), NULL, 0);
    case SS_WIRE_OP_WRITE:
        return reply(fd, ss_store_write(request->item_id, data, request->data_len, &credential),
                     NULL, 0);
    default:
        return reply(fd, ss_store_delete(request->item_id), NULL, 0);
    }
}

int ss_service_handle(int fd, const struct ss_policy *policy)
{
    struct timeval timeout = {SS_SERVICE_IO_TIMEOUT_MS / 1000,
                              (SS_SERVICE_IO_TIMEOUT_MS % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));

    struct ucred peer;
    socklen_t peer_len = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &peer_len) != 0 ||
        peer_len != sizeof(peer)) {
        dlog_print(DLOG_ERROR, TAG, "no peer credentials on a connection (%s); refused",
                   strerror(errno));
        return reply(fd, SS_ERROR_ACCESS_DENIED, NULL, 0);
    }

    unsigned char header[SS_WIRE_REQUEST_HEADER_LEN];
    if (sso_platform_recv_all(fd, header, sizeof(header)) != 0) {
        return cut_short(&peer);
    }
    struct ss_wire_request request;
    int rc = ss_wire_decode_request_header(header, sizeof(header), &request);
    unsigned char item[SS_WIRE_MAX_ITEM_ID_LEN];
    if (rc == SS_ERROR_NONE) {
        if (sso_platform_recv_all(fd, item, request.item_len) != 0) {
            return cut_short(&peer);
        }
        rc = ss_wire_decode_item(item, request.item_len, &request);
    }
    if (rc != SS_ERROR_NONE) {
        dlog_print(DLOG_WARN, TAG, "malformed request from uid %u (pid %d): error %d",
                   (unsigned)peer.uid, (int)peer.pid, rc);
        return reply(fd, rc, NULL, 0);
    }

    /* Decided before a write's data is read: only a privileged peer gets to
     * make the service hold up to SS_MAX_ITEM_SIZE bytes for it. */
    const char *why = NULL;
    if (ss_policy_check(policy, peer.uid, request.op, request.item_id, &why) != SS_ERROR_NONE) {
        dlog_print(DLOG_WARN, TAG, "refused to %s '%s' for uid %u (pid %d): %s",
                   op_name(request.op), request.item_id, (unsigned)peer.uid, (int)peer.pid, why);
        return reply(fd, SS_ERROR_ACCESS_DENIED, NULL, 0);
    }

    unsigned char *data = NULL;
    if (request.data_len > 0) {
        data = malloc(request.data_len);
        if (!data)
            return reply(fd, SS_ERROR_OUT_OF_MEMORY, NULL, 0);
        if (sso_platform_recv_all(fd, data, request.data_len) != 0) {
            explicit_bzero(data, request.data_len);
            free(data);
            return cut_short(&peer);
        }
    }
    rc = perform(&request, data, fd);
    if (data) {
        explicit_bzero(data, request.data_len);
        free(data);
    }
    if (rc != SS_ERROR_NONE && rc != SS_ERROR_NO_ITEM)
        dlog_print(DLOG_INFO, TAG, "%s '%s' for uid %u: error %d", op_name(request.op),
                   request.item_id, (unsigned)peer.uid, rc);
    return rc;
}
