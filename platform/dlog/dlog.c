#define _GNU_SOURCE
#include "dlog.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
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
#define HEADER_MAX 256

/* The system log: one datagram socket, connected once to the log daemon's
 * socket and kept. When no daemon listens, lines are dropped before they
 * are formatted and a new connection is tried at most once a second, so a
 * device (or a container) without a log daemon pays next to nothing per
 * line. g_sys_fd is set under g_sys_mutex and closed only by a reload (with
 * g_dest_lock held for writing); a reconnection puts the new socket in place
 * under the same descriptor number (dup3), so a writer never sends on a
 * descriptor that another thread closed. */
#define SYSLOG_DEFAULT_PATH "/dev/log"
#define SYSLOG_RETRY_NS 1000000000LL
static char g_sys_path[sizeof(((struct sockaddr_un *)0)->sun_path)] = SYSLOG_DEFAULT_PATH;
static int g_sys_fd = -1;                /* guarded by g_sys_mutex (and g_dest_lock) */
static atomic_bool g_sys_connected;      /* g_sys_fd reaches a listening daemon */
static _Atomic long long g_sys_retry_at; /* monotonic ns of the next connection try */
static pthread_mutex_t g_sys_mutex = PTHREAD_MUTEX_INITIALIZER;

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
    const char *sys_path = SYSLOG_DEFAULT_PATH;
    if (dest && *dest) {
        if (strncmp(dest, "syslog:", 7) == 0 && dest[7] != '\0') {
            /* Another daemon socket than /dev/log (benchmarks, tests). */
            sys_path = dest + 7;
        } else if (strcmp(dest, "stderr") == 0) {
            kind = DEST_STDERR;
        } else if (strcmp(dest, "none") == 0) {
            kind = DEST_NONE;
        } else if (strncmp(dest, "file:", 5) == 0 && dest[5] != '\0') {
            /* Non-blocking: a FIFO nobody reads must not hang the process at
             * its first log line (the open fails, lines go to stderr), nor a
             * full one at a later line (that line is dropped). Lines may name
             * accounts and, with the debug marker, carry secrets: a log file
             * is never made readable by every user. */
            fd = open(dest + 5, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY,
                      0640);
            kind = fd >= 0 ? DEST_FILE : DEST_STDERR;
        }
    }
    pthread_rwlock_wrlock(&g_dest_lock);
    int old = g_fd;
    g_dest = kind;
    g_fd = fd;
    /* No writer runs now. The system-log socket starts afresh only for
     * another daemon socket: reloading the same set-up keeps the connection
     * (and, without a daemon, the time of the next try). */
    int old_sys = -1;
    pthread_mutex_lock(&g_sys_mutex);
    if (kind == DEST_SYSLOG && strcmp(g_sys_path, sys_path) != 0) {
        old_sys = g_sys_fd;
        g_sys_fd = -1;
        snprintf(g_sys_path, sizeof(g_sys_path), "%s", sys_path);
        atomic_store(&g_sys_connected, false);
        atomic_store(&g_sys_retry_at, 0);
    }
    pthread_mutex_unlock(&g_sys_mutex);
    pthread_rwlock_unlock(&g_dest_lock);
    if (old >= 0)
        close(old);
    if (old_sys >= 0)
        close(old_sys);
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

static long long monotonic_ns(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return (long long)ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

/* Connects the system-log socket unless another thread just did. Called with
 * g_dest_lock held for reading. False when no daemon listens; the next try is
 * then a second away. */
static bool syslog_connect(void)
{
    pthread_mutex_lock(&g_sys_mutex);
    bool ok = atomic_load(&g_sys_connected);
    if (!ok) {
        struct sockaddr_un addr;
        memset(&addr, 0, sizeof(addr));
        addr.sun_family = AF_UNIX;
        memcpy(addr.sun_path, g_sys_path, sizeof(addr.sun_path));
        int s = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (s >= 0 && connect(s, (struct sockaddr *)&addr, sizeof(addr)) == 0) {
            if (g_sys_fd < 0) {
                g_sys_fd = s;
            } else {
                /* Same number, new connection: writers keep their descriptor. */
                dup3(s, g_sys_fd, O_CLOEXEC);
                close(s);
            }
            atomic_store(&g_sys_connected, true);
            ok = true;
        } else {
            if (s >= 0)
                close(s);
            atomic_store(&g_sys_retry_at, monotonic_ns() + SYSLOG_RETRY_NS);
        }
    }
    pthread_mutex_unlock(&g_sys_mutex);
    return ok;
}

/* True when a line for the system log has somewhere to go. */
static bool syslog_ready(void)
{
    if (atomic_load_explicit(&g_sys_connected, memory_order_acquire))
        return true;
    if (monotonic_ns() < atomic_load_explicit(&g_sys_retry_at, memory_order_relaxed))
        return false;
    return syslog_connect();
}

/* "<PRI>Mmm dd hh:mm:ss ident: " as the system log expects it. The time text
 * is kept per thread and remade only when the second changes. */
static int syslog_header(char *buf, size_t size, int prio)
{
    static __thread time_t stamp_second = (time_t)-1;
    static __thread char stamp[32];
    time_t now = time(NULL);
    if (now != stamp_second) {
        struct tm tm;
        localtime_r(&now, &tm);
        if (strftime(stamp, sizeof(stamp), "%b %e %H:%M:%S", &tm) == 0)
            stamp[0] = '\0';
        stamp_second = now;
    }
    return snprintf(buf, size, "<%d>%s %s: ", LOG_USER | syslog_level(prio), stamp,
                    program_invocation_short_name);
}

/* Sends one line; a daemon that went away (or was restarted) is reconnected
 * once, as the C library's syslog does. */
static void syslog_send(const char *line, size_t len)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        ssize_t n;
        do {
            n = send(g_sys_fd, line, len, MSG_NOSIGNAL);
        } while (n < 0 && errno == EINTR);
        if (n >= 0 || (errno != ECONNREFUSED && errno != ENOTCONN && errno != ECONNRESET &&
                       errno != EPIPE && errno != ENOENT && errno != EBADF))
            return;
        atomic_store(&g_sys_connected, false);
        atomic_store(&g_sys_retry_at, 0);
        if (!syslog_connect())
            return;
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
    /* Header, then the message formatted in place (at most MAX_MESSAGE - 1
     * characters of it), then the line feed of the file form. */
    char line[HEADER_MAX + MAX_MESSAGE + 1];
    int hlen = 0;
    pthread_rwlock_rdlock(&g_dest_lock);
    enum dest_kind dest = g_dest;
    if (dest == DEST_SYSLOG) {
        if (!syslog_ready()) {
            /* Nobody reads the system log: nothing to format. */
            pthread_rwlock_unlock(&g_dest_lock);
            errno = saved_errno;
            return 0;
        }
        hlen = syslog_header(line, HEADER_MAX, prio);
        if (hlen >= 0 && hlen < HEADER_MAX)
            hlen += snprintf(line + hlen, HEADER_MAX - (size_t)hlen,
                             "%c/%s %s: ", prio_letter(prio), buffer_name(log_id), tag);
    } else if (dest == DEST_STDERR || dest == DEST_FILE) {
        struct timeval tv;
        gettimeofday(&tv, NULL);
        struct tm tm;
        localtime_r(&tv.tv_sec, &tm);
        hlen = snprintf(line, HEADER_MAX,
                        "%04d-%02d-%02d %02d:%02d:%02d.%06ld %d %ld %c/%s %s: ", tm.tm_year + 1900,
                        tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                        (long)tv.tv_usec, (int)getpid(), (long)syscall(SYS_gettid),
                        prio_letter(prio), buffer_name(log_id), tag);
    }
    if (hlen < 0)
        hlen = 0;
    if (hlen > HEADER_MAX - 1)
        hlen = HEADER_MAX - 1; /* a tag too long for the header is cut */
    int mlen = vsnprintf(line + hlen, MAX_MESSAGE, fmt, ap);
    if (mlen < 0) {
        pthread_rwlock_unlock(&g_dest_lock);
        errno = saved_errno;
        return DLOG_ERROR_INVALID_PARAMETER;
    }
    if (mlen >= MAX_MESSAGE)
        mlen = MAX_MESSAGE - 1;
    size_t total = (size_t)hlen + (size_t)mlen;
    if (dest == DEST_SYSLOG) {
        syslog_send(line, total);
    } else if (dest == DEST_STDERR || dest == DEST_FILE) {
        line[total++] = '\n';
        /* One write per line: lines from several threads or processes
         * appending to the same file never interleave. */
        write_fd(dest == DEST_FILE ? g_fd : STDERR_FILENO, line, total);
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
