#define _GNU_SOURCE
#include "sso_platform_common.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
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

static int write_all(int fd, const void *data, size_t len)
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
    if (fchmod(fd, mode) != 0 || write_all(fd, data, len) != 0)
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

int sso_platform_read_file(const char *path, size_t max_len, char **data, size_t *len)
{
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
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
