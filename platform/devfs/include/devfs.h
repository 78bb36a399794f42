/*
 * devfs: access to the device's fixed file paths (marker files such as
 * /etc/debug). On a device these are the real paths. On this Linux platform,
 * when SSO_PLATFORM_ROOT is set, an absolute path is looked up under
 * $SSO_PLATFORM_ROOT/fs instead (/etc/debug becomes $SSO_PLATFORM_ROOT/fs/etc/debug),
 * so tests and demos never touch the real /etc or /opt. Paths under /proc are
 * never remapped.
 */
#ifndef SSO_PLATFORM_DEVFS_H
#define SSO_PLATFORM_DEVFS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* access(2) on the device path. Returns 0 or -1 with errno set. */
int devfs_access(const char *device_path, int mode);

/* Whether a marker file is at the device path: 1 when a regular file (or a
 * link to one) is there, 0 when nothing is. Anything else there (a FIFO, a
 * device, a socket, a directory) is no marker: -1 with errno EINVAL and a
 * warning in the platform log naming it; -1 with errno set too when the path
 * cannot be looked at. Never opens the file, so never blocks on it. */
int devfs_marker_present(const char *device_path);

/* Writes the host path that stands for device_path into buf. Returns 0, or -1
 * (errno ENAMETOOLONG or EINVAL) when it cannot. */
int devfs_resolve(const char *device_path, char *buf, size_t size);

#ifdef __cplusplus
}
#endif

#endif
