#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <limits.h>
#include <stdint.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "app_control_private.h"
#include "app_control_registry.h"
#include "sso_platform_common.h"

/*
 * Launching. The caller
 *   - encodes the request into a sealed memfd,
 *   - makes a socketpair for the reply when it wants one,
 *   - spawns the registered program with the memfd as descriptor 3, its end
 *     of the socketpair as descriptor 4, SSO_PLATFORM_APP_ID set to the
 *     application's id and SSO_PLATFORM_APP_LAUNCH="3:4:<token>" ("3:-1:..."
 *     without a reply channel),
 *   - watches its end of the socketpair and the child on the main context
 *     that was the thread default at the call.
 * The reply callback runs when a whole reply frame has arrived, or with
 * APP_CONTROL_RESULT_FAILED when the channel reaches EOF or the child exits
 * without one. A child exit is seen by the child watch, which also reaps it;
 * a watch destroyed with its context before the child ended hands the child
 * to a detached thread blocked in waitpid.
 *
 * The callee reads the request when the library is loaded (a constructor),
 * closes the memfd and marks the reply socket close-on-exec, so programs it
 * starts inherit neither (the environment variable they do inherit names
 * descriptors they lack, and the token does not match whatever they have
 * there).
 */

#define LAUNCH_ENV "SSO_PLATFORM_APP_LAUNCH"
#define APP_ID_ENV "SSO_PLATFORM_APP_ID"
#define CHILD_REQUEST_FD 3
#define CHILD_REPLY_FD 4
/* Descriptors handed to the child are first moved at or above this, so that
 * none of them sits on a target number of another. */
#define HANDOVER_MIN_FD 10

/* ================================================================ caller */

struct launch {
    pthread_mutex_t lock; /* orders the setup before the callbacks */
    int refs;             /* one per attached source; atomic */
    app_control_reply_cb callback;
    void *user_data;
    struct app_control_s *request; /* a copy of the request as sent */
    char *callee_id;
    int fd; /* the caller's end of the reply socket, -1 once closed */
    GSource *fd_source;
    unsigned char *buf;
    size_t len;
    size_t cap;
    bool delivered;
};

static void launch_unref(gpointer data)
{
    /* Not under l->lock: a source destroyed while the lock is held (see
     * close_channel) drops its reference right there. */
    struct launch *l = data;
    if (__atomic_sub_fetch(&l->refs, 1, __ATOMIC_ACQ_REL) != 0)
        return;
    if (l->fd >= 0)
        close(l->fd);
    if (l->fd_source)
        g_source_unref(l->fd_source);
    app_control_free_handle(l->request);
    free(l->callee_id);
    free(l->buf);
    pthread_mutex_destroy(&l->lock);
    free(l);
}

/* Reads what the socket holds. Returns 1 at EOF (or on an error, which ends
 * the channel as well), 0 when it would block. */
static int drain(struct launch *l)
{
    for (;;) {
        if (l->cap - l->len < 4096) {
            size_t cap = l->cap ? l->cap * 2 : 8192;
            if (cap > APP_WIRE_MAX_MESSAGE + 4096)
                return 1; /* more than any reply: a broken callee */
            unsigned char *buf = realloc(l->buf, cap);
            if (!buf)
                return 1;
            l->buf = buf;
            l->cap = cap;
        }
        ssize_t n = read(l->fd, l->buf + l->len, l->cap - l->len);
        if (n > 0) {
            l->len += (size_t)n;
            continue;
        }
        if (n == 0)
            return 1;
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        return 1;
    }
}

/* The reply in the buffer, when a whole frame is there: 1 with *reply and
 * *result set, 0 when incomplete, -1 for a frame that cannot be a reply. */
static int parse_buffered(struct launch *l, struct app_control_s **reply, int *result)
{
    long frame = app_wire_reply_frame_len(l->buf, l->len);
    if (frame < 0)
        return -1;
    if (frame == 0 || l->len < (size_t)frame)
        return 0;
    if (app_wire_decode_reply(l->buf, (size_t)frame, reply, result) != APP_CONTROL_ERROR_NONE)
        return -1;
    return 1;
}

/* Stops watching the socket and closes it. */
static void close_channel(struct launch *l)
{
    if (l->fd_source) {
        g_source_destroy(l->fd_source);
        g_source_unref(l->fd_source);
        l->fd_source = NULL;
    }
    if (l->fd >= 0) {
        close(l->fd);
        l->fd = -1;
    }
    free(l->buf);
    l->buf = NULL;
    l->len = l->cap = 0;
}

/* Looks at the channel; with finished set, nothing more will arrive (EOF or
 * the child is gone). Returns whether the callback is due, with what. Runs
 * with l->lock held. */
static bool settle(struct launch *l, bool finished, struct app_control_s **reply, int *result)
{
    if (l->delivered)
        return false;
    int parsed = parse_buffered(l, reply, result);
    if (parsed == 0 && !finished)
        return false;
    if (parsed <= 0) {
        *reply = NULL;
        *result = APP_CONTROL_RESULT_FAILED;
    } else {
        free((*reply)->app_id);
        (*reply)->app_id = l->callee_id ? strdup(l->callee_id) : NULL;
    }
    l->delivered = true;
    close_channel(l);
    return true;
}

/* Calls the reply callback outside the lock and frees the reply. */
static void deliver(struct launch *l, struct app_control_s *reply, int result)
{
    l->callback(l->request, reply, (app_control_result_e)result, l->user_data);
    app_control_free_handle(reply);
}

static gboolean on_reply_readable(gint fd, GIOCondition condition, gpointer data)
{
    (void)fd;
    (void)condition;
    struct launch *l = data;
    pthread_mutex_lock(&l->lock);
    struct app_control_s *reply = NULL;
    int result = APP_CONTROL_RESULT_FAILED;
    bool due = false;
    if (l->fd >= 0) {
        int eof = drain(l);
        due = settle(l, eof != 0, &reply, &result);
    }
    pthread_mutex_unlock(&l->lock);
    if (due)
        deliver(l, reply, result);
    /* settle() destroyed this source if the channel is done. */
    return G_SOURCE_CONTINUE;
}

/* The child watch of one launched process. */
struct child_watch {
    GPid pid;
    int reaped; /* atomic */
    /* NULL when nobody waits for a reply. Stored (release) after every other
     * field and loaded (acquire) before them: the sources may run on another
     * thread than the one that set them up. */
    struct launch *l;
};

static void *reap_in_background(void *data)
{
    pid_t pid = (pid_t)(intptr_t)data;
    pthread_setname_np(pthread_self(), "app-reaper");
    while (waitpid(pid, NULL, 0) < 0 && errno == EINTR) {
    }
    return NULL;
}

/* The watch is gone: with its context, before the child ended. Nobody else
 * will reap the child, so a detached thread waits for it. */
static void child_watch_free(gpointer data)
{
    struct child_watch *cw = data;
    struct launch *l = __atomic_load_n(&cw->l, __ATOMIC_ACQUIRE);
    if (!__atomic_load_n(&cw->reaped, __ATOMIC_ACQUIRE)) {
        pthread_t thread;
        pthread_attr_t attr;
        if (pthread_attr_init(&attr) == 0) {
            /* It never takes the application's signals; faults stay
             * deliverable, as on the library's own threads. */
            static const int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};
            sigset_t quiet, saved;
            sigfillset(&quiet);
            for (size_t i = 0; i < sizeof faults / sizeof faults[0]; i++)
                sigdelset(&quiet, faults[i]);
            int masked = pthread_sigmask(SIG_BLOCK, &quiet, &saved) == 0;
            pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
            (void)pthread_create(&thread, &attr, reap_in_background, (void *)(intptr_t)cw->pid);
            if (masked)
                pthread_sigmask(SIG_SETMASK, &saved, NULL);
            pthread_attr_destroy(&attr);
        }
    }
    if (l)
        launch_unref(l);
    free(cw);
}

static void on_child_exit(GPid pid, gint status, gpointer data)
{
    (void)status;
    g_spawn_close_pid(pid);
    struct child_watch *cw = data;
    struct launch *l = __atomic_load_n(&cw->l, __ATOMIC_ACQUIRE);
    __atomic_store_n(&cw->reaped, 1, __ATOMIC_RELEASE);
    if (!l)
        return; /* nobody waits for a reply */
    pthread_mutex_lock(&l->lock);
    struct app_control_s *reply = NULL;
    int result = APP_CONTROL_RESULT_FAILED;
    /* A reply written before the exit is in the socket now. */
    if (l->fd >= 0)
        drain(l);
    bool due = settle(l, true, &reply, &result);
    pthread_mutex_unlock(&l->lock);
    if (due)
        deliver(l, reply, result);
}

/* ---- starting the process ---- */

/* Moves fd at or above HANDOVER_MIN_FD (close-on-exec); returns the new fd,
 * or -1 with fd closed. */
static int raise_fd(int fd)
{
    if (fd >= HANDOVER_MIN_FD)
        return fd;
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, HANDOVER_MIN_FD);
    close(fd);
    return moved;
}

static int make_request_fd(const struct app_wire_buffer *msg)
{
    int fd = memfd_create("sso-app-request", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0)
        return -1;
    size_t off = 0;
    while (off < msg->len) {
        ssize_t n = write(fd, msg->data + off, msg->len - off);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            close(fd);
            return -1;
        }
        off += (size_t)n;
    }
    /* The callee reads it; nobody may change it. */
    (void)fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    return raise_fd(fd);
}

static void token_hex(const unsigned char *token, char *hex)
{
    static const char digits[] = "0123456789abcdef";
    for (int i = 0; i < APP_WIRE_TOKEN_LEN; ++i) {
        hex[2 * i] = digits[token[i] >> 4];
        hex[2 * i + 1] = digits[token[i] & 0xf];
    }
    hex[2 * APP_WIRE_TOKEN_LEN] = '\0';
}

static int make_token(unsigned char *token)
{
    size_t got = 0;
    while (got < APP_WIRE_TOKEN_LEN) {
        ssize_t n = getrandom(token + got, APP_WIRE_TOKEN_LEN - got, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        got += (size_t)n;
    }
    return 0;
}

/* Spawns exec_path with the handover; *pid on success. */
static int spawn_app(const char *exec_path, const char *app_id, int request_fd, int reply_fd,
                     const unsigned char *token, GPid *pid)
{
    char hex[2 * APP_WIRE_TOKEN_LEN + 1];
    token_hex(token, hex);
    char launch[64 + sizeof(hex)];
    snprintf(launch, sizeof(launch), "%d:%d:%s", CHILD_REQUEST_FD,
             reply_fd >= 0 ? CHILD_REPLY_FD : -1, hex);

    gchar **envp = g_get_environ();
    envp = g_environ_setenv(envp, APP_ID_ENV, app_id, TRUE);
    envp = g_environ_setenv(envp, LAUNCH_ENV, launch, TRUE);
    gchar *argv[] = {(gchar *)exec_path, NULL};
    gint source_fds[2] = {request_fd, reply_fd};
    gint target_fds[2] = {CHILD_REQUEST_FD, CHILD_REPLY_FD};
    GError *error = NULL;
    gboolean ok = g_spawn_async_with_pipes_and_fds(
        NULL, (const gchar *const *)argv, (const gchar *const *)envp, G_SPAWN_DO_NOT_REAP_CHILD,
        NULL, NULL, -1, -1, -1, source_fds, target_fds, reply_fd >= 0 ? 2 : 1, pid, NULL, NULL,
        NULL, &error);
    g_strfreev(envp);
    if (!ok) {
        g_error_free(error);
        return APP_CONTROL_ERROR_LAUNCH_FAILED;
    }
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_send_launch_request(app_control_h app_control,
                                                        app_control_reply_cb callback,
                                                        void *user_data)
{
    if (!app_control || !app_control->app_id)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    char *exec_path = NULL;
    int rc = app_control_get_app_exec(app_control->app_id, &exec_path);
    if (rc != APP_CONTROL_ERROR_NONE)
        return rc;

    unsigned char token[APP_WIRE_TOKEN_LEN];
    struct app_wire_buffer msg;
    const char *caller = getenv(APP_ID_ENV);
    int request_fd = -1, fds[2] = {-1, -1};
    struct launch *l = NULL;
    struct child_watch *cw = calloc(1, sizeof(*cw));
    if (!cw) {
        rc = APP_CONTROL_ERROR_OUT_OF_MEMORY;
        goto out;
    }
    if (make_token(token) != 0) {
        rc = APP_CONTROL_ERROR_LAUNCH_FAILED;
        goto out;
    }
    rc = app_wire_encode_request(&msg, token, app_control->app_id, caller ? caller : "",
                                 app_control);
    if (rc != APP_CONTROL_ERROR_NONE)
        goto out;
    request_fd = make_request_fd(&msg);
    app_wire_buffer_free(&msg);
    if (request_fd < 0) {
        rc = APP_CONTROL_ERROR_LAUNCH_FAILED;
        goto out;
    }
    if (callback) {
        l = calloc(1, sizeof(*l));
        if (!l) {
            rc = APP_CONTROL_ERROR_OUT_OF_MEMORY;
            goto out;
        }
        pthread_mutex_init(&l->lock, NULL);
        l->fd = -1;
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0 ||
            (fds[1] = raise_fd(fds[1])) < 0) {
            rc = APP_CONTROL_ERROR_LAUNCH_FAILED;
            goto out;
        }
        if (app_control_clone(&l->request, app_control) != APP_CONTROL_ERROR_NONE ||
            !(l->callee_id = strdup(app_control->app_id))) {
            rc = APP_CONTROL_ERROR_OUT_OF_MEMORY;
            goto out;
        }
    }

    GPid pid;
    rc = spawn_app(exec_path, app_control->app_id, request_fd, fds[1], token, &pid);
    close(request_fd);
    request_fd = -1;
    if (fds[1] >= 0) {
        close(fds[1]);
        fds[1] = -1;
    }
    if (rc != APP_CONTROL_ERROR_NONE)
        goto out;

    cw->pid = pid;
    GMainContext *context = g_main_context_ref_thread_default();
    GSource *child = g_child_watch_source_new(pid);
    g_source_set_callback(child, G_SOURCE_FUNC(on_child_exit), cw, child_watch_free);
    if (!l) {
        __atomic_store_n(&cw->l, NULL, __ATOMIC_RELEASE);
        g_source_attach(child, context);
    } else {
        /* Both sources are attached under the lock: their callbacks may run
         * on the context's thread at once and must see the setup whole. */
        pthread_mutex_lock(&l->lock);
        l->callback = callback;
        l->user_data = user_data;
        l->fd = fds[0];
        fds[0] = -1;
        g_unix_set_fd_nonblocking(l->fd, TRUE, NULL);
        __atomic_store_n(&l->refs, 2, __ATOMIC_RELEASE);
        l->fd_source = g_unix_fd_source_new(l->fd, G_IO_IN | G_IO_HUP | G_IO_ERR);
        g_source_set_callback(l->fd_source, G_SOURCE_FUNC(on_reply_readable), l, launch_unref);
        __atomic_store_n(&cw->l, l, __ATOMIC_RELEASE);
        g_source_attach(l->fd_source, context);
        g_source_attach(child, context);
        pthread_mutex_unlock(&l->lock);
        l = NULL;
    }
    cw = NULL;
    g_source_unref(child);
    g_main_context_unref(context);

out:
    if (request_fd >= 0)
        close(request_fd);
    if (fds[0] >= 0)
        close(fds[0]);
    if (fds[1] >= 0)
        close(fds[1]);
    if (l) {
        app_control_free_handle(l->request);
        free(l->callee_id);
        pthread_mutex_destroy(&l->lock);
        free(l);
    }
    free(cw);
    free(exec_path);
    return rc;
}

/* ================================================================ callee */

static struct {
    pthread_once_t once;
    pthread_mutex_t lock;
    struct app_control_s *request; /* NULL when not launched with one */
    int reply_fd;                  /* -1 when no reply is wanted or sent */
    bool replied;
} self = {PTHREAD_ONCE_INIT, PTHREAD_MUTEX_INITIALIZER, NULL, -1, false};

static int parse_fd(const char *s, char **end)
{
    errno = 0;
    long v = strtol(s, end, 10);
    if (errno != 0 || *end == s || v < -1 || v > INT_MAX)
        return -2;
    return (int)v;
}

static int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

/* Reads the request named by the environment, if it is really there. */
static void load_launch_request(void)
{
    const char *env = getenv(LAUNCH_ENV);
    if (!env)
        return;
    char *end;
    int request_fd = parse_fd(env, &end);
    if (request_fd < 0 || *end != ':')
        return;
    int reply_fd = parse_fd(end + 1, &end);
    if (reply_fd < -1 || *end != ':' || strlen(end + 1) != 2 * APP_WIRE_TOKEN_LEN)
        return;
    unsigned char token[APP_WIRE_TOKEN_LEN];
    for (int i = 0; i < APP_WIRE_TOKEN_LEN; ++i) {
        int hi = hex_digit(end[1 + 2 * i]), lo = hex_digit(end[2 + 2 * i]);
        if (hi < 0 || lo < 0)
            return;
        token[i] = (unsigned char)(hi << 4 | lo);
    }

    /* The request descriptor must be a regular file (pread leaves any shared
     * offset alone) holding a request with this token. */
    struct stat st;
    if (fstat(request_fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0 ||
        (unsigned long long)st.st_size > APP_WIRE_MAX_MESSAGE)
        return;
    size_t len = (size_t)st.st_size;
    unsigned char *data = malloc(len);
    if (!data)
        return;
    size_t got = 0;
    while (got < len) {
        ssize_t n = pread(request_fd, data + got, len - got, (off_t)got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += (size_t)n;
    }
    struct app_control_s *request = NULL;
    int rc = got == len ? app_wire_decode_request(data, len, token, &request)
                        : APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    free(data);
    if (rc != APP_CONTROL_ERROR_NONE)
        return;

    /* Ours: take the descriptors out of reach of programs this one starts. */
    close(request_fd);
    if (reply_fd >= 0) {
        if (fstat(reply_fd, &st) == 0 && S_ISSOCK(st.st_mode))
            (void)fcntl(reply_fd, F_SETFD, FD_CLOEXEC);
        else
            reply_fd = -1;
    }
    self.request = request;
    self.reply_fd = reply_fd;
}

__attribute__((constructor)) static void claim_launch_request(void)
{
    pthread_once(&self.once, load_launch_request);
}

SSO_PLATFORM_EXPORT int app_control_get_launch_request(app_control_h *request)
{
    if (!request)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    pthread_once(&self.once, load_launch_request);
    if (!self.request)
        return APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    return app_control_clone(request, self.request);
}

SSO_PLATFORM_EXPORT int app_control_reply_to_launch_request(app_control_h reply,
                                                            app_control_h request,
                                                            app_control_result_e result)
{
    if (!request || !request->received || !app_control_valid_result((int)result))
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    pthread_once(&self.once, load_launch_request);
    if (!self.request)
        return APP_CONTROL_ERROR_NO_LAUNCH_REQUEST;
    struct app_wire_buffer msg;
    int rc = app_wire_encode_reply(&msg, reply, (int)result);
    if (rc != APP_CONTROL_ERROR_NONE)
        return rc;

    pthread_mutex_lock(&self.lock);
    bool replied = self.replied;
    int fd = self.reply_fd;
    if (!replied) {
        self.replied = true;
        self.reply_fd = -1;
    }
    pthread_mutex_unlock(&self.lock);
    if (replied) {
        app_wire_buffer_free(&msg);
        return APP_CONTROL_ERROR_ALREADY_REPLIED;
    }
    if (fd >= 0) {
        if (sso_platform_send_all(fd, msg.data, msg.len) != 0)
            rc = APP_CONTROL_ERROR_IO_ERROR;
        close(fd);
    }
    app_wire_buffer_free(&msg);
    return rc;
}
