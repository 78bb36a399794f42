/*
 * dlog: the device log. Every line carries a tag, a priority and the log
 * buffer it belongs to.
 *
 * On this Linux platform the destination is chosen with SSO_PLATFORM_LOG
 * ("stderr", "syslog", "file:PATH" or "none"; default "syslog") and the
 * threshold with SSO_PLATFORM_LOG_LEVEL ("verbose", "debug", "info", "warn",
 * "error", "fatal" or "silent"; default "warn"). Lines below the threshold
 * return at once without being formatted. A log file that does not exist yet
 * is created with mode 0640 (never readable by every user). File and stderr
 * lines read
 *   2026-11-22 10:00:00.123456 <pid> <tid> <P>/<buffer> <tag>: <message>
 */
#ifndef SSO_PLATFORM_DLOG_H
#define SSO_PLATFORM_DLOG_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT = 1,
    DLOG_VERBOSE = 2,
    DLOG_DEBUG = 3,
    DLOG_INFO = 4,
    DLOG_WARN = 5,
    DLOG_ERROR = 6,
    DLOG_FATAL = 7,
    DLOG_SILENT = 8,
} log_priority;

typedef enum {
    LOG_ID_MAIN = 0,
    LOG_ID_RADIO = 1,
    LOG_ID_SYSTEM = 2,
    LOG_ID_APPS = 3,
    LOG_ID_MAX
} log_id_t;

#define DLOG_ERROR_NONE 0
#define DLOG_ERROR_INVALID_PARAMETER (-22)

/* Writes one line to the main buffer. Returns the number of bytes of the
 * message written, 0 when the priority is below the threshold, or a negative
 * error. */
int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));
int dlog_vprint(log_priority prio, const char *tag, const char *fmt, va_list ap);

/* As dlog_print, to the given buffer. */
int dlog_print_id(log_id_t log_id, log_priority prio, const char *tag, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));
int dlog_vprint_id(log_id_t log_id, log_priority prio, const char *tag, const char *fmt,
                   va_list ap);

/* Linux platform only: re-reads SSO_PLATFORM_LOG and SSO_PLATFORM_LOG_LEVEL.
 * The configuration is otherwise read once, at the first log call. */
void dlog_reload_config(void);

/* Linux platform only: non-zero when a line of this priority would be written. */
int dlog_is_loggable(log_priority prio);

#ifdef __cplusplus
}
#endif

#endif
