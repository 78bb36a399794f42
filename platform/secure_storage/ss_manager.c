#define _GNU_SOURCE
#include "ss_manager.h"

#include <errno.h>
#include <limits.h>
#include <malloc.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "dlog.h"
#include "ss_wire.h"
#include "sso_platform_common.h"

/*
 * The client of the storage service: every call that needs the store is one
 * connection to <root>/secure-storage/socket carrying one request (ss_wire.h)
 * and its answer. Arguments are checked here first, so a bad call never
 * leaves the process. Nothing is cached and no connection is kept: the
 * platform root is read at each call (a test may point the process at a new
 * one), and a service restarted in between is simply found again.
 *
 * No cryptography happens in the calling process: the device key and the
 * sealed files never leave the service.
 */

#define TAG "SS_CLIENT"
#define CREDENTIAL_MAGIC 0x53534352u
#define DEFAULT_TIMEOUT_MS 5000
#define MAX_TIMEOUT_MS 600000

#define READ_FLAGS (SS_FLAG_READ | SS_FLAG_INTEGRITY | SS_FLAG_SCOPED)
#define WRITE_FLAGS READ_FLAGS

/* ---- arguments ---- */

static int check_credential(const ss_credential_t *credential)
{
    if (!credential)
        return SS_ERROR_INVALID_PARAMETER;
    if (credential->magic != CREDENTIAL_MAGIC)
        return SS_ERROR_NOT_INITIALIZED;
    return SS_ERROR_NONE;
}

/* Argument checks shared by every item operation; bad arguments win over an
 * uninitialised credential. */
static int check_common(const char *item_id, const ss_credential_t *credential, unsigned int flags,
                        unsigned int allowed)
{
    if (ss_wire_check_item_id(item_id) != SS_ERROR_NONE || !credential || (flags & ~allowed) != 0)
        return SS_ERROR_INVALID_PARAMETER;
    return check_credential(credential);
}

/* ---- the connection ---- */

static long timeout_ms(void)
{
    const char *text = getenv("SSO_PLATFORM_SS_TIMEOUT_MS");
    if (!text || !*text)
        return DEFAULT_TIMEOUT_MS;
    char *end = NULL;
    long v = strtol(text, &end, 10);
    if (*end != '\0' || v <= 0)
        return DEFAULT_TIMEOUT_MS;
    return v > MAX_TIMEOUT_MS ? MAX_TIMEOUT_MS : v;
}

static long long now_ms(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

struct call {
    const char *op;
    const char *item_id;
    long timeout;
    long long deadline;
    char path[sizeof(((struct sockaddr_un *)0)->sun_path)];
};

static int unavailable(const struct call *c, const char *what, int err)
{
    if (err)
        dlog_print(DLOG_ERROR, TAG, "%s '%s': %s %s: %s", c->op, c->item_id, what, c->path,
                   strerror(err));
    else
        dlog_print(DLOG_ERROR, TAG, "%s '%s': %s %s", c->op, c->item_id, what, c->path);
    return SS_ERROR_SERVICE_UNAVAILABLE;
}

/* Waits until fd is ready for events or the call's deadline passes. */
static int wait_for(int fd, short events, const struct call *c)
{
    for (;;) {
        long long left = c->deadline - now_ms();
        if (left <= 0)
            return -1;
        struct pollfd pfd = {fd, events, 0};
        int r = poll(&pfd, 1, left > INT_MAX ? INT_MAX : (int)left);
        if (r > 0)
            return 0;
        if (r < 0 && errno != EINTR)
            return -1;
    }
}

/* 0 once everything is sent; -1 with errno (ETIMEDOUT past the deadline). A
 * service that refuses a request early closes its end: EPIPE, after which
 * its answer may still be read. */
static int send_all(int fd, const unsigned char *p, size_t len, const struct call *c)
{
    while (len > 0) {
        ssize_t n = send(fd, p, len, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            p += n;
            len -= (size_t)n;
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (wait_for(fd, POLLOUT, c) != 0) {
                errno = ETIMEDOUT;
                return -1;
            }
            continue;
        }
        return -1;
    }
    return 0;
}

/* 0 once len bytes arrived; -1 with errno 0 on EOF, ETIMEDOUT past the
 * deadline, or the error. */
static int recv_all(int fd, unsigned char *p, size_t len, const struct call *c)
{
    while (len > 0) {
        ssize_t n = recv(fd, p, len, MSG_DONTWAIT);
        if (n > 0) {
            p += n;
            len -= (size_t)n;
            continue;
        }
        if (n == 0) {
            errno = 0;
            return -1;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (wait_for(fd, POLLIN, c) != 0) {
                errno = ETIMEDOUT;
                return -1;
            }
            continue;
        }
        return -1;
    }
    return 0;
}

/* Connects within the deadline: a service whose queue is full makes
 * connect() wait, for at most the socket's send time-out. */
static int connect_service(struct call *c)
{
    char path[PATH_MAX];
    if (sso_platform_path(path, sizeof(path), SS_WIRE_SOCKET) != 0 ||
        strlen(path) >= sizeof(c->path)) {
        /* A Unix socket's path has room for 107 bytes. */
        dlog_print(DLOG_ERROR, TAG, "%s '%s': the storage socket's path under %s is too long",
                   c->op, c->item_id, sso_platform_root());
        return -1;
    }
    memcpy(c->path, path, strlen(path) + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        unavailable(c, "no socket for", errno);
        return -1;
    }
    struct timeval tv = {c->timeout / 1000, (c->timeout % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, c->path, strlen(c->path) + 1);
    while (connect(fd, (struct sockaddr *)&addr, sizeof(addr)) != 0) {
        if (errno == EINTR && now_ms() < c->deadline)
            continue;
        int err = errno;
        close(fd);
        if (err == EAGAIN || err == EWOULDBLOCK || err == EINPROGRESS)
            unavailable(c, "the storage service is too busy to take a connection at", 0);
        else
            unavailable(c, "no storage service at", err);
        return -1;
    }
    return fd;
}

/* One request and its answer. For a read, *buffer and *length receive the
 * item (with a NUL byte after it) on success; nothing else is touched. */
static int call_service(const char *op, uint32_t wire_op, const char *item_id,
                        const ss_credential_t *credential, unsigned int flags,
                        const unsigned char *data, size_t data_len, unsigned char **buffer,
                        size_t *length)
{
    struct call c;
    c.op = op;
    c.item_id = item_id;
    c.timeout = timeout_ms();
    c.deadline = now_ms() + c.timeout;
    c.path[0] = '\0';
    int fd = connect_service(&c);
    if (fd < 0)
        return SS_ERROR_SERVICE_UNAVAILABLE;

    struct ss_wire_request request;
    memset(&request, 0, sizeof(request));
    request.op = wire_op;
    request.flags = flags;
    request.module_id = credential->module_id;
    request.uuid[0] = credential->uuid.word[0];
    request.uuid[1] = credential->uuid.word[1];
    request.item_len = (uint32_t)strlen(item_id);
    request.data_len = (uint32_t)data_len;
    unsigned char head[SS_WIRE_REQUEST_HEADER_LEN + SS_WIRE_MAX_ITEM_ID_LEN];
    ss_wire_encode_request_header(&request, head);
    memcpy(head + SS_WIRE_REQUEST_HEADER_LEN, item_id, request.item_len);

    int rc = SS_ERROR_SERVICE_UNAVAILABLE;
    unsigned char *plain = NULL;
    uint32_t plain_len = 0;
    if ((send_all(fd, head, SS_WIRE_REQUEST_HEADER_LEN + request.item_len, &c) != 0 ||
         (data_len > 0 && send_all(fd, data, data_len, &c) != 0)) &&
        errno != EPIPE && errno != ECONNRESET) {
        unavailable(&c, errno == ETIMEDOUT ? "no answer in time from" : "lost", errno);
        goto out;
    }
    /* The writing half is done either way; a service that stopped reading
     * early still answers why. */
    unsigned char reply[SS_WIRE_REPLY_HEADER_LEN];
    if (recv_all(fd, reply, sizeof(reply), &c) != 0) {
        if (errno == ETIMEDOUT)
            unavailable(&c, "no answer in time from", 0);
        else
            unavailable(&c, "no answer from", errno);
        goto out;
    }
    int32_t status = 0;
    if (ss_wire_decode_reply_header(reply, sizeof(reply), &status, &plain_len) != SS_ERROR_NONE ||
        (plain_len > 0 && wire_op != SS_WIRE_OP_READ)) {
        unavailable(&c, "a garbled answer from", 0);
        goto out;
    }
    if (status != SS_ERROR_NONE) {
        rc = status;
        goto out;
    }
    if (wire_op == SS_WIRE_OP_READ) {
        plain = malloc((size_t)plain_len + 1);
        if (!plain) {
            rc = SS_ERROR_OUT_OF_MEMORY;
            goto out;
        }
        if (recv_all(fd, plain, plain_len, &c) != 0) {
            unavailable(&c, errno == ETIMEDOUT ? "no answer in time from" : "a cut answer from", 0);
            explicit_bzero(plain, plain_len);
            free(plain);
            plain = NULL;
            goto out;
        }
        plain[plain_len] = '\0';
        *buffer = plain;
        *length = plain_len;
    }
    rc = SS_ERROR_NONE;
out:
    close(fd);
    return rc;
}

/* ---- the calls ---- */

SSO_PLATFORM_EXPORT int ss_init_credential(ss_credential_t *credential, uint32_t module_id,
                                           const ss_uuid_t *uuid, unsigned int flags)
{
    if (!credential || !uuid || (flags & ~(unsigned int)SS_FLAG_INIT) != 0)
        return SS_ERROR_INVALID_PARAMETER;
    memset(credential, 0, sizeof(*credential));
    credential->magic = CREDENTIAL_MAGIC;
    credential->module_id = module_id;
    credential->version.major = 1;
    credential->version.minor = 0;
    credential->uuid = *uuid;
    return SS_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int ss_validate(const char *item_id, const ss_credential_t *credential,
                                    unsigned int flags)
{
    int rc = check_common(item_id, credential, flags, READ_FLAGS);
    if (rc != SS_ERROR_NONE)
        return rc;
    if (!(flags & SS_FLAG_READ))
        return SS_ERROR_INVALID_PARAMETER;
    return call_service("validate", SS_WIRE_OP_VALIDATE, item_id, credential, flags, NULL, 0, NULL,
                        NULL);
}

SSO_PLATFORM_EXPORT int ss_read(unsigned char **buffer, size_t *length, const char *owner,
                                const char *scope, const char *item_id,
                                const ss_credential_t *credential, unsigned int flags)
{
    (void)scope; /* accepted, not enforced: the whole item is returned */
    if (!buffer || !length || owner)
        return SS_ERROR_INVALID_PARAMETER;
    int rc = check_common(item_id, credential, flags, READ_FLAGS);
    if (rc != SS_ERROR_NONE)
        return rc;
    if (!(flags & SS_FLAG_READ))
        return SS_ERROR_INVALID_PARAMETER;
    return call_service("read", SS_WIRE_OP_READ, item_id, credential, flags, NULL, 0, buffer,
                        length);
}

SSO_PLATFORM_EXPORT void ss_free_buffer(unsigned char *buffer)
{
    if (!buffer)
        return;
    /* The buffer held a secret; the allocator knows how large it is. */
    explicit_bzero(buffer, malloc_usable_size(buffer));
    free(buffer);
}

SSO_PLATFORM_EXPORT int ss_write(const char *item_id, const unsigned char *data, size_t length,
                                 const ss_credential_t *credential, unsigned int flags)
{
    if (!data && length > 0)
        return SS_ERROR_INVALID_PARAMETER;
    int rc = check_common(item_id, credential, flags, WRITE_FLAGS);
    if (rc != SS_ERROR_NONE)
        return rc;
    if (length > SS_MAX_ITEM_SIZE)
        return SS_ERROR_TOO_LARGE;
    return call_service("write", SS_WIRE_OP_WRITE, item_id, credential, flags, data, length, NULL,
                        NULL);
}

SSO_PLATFORM_EXPORT int ss_delete(const char *item_id, const ss_credential_t *credential,
                                  unsigned int flags)
{
    int rc = check_common(item_id, credential, flags, WRITE_FLAGS);
    if (rc != SS_ERROR_NONE)
        return rc;
    return call_service("delete", SS_WIRE_OP_DELETE, item_id, credential, flags, NULL, 0, NULL,
                        NULL);
}
