#define _GNU_SOURCE
#include "dlog.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "sso_platform_common.h"

enum dest_kind { DEST_SYSLOG, DEST_STDERR, DEST_FILE, DEST_NONE };

/* Threshold and destination. g_threshold is read without a lock on every
 * call (the fast filter); 0 means "not configured yet". The destination is
 * guarded by g_dest_lock: writers hold it for reading, a reload for writing,
 * so a file descriptor is never closed under a writer. */
static atomic_int g_threshold;
static pthread_rwlock_t g_dest_lock = PTHREAD_RWLOCK_INITIALIZER;
static enum dest_kind g_dest = DEST_SYSLOG;
static int g_fd = -1;
static pthread_mutex_t g_config_mutex = PTHREAD_MUTEX_INITIALIZER;

#define MAX_MESSAGE 4096

static int parse_level(const char *s)
{
    static const struct {
        const char *name;
        int prio;
    } names[] = {
        {"verbose", DLOG_VERBOSE}, {"debug", DLOG_DEBUG},   {"info", DLOG_INFO},
        {"warn", DLOG_WARN},       {"warning", DLOG_WARN},  {"error", DLOG_ERROR},
        {"fatal", DLOG_FATAL},     {"silent", DLOG_SILENT}, {"none", DLOG_SILENT},
    };
    if (!s || !*s)
        return DLOG_WARN;
    for (size_t i = 0; i < sizeof(names) / sizeof(names[0]); ++i)
        if (strcasecmp(s, names[i].name) == 0)
            return names[i].prio;
    char *end = NULL;
    long v = strtol(s, &end, 10);
    if (end && *end == '\0' && v >= DLOG_VERBOSE && v <= DLOG_SILENT)
        return (int)v;
    return DLOG_WARN;
}

static void configure_locked(void)
{
    const char *dest = getenv("SSO_PLATFORM_LOG");
    enum dest_kind kind = DEST_SYSLOG;
    int fd = -1;
    if (dest && *dest) {
        if (strcmp(dest, "stderr") == 0) {
            kind = DEST_STDERR;
        } else if (strcmp(dest, "none") == 0) {
            kind = DEST_NONE;
        } else if (strncmp(dest, "file:", 5) == 0 && dest[5] != '\0') {
            fd = open(dest + 5, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            kind = fd >= 0 ? DEST_FILE : DEST_STDERR;
        }
    }
    pthread_rwlock_wrlock(&g_dest_lock);
    int old = g_fd;
    g_dest = kind;
    g_fd = fd;
    pthread_rwlock_unlock(&g_dest_lock);
    if (old >= 0)
        close(old);
    int threshold = parse_level(getenv("SSO_PLATFORM_LOG_LEVEL"));
    if (kind == DEST_NONE)
        threshold = DLOG_SILENT;
    atomic_store_explicit(&g_threshold, threshold, memory_order_release);
}

static int current_threshold(void)
{
    int t = atomic_load_explicit(&g_threshold, memory_order_acquire);
    if (t != 0)
        return t;
    pthread_mutex_lock(&g_config_mutex);
    if (atomic_load_explicit(&g_threshold, memory_order_acquire) == 0)
        configure_locked();
    pthread_mutex_unlock(&g_config_mutex);
    return atomic_load_explicit(&g_threshold, memory_order_acquire);
}

SSO_PLATFORM_EXPORT void dlog_reload_config(void)
{
    pthread_mutex_lock(&g_config_mutex);
    configure_locked();
    pthread_mutex_unlock(&g_config_mutex);
}

SSO_PLATFORM_EXPORT int dlog_is_loggable(log_priority prio)
{
    return prio >= DLOG_VERBOSE && prio < DLOG_SILENT && (int)prio >= current_threshold();
}

static char prio_letter(int prio)
{
    static const char letters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= DLOG_SILENT) ? letters[prio] : '?';
}

static const char *buffer_name(log_id_t id)
{
    switch (id) {
    case LOG_ID_MAIN:
        return "main";
    case LOG_ID_RADIO:
        return "radio";
    case LOG_ID_SYSTEM:
        return "system";
    case LOG_ID_APPS:
        return "apps";
    default:
        return "?";
    }
}

static int syslog_level(int prio)
{
    switch (prio) {
    case DLOG_VERBOSE:
    case DLOG_DEBUG:
        return LOG_DEBUG;
    case DLOG_INFO:
        return LOG_INFO;
    case DLOG_WARN:
        return LOG_WARNING;
    case DLOG_ERROR:
        return LOG_ERR;
    default:
        return LOG_CRIT;
    }
}

static void write_fd(int fd, const char *p, size_t len)
{
    while (len > 0) {
        ssize_t n = write(fd, p, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        p += n;
        len -= (size_t)n;
    }
}

SSO_PLATFORM_EXPORT int dlog_vprint_id(log_id_t log_id, log_priority prio, const char *tag,
                                       const char *fmt, va_list ap)
{
    if (!fmt || log_id < 0 || log_id >= LOG_ID_MAX)
        return DLOG_ERROR_INVALID_PARAMETER;
    if (prio < DLOG_VERBOSE || prio >= DLOG_SILENT || (int)prio < current_threshold())
        return 0;
    if (!tag)
        tag = "";

    int saved_errno = errno;
    char message[MAX_MESSAGE];
    int mlen = vsnprintf(message, sizeof(message), fmt, ap);
    if (mlen < 0) {
        errno = saved_errno;
        return DLOG_ERROR_INVALID_PARAMETER;
    }
    if ((size_t)mlen >= sizeof(message))
        mlen = (int)sizeof(message) - 1;

    pthread_rwlock_rdlock(&g_dest_lock);
    if (g_dest == DEST_SYSLOG) {
        syslog(syslog_level(prio), "%c/%s %s: %s", prio_letter(prio), buffer_name(log_id), tag,
               message);
    } else if (g_dest == DEST_STDERR || g_dest == DEST_FILE) {
        struct timeval tv;
        gettimeofday(&tv, NULL);
        struct tm tm;
        localtime_r(&tv.tv_sec, &tm);
        char line[MAX_MESSAGE + 256];
        int hlen = snprintf(
            line, sizeof(line),
            "%04d-%02d-%02d %02d:%02d:%02d.%06ld %d %ld %c/%s %s: ", tm.tm_year + 1900,
            tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, (long)tv.tv_usec,
            (int)getpid(), (long)syscall(SYS_gettid), prio_letter(prio), buffer_name(log_id), tag);
        if (hlen < 0)
            hlen = 0;
        if ((size_t)hlen > sizeof(line) - 2)
            hlen = (int)sizeof(line) - 2;
        size_t room = sizeof(line) - (size_t)hlen - 2;
        size_t copy = (size_t)mlen < room ? (size_t)mlen : room;
        memcpy(line + hlen, message, copy);
        size_t total = (size_t)hlen + copy;
        line[total++] = '\n';
        /* One write per line: lines from several threads or processes
         * appending to the same file never interleave. */
        write_fd(g_dest == DEST_FILE ? g_fd : STDERR_FILENO, line, total);
    }
    pthread_rwlock_unlock(&g_dest_lock);
    errno = saved_errno;
    return mlen;
}

SSO_PLATFORM_EXPORT int dlog_print_id(log_id_t log_id, log_priority prio, const char *tag,
                                      const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int r = dlog_vprint_id(log_id, prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

SSO_PLATFORM_EXPORT int dlog_vprint(log_priority prio, const char *tag, const char *fmt, va_list ap)
{
    return dlog_vprint_id(LOG_ID_MAIN, prio, tag, fmt, ap);
}

SSO_PLATFORM_EXPORT int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int r = dlog_vprint_id(LOG_ID_MAIN, prio, tag, fmt, ap);
    va_end(ap);
    return r;
}
