#define _GNU_SOURCE
#include "devfs.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dlog.h>

#include "sso_platform_common.h"

SSO_PLATFORM_EXPORT int devfs_resolve(const char *device_path, char *buf, size_t size)
{
    if (!device_path || !buf || size == 0) {
        errno = EINVAL;
        return -1;
    }
    const char *root = getenv("SSO_PLATFORM_ROOT");
    int remap = root && root[0] != '\0' && device_path[0] == '/' &&
                strncmp(device_path, "/proc/", 6) != 0 && strcmp(device_path, "/proc") != 0;
    int n = remap ? snprintf(buf, size, "%s/fs%s", root, device_path)
                  : snprintf(buf, size, "%s", device_path);
    if (n < 0 || (size_t)n >= size) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

SSO_PLATFORM_EXPORT int devfs_access(const char *device_path, int mode)
{
    char path[PATH_MAX];
    if (devfs_resolve(device_path, path, sizeof(path)) != 0)
        return -1;
    return access(path, mode);
}

SSO_PLATFORM_EXPORT int devfs_marker_present(const char *device_path)
{
    char path[PATH_MAX];
    if (devfs_resolve(device_path, path, sizeof(path)) != 0)
        return -1;
    struct stat st;
    if (stat(path, &st) != 0)
        return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    if (S_ISREG(st.st_mode))
        return 1;
    dlog_print(DLOG_WARN, SSO_PLATFORM_LOG_TAG, "%s is %s, not a regular file: no marker", path,
               sso_platform_file_kind(st.st_mode));
    errno = EINVAL;
    return -1;
}
