// The library's log lines: tag "SSOAPIClient", a "<file>: <function>(<line>) > "
// prefix, and colours by kind. Traces go to the main buffer at info priority;
// errors go to the system buffer at warning priority. Values that identify a
// user or grant access are written only through SSO_LOG_DEVEL, and only on a
// device that carries the /etc/debug marker.
#pragma once

#include <dlog.h>

#include "sso_log_lines.h"

#define SSO_LOG_TAG "SSOAPIClient"

#define SSO_COLOR_RED "\033[0;31m"
#define SSO_COLOR_GREEN "\033[0;32m"
#define SSO_COLOR_YELLOW "\033[0;33m"
#define SSO_COLOR_MAGENTA "\033[0;35m"
#define SSO_COLOR_END "\033[0m"

namespace sso_log_detail {
constexpr const char *BaseName(const char *path)
{
    const char *base = path;
    for (const char *p = path; *p; ++p)
        if (*p == '/')
            base = p + 1;
    return base;
}
bool IsDevelMode();
} // namespace sso_log_detail

#if defined(__FILE_NAME__)
#define SSO_FILE_NAME __FILE_NAME__
#else
#define SSO_FILE_NAME                                                                              \
    ([] {                                                                                          \
        constexpr const char *sso_base = sso_log_detail::BaseName(__FILE__);                       \
        return sso_base;                                                                           \
    }())
#endif

// One line with the library prefix. The platform drops lines below its
// threshold before formatting anything.
#define SSO_LOG_AT_LINE(line, buffer, prio, fmt, ...)                                              \
    dlog_print_id((buffer), (prio), SSO_LOG_TAG, "%s: %s(%d) > " fmt, SSO_FILE_NAME, __func__,     \
                  (line), ##__VA_ARGS__)
#define SSO_LOG_AT(buffer, prio, fmt, ...)                                                         \
    SSO_LOG_AT_LINE(__LINE__, buffer, prio, fmt, ##__VA_ARGS__)
// A line written by a shared helper on behalf of the function that called
// it, under that function's name.
#define SSO_LOG_FOR(function, buffer, prio, fmt, ...)                                              \
    dlog_print_id((buffer), (prio), SSO_LOG_TAG, "%s: %s(%d) > " fmt, SSO_FILE_NAME, (function),   \
                  __LINE__, ##__VA_ARGS__)
#define SSO_LOGD_FOR(function, fmt, ...)                                                           \
    SSO_LOG_FOR(function, LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_MAGENTA fmt SSO_COLOR_END,             \
                ##__VA_ARGS__)
#define SSO_LOGE_FOR(function, fmt, ...)                                                           \
    SSO_LOG_FOR(function, LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_RED fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGY_FOR(function, fmt, ...)                                                           \
    SSO_LOG_FOR(function, LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_YELLOW fmt SSO_COLOR_END, ##__VA_ARGS__)

// Traces (info, main buffer).
#define SSO_LOGP(fmt, ...) SSO_LOG_AT(LOG_ID_MAIN, DLOG_INFO, fmt, ##__VA_ARGS__)
#define SSO_LOGD(fmt, ...)                                                                         \
    SSO_LOG_AT(LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_MAGENTA fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGY(fmt, ...)                                                                         \
    SSO_LOG_AT(LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_YELLOW fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGG(fmt, ...)                                                                         \
    SSO_LOG_AT(LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_GREEN fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOG_START() SSO_LOGD("[START] ")
#define SSO_LOG_END() SSO_LOGD("[END] ")
#define SSO_LOG_START_F(fmt, ...) SSO_LOGD("[START] " fmt, ##__VA_ARGS__)
#define SSO_LOG_END_F(fmt, ...) SSO_LOGD("[END] " fmt, ##__VA_ARGS__)

// Errors (warning, system buffer, red).
#define SSO_LOGE(fmt, ...)                                                                         \
    SSO_LOG_AT(LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_RED fmt SSO_COLOR_END, ##__VA_ARGS__)
// Notable values at warning priority (system buffer).
#define SSO_LOGW_G(fmt, ...)                                                                       \
    SSO_LOG_AT(LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_GREEN fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGW_Y(fmt, ...)                                                                       \
    SSO_LOG_AT(LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_YELLOW fmt SSO_COLOR_END, ##__VA_ARGS__)

// The same kinds of line carrying a fixed line number (sso_log_lines.h).
#define SSO_LOGD_AT(line, fmt, ...)                                                                \
    SSO_LOG_AT_LINE(line, LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_MAGENTA fmt SSO_COLOR_END,             \
                    ##__VA_ARGS__)
#define SSO_LOGY_AT(line, fmt, ...)                                                                \
    SSO_LOG_AT_LINE(line, LOG_ID_MAIN, DLOG_INFO, SSO_COLOR_YELLOW fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGE_AT(line, fmt, ...)                                                                \
    SSO_LOG_AT_LINE(line, LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_RED fmt SSO_COLOR_END, ##__VA_ARGS__)
#define SSO_LOGW_G_AT(line, fmt, ...)                                                              \
    SSO_LOG_AT_LINE(line, LOG_ID_SYSTEM, DLOG_WARN, SSO_COLOR_GREEN fmt SSO_COLOR_END,             \
                    ##__VA_ARGS__)

// The failed null check: logs the reason; the caller returns its failure value.
#define SSO_LOG_CHECK_NULL(reason) SSO_LOGE("SSO_API_CHECK_NULL_RETURN. Return (%s)", reason)

// Identifying values and secrets: only with the /etc/debug marker present.
// The marker is looked for only when the line would be written at all: at
// the default threshold these info lines are filtered, and the file test is
// the costlier half.
#define SSO_LOG_DEVEL(fmt, ...)                                                                    \
    do {                                                                                           \
        if (dlog_is_loggable(DLOG_INFO) && sso_log_detail::IsDevelMode())                          \
            SSO_LOGG("[DEVEL] " fmt, ##__VA_ARGS__);                                               \
    } while (0)
#define SSO_LOG_DEVEL_FOR(function, fmt, ...)                                                      \
    do {                                                                                           \
        if (dlog_is_loggable(DLOG_INFO) && sso_log_detail::IsDevelMode())                          \
            SSO_LOG_FOR(function, LOG_ID_MAIN, DLOG_INFO,                                          \
                        SSO_COLOR_GREEN "[DEVEL] " fmt SSO_COLOR_END, ##__VA_ARGS__);              \
    } while (0)
