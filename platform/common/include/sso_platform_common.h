/*
 * Shared helpers of the Linux device platform: where platform state lives and
 * how files under it are read and written. Internal to the platform libraries
 * and tools.
 */
#ifndef SSO_PLATFORM_COMMON_H
#define SSO_PLATFORM_COMMON_H

#include <limits.h>
#include <stddef.h>
#include <sys/stat.h>
#include <sys/types.h>

/* Marks the definitions that a platform library exports; everything else in
 * it is hidden. */
#define SSO_PLATFORM_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* The platform root: $SSO_PLATFORM_ROOT when set and non-empty, else the
 * configured default. Read afresh on every call, so a test may point a process
 * at a new root between runs. Never null. */
const char *sso_platform_root(void);

/* Writes "<root>/<relative>" into buf. Returns 0, or -1 (errno ENAMETOOLONG)
 * when it does not fit. */
int sso_platform_path(char *buf, size_t size, const char *relative);

/* mkdir -p with the given mode for every component created. Returns 0 or -1
 * with errno set. */
int sso_platform_mkdirs(const char *path, mode_t mode);

/* Writes all len bytes to fd, retrying short writes and EINTR. Returns 0 or
 * -1 with errno set. */
int sso_platform_write_all(int fd, const void *data, size_t len);

/* The same on a socket: send() without SIGPIPE when the peer has gone.
 * Returns 0 or -1. */
int sso_platform_send_all(int fd, const void *data, size_t len);

/* Receives exactly len bytes from a socket, retrying EINTR. Returns 0, or -1
 * on end of stream, an error, or the socket's receive time-out. */
int sso_platform_recv_all(int fd, void *buf, size_t len);

/* Replaces path with the given bytes atomically: a reader sees either the old
 * or the new contents, never a mix. The file gets the given mode. Returns 0 or
 * -1 with errno set. */
int sso_platform_write_atomic(const char *path, const void *data, size_t len, mode_t mode);

/* Opens path for reading without ever blocking on what is there: only a
 * regular file (or a link to one) is opened. A FIFO, a device, a socket or a
 * directory is refused at once: -1 with errno EINVAL, and a warning in the
 * platform log (tag SSO_PLATFORM_LOG_TAG) that names the path and what it
 * is. Otherwise the descriptor (close-on-exec, non-blocking, no controlling
 * terminal) is returned and *st filled when st is not NULL. */
int sso_platform_open_regular(const char *path, struct stat *st);

/* Reads the whole file into a malloc'ed buffer with a terminating NUL byte
 * that is not counted in *len. Files above max_len bytes fail with EFBIG;
 * anything but a regular file is refused as sso_platform_open_regular does.
 * Returns 0 or -1 with errno set. */
int sso_platform_read_file(const char *path, size_t max_len, char **data, size_t *len);

/* What a file of this mode is, for a log line: "a FIFO", "a directory"... */
const char *sso_platform_file_kind(mode_t mode);

/* The tag of the platform's own log lines. */
#define SSO_PLATFORM_LOG_TAG "SSO_PLATFORM"

/* The longest file name the platform makes for a stored item: the atomic
 * writer's temporary ".<name>.XXXXXX" must still fit NAME_MAX. */
#define SSO_PLATFORM_MAX_FILE_NAME (NAME_MAX - 8)

/* Whether name can name something the platform stores (settings key, app id,
 * flag): not NULL, 1 to max_len bytes, no control characters. */
int sso_platform_valid_name(const char *name, size_t max_len);

/* Turns a name (settings key, app id, flag, item id) into a file name: ASCII
 * letters, digits, '_', '.' and '-' stay as they are, except a leading '.';
 * every other byte becomes "%XX" (upper-case hex). out has room for
 * SSO_PLATFORM_MAX_FILE_NAME + 1 bytes. Returns 0, or -1 when the result would
 * be longer than SSO_PLATFORM_MAX_FILE_NAME. Callers validate the name itself. */
int sso_platform_encode_name(const char *name, char *out);

/* The name a file name stands for, malloc'ed; NULL when file_name is not
 * exactly what sso_platform_encode_name makes of some name, so a stray file
 * in a store directory can never alias a name. */
char *sso_platform_decode_name(const char *file_name);

#ifdef __cplusplus
}
#endif

#endif
