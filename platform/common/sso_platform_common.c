#define _GNU_SOURCE
#include "sso_platform_common.h"

#include <dlog.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef SSO_DEFAULT_PLATFORM_ROOT
#define SSO_DEFAULT_PLATFORM_ROOT "/var/lib/sso-platform"
#endif

const char *sso_platform_root(void)
{
    const char *root = getenv("SSO_PLATFORM_ROOT");
    if (root && root[0] != '\0')
        return root;
    return SSO_DEFAULT_PLATFORM_ROOT;
}

int sso_platform_path(char *buf, size_t size, const char *relative)
{
    const char *root = sso_platform_root();
    int n = snprintf(buf, size, "%s/%s", root, relative ? relative : "");
    if (n < 0 || (size_t)n >= size) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

int sso_platform_mkdirs(const char *path, mode_t mode)
{
    char tmp[PATH_MAX];
    size_t len = strlen(path);
    if (len == 0 || len >= sizeof(tmp)) {
        errno = len ? ENAMETOOLONG : ENOENT;
        return -1;
    }
    memcpy(tmp, path, len + 1);
    for (char *p = tmp + 1; *p; ++p) {
        if (*p != '/')
            continue;
        *p = '\0';
        if (mkdir(tmp, mode) != 0 && errno != EEXIST)
            return -1;
        *p = '/';
    }
    if (mkdir(tmp, mode) != 0 && errno != EEXIST)
        return -1;
    struct stat st;
    if (stat(tmp, &st) != 0)
        return -1;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return -1;
    }
    return 0;
}

int sso_platform_write_all(int fd, const void *data, size_t len)
{
    const char *p = data;
    while (len > 0) {
        ssize_t n = write(fd, p, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        p += n;
        len -= (size_t)n;
    }
    return 0;
}

/* The whole of len bytes through a socket, sent (without SIGPIPE) or
 * received; EINTR retried, an error or end of stream is -1. A buffer being
 * sent is only read. */
static int socket_transfer_all(int fd, char *p, size_t len, int sending)
{
    while (len > 0) {
        ssize_t n = sending ? send(fd, p, len, MSG_NOSIGNAL) : recv(fd, p, len, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        p += n;
        len -= (size_t)n;
    }
    return 0;
}

int sso_platform_send_all(int fd, const void *data, size_t len)
{
    return socket_transfer_all(fd, (char *)data, len, 1);
}

int sso_platform_recv_all(int fd, void *buf, size_t len)
{
    return socket_transfer_all(fd, buf, len, 0);
}

int sso_platform_write_atomic(const char *path, const void *data, size_t len, mode_t mode)
{
    /* The temporary file sits in the same directory (rename must not cross
     * file systems) and starts with a dot, so directory watchers skip it. */
    char tmp[PATH_MAX];
    const char *slash = strrchr(path, '/');
    int dirlen = slash ? (int)(slash - path) : 1;
    const char *dir = slash ? path : ".";
    const char *base = slash ? slash + 1 : path;
    int n = snprintf(tmp, sizeof(tmp), "%.*s/.%s.XXXXXX", dirlen, dir, base);
    if (n < 0 || (size_t)n >= sizeof(tmp)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    int fd = mkostemp(tmp, O_CLOEXEC);
    if (fd < 0)
        return -1;
    int saved;
    if (fchmod(fd, mode) != 0 || sso_platform_write_all(fd, data, len) != 0)
        goto fail;
    if (close(fd) != 0) {
        fd = -1;
        goto fail;
    }
    fd = -1;
    if (rename(tmp, path) != 0)
        goto fail;
    return 0;
fail:
    saved = errno;
    if (fd >= 0)
        close(fd);
    unlink(tmp);
    errno = saved;
    return -1;
}

const char *sso_platform_file_kind(mode_t mode)
{
    if (S_ISFIFO(mode))
        return "a FIFO";
    if (S_ISCHR(mode))
        return "a character device";
    if (S_ISBLK(mode))
        return "a block device";
    if (S_ISSOCK(mode))
        return "a socket";
    if (S_ISDIR(mode))
        return "a directory";
    return "a file of another kind";
}

int sso_platform_open_regular(const char *path, struct stat *st)
{
    /* Non-blocking: opening a FIFO for reading would wait for a writer, and
     * a device may wait for its hardware. Whatever it is, it is only looked
     * at (fstat) and closed. */
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return -1;
    struct stat local;
    if (!st)
        st = &local;
    if (fstat(fd, st) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    if (!S_ISREG(st->st_mode)) {
        close(fd);
        dlog_print(DLOG_WARN, SSO_PLATFORM_LOG_TAG,
                   "%s is %s, not a regular file: refused without reading it", path,
                   sso_platform_file_kind(st->st_mode));
        errno = EINVAL;
        return -1;
    }
    return fd;
}

int sso_platform_read_file(const char *path, size_t max_len, char **data, size_t *len)
{
    struct stat st;
    int fd = sso_platform_open_regular(path, &st);
    if (fd < 0)
        return -1;
    if ((size_t)st.st_size > max_len) {
        close(fd);
        errno = EFBIG;
        return -1;
    }
    size_t cap = (size_t)st.st_size + 1;
    char *buf = malloc(cap);
    if (!buf) {
        close(fd);
        errno = ENOMEM;
        return -1;
    }
    size_t used = 0;
    for (;;) {
        if (used + 1 >= cap) {
            /* The file grew after fstat (an in-place writer); keep reading. */
            if (cap > max_len + 1) {
                free(buf);
                close(fd);
                errno = EFBIG;
                return -1;
            }
            size_t ncap = cap * 2;
            char *nbuf = realloc(buf, ncap);
            if (!nbuf) {
                free(buf);
                close(fd);
                errno = ENOMEM;
                return -1;
            }
            buf = nbuf;
            cap = ncap;
        }
        ssize_t n = read(fd, buf + used, cap - 1 - used);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            int saved = errno;
            free(buf);
            close(fd);
            errno = saved;
            return -1;
        }
        if (n == 0)
            break;
        used += (size_t)n;
    }
    close(fd);
    if (used > max_len) {
        free(buf);
        errno = EFBIG;
        return -1;
    }
    buf[used] = '\0';
    *data = buf;
    *len = used;
    return 0;
}

static int plain_name_byte(unsigned char c, size_t pos)
{
    if (c == '.')
        return pos != 0;
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-';
}

int sso_platform_valid_name(const char *name, size_t max_len)
{
    if (!name)
        return 0;
    size_t len = strnlen(name, max_len + 1);
    if (len == 0 || len > max_len)
        return 0;
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = (unsigned char)name[i];
        if (c < 0x20 || c == 0x7f)
            return 0;
    }
    return 1;
}

int sso_platform_encode_name(const char *name, char *out)
{
    static const char hex[] = "0123456789ABCDEF";
    size_t n = 0;
    for (size_t i = 0; name[i]; ++i) {
        unsigned char c = (unsigned char)name[i];
        if (plain_name_byte(c, i)) {
            if (n + 1 > SSO_PLATFORM_MAX_FILE_NAME)
                return -1;
            out[n++] = (char)c;
        } else {
            if (n + 3 > SSO_PLATFORM_MAX_FILE_NAME)
                return -1;
            out[n++] = '%';
            out[n++] = hex[c >> 4];
            out[n++] = hex[c & 0xf];
        }
    }
    out[n] = '\0';
    return 0;
}

static int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

char *sso_platform_decode_name(const char *file_name)
{
    size_t len = strlen(file_name);
    char *name = malloc(len + 1);
    if (!name)
        return NULL;
    size_t n = 0;
    for (size_t i = 0; i < len; ++i) {
        if (file_name[i] != '%') {
            name[n++] = file_name[i];
            continue;
        }
        int hi = i + 2 < len ? hex_value(file_name[i + 1]) : -1;
        int lo = hi >= 0 ? hex_value(file_name[i + 2]) : -1;
        if (lo < 0 || (hi == 0 && lo == 0)) {
            free(name);
            return NULL;
        }
        name[n++] = (char)(hi << 4 | lo);
        i += 2;
    }
    name[n] = '\0';
    char check[SSO_PLATFORM_MAX_FILE_NAME + 1];
    if (sso_platform_encode_name(name, check) != 0 || strcmp(check, file_name) != 0) {
        free(name);
        return NULL;
    }
    return name;
}
