/*
 * sso-storaged: the platform's storage service. Owns the device key and the
 * sealed items under <root>/secure-storage and answers ss_* requests on
 * <root>/secure-storage/socket, deciding by the peer's user id (see
 * ss_policy.h). Runs in the foreground; prints "ready" once it serves, and
 * stops on SIGTERM or SIGINT (status 0).
 *
 *   sso-storaged [--root DIR] [--service-user USER|UID]
 *
 * One connection is one request. Workers (threads kept from one request to
 * the next) each take a connection and serve it, and there is always one
 * waiting for the next, so a client that stalls (for at most
 * SS_SERVICE_IO_TIMEOUT_MS) holds up nobody else. At most MAX_WORKERS
 * connections are served at once (more wait to be taken), and at most
 * MAX_WORKERS_PER_USER of them for any one user but the privileged ones, so
 * that no application can crowd out the SSO service: beyond that a user's
 * connections are closed at once (its client sees
 * SS_ERROR_SERVICE_UNAVAILABLE).
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stddef.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "dlog.h"
#include "ss_service.h"
#include "ss_store.h"
#include "ss_wire.h"
#include "sso_platform_common.h"

#ifndef SSO_STORAGE_SERVICE_USER
#define SSO_STORAGE_SERVICE_USER "root"
#endif

#define TAG "SS_SERVICE"
#define LOCK_FILE SS_WIRE_STORE_DIR "/lock"
#define MAX_WORKERS 64
#define MAX_WORKERS_PER_USER 16
#define MIN_IDLE 2
#define SHUTDOWN_GRACE_MS 3000

static struct ss_policy g_policy;
static int g_listener = -1;

/* The workers and the connections they serve, by user. All guarded by
 * g_workers_lock. */
static pthread_mutex_t g_workers_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_workers_done = PTHREAD_COND_INITIALIZER;
static int g_threads;  /* workers alive */
static int g_idle;     /* of them, waiting for a connection */
static int g_stopping; /* no worker takes another connection */
static struct {
    uid_t uid;
    int count;
} g_users[MAX_WORKERS]; /* connections being served */

static int privileged(uid_t uid)
{
    return uid == 0 || uid == g_policy.service_uid || uid == g_policy.own_uid;
}

/* Counts a connection of uid in; 0 when the user is at its limit. The
 * privileged users are never crowded out by the others' limit. Called with
 * g_workers_lock. */
static int admit_locked(uid_t uid)
{
    int slot = -1, free_slot = -1;
    for (int i = 0; i < MAX_WORKERS; ++i) {
        if (g_users[i].count > 0 && g_users[i].uid == uid)
            slot = i;
        else if (g_users[i].count == 0 && free_slot < 0)
            free_slot = i;
    }
    int limit = privileged(uid) ? MAX_WORKERS : MAX_WORKERS_PER_USER;
    if (slot < 0)
        slot = free_slot;
    if (slot < 0 || g_users[slot].count >= limit)
        return 0;
    g_users[slot].uid = uid;
    g_users[slot].count++;
    return 1;
}

static void release_locked(uid_t uid)
{
    for (int i = 0; i < MAX_WORKERS; ++i) {
        if (g_users[i].count > 0 && g_users[i].uid == uid) {
            g_users[i].count--;
            return;
        }
    }
}

static int start_worker(void);

/* Serves one accepted connection and closes it. */
static void serve(int fd)
{
    struct ucred peer;
    socklen_t len = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0 || len != sizeof(peer)) {
        close(fd);
        return;
    }
    pthread_mutex_lock(&g_workers_lock);
    int admitted = admit_locked(peer.uid);
    pthread_mutex_unlock(&g_workers_lock);
    if (!admitted) {
        dlog_print(DLOG_WARN, TAG, "busy: dropped a connection of uid %u (pid %d)",
                   (unsigned)peer.uid, (int)peer.pid);
        close(fd);
        return;
    }
    ss_service_handle(fd, &g_policy);
    close(fd);
    pthread_mutex_lock(&g_workers_lock);
    release_locked(peer.uid);
    pthread_mutex_unlock(&g_workers_lock);
}

/* A worker: takes connections from the listening socket, one at a time, and
 * serves each on this thread. A worker that takes the last idle place starts
 * another (up to MAX_WORKERS), so that a stalled client never leaves the
 * others waiting; beyond MIN_IDLE idle ones, a worker that is done leaves. */
static void *worker(void *arg)
{
    (void)arg;
    for (;;) {
        int fd = accept4(g_listener, NULL, NULL, SOCK_CLOEXEC);
        int err = errno;
        pthread_mutex_lock(&g_workers_lock);
        g_idle--;
        if (g_stopping) {
            if (fd >= 0)
                close(fd);
            break;
        }
        if (fd < 0) {
            g_idle++;
            pthread_mutex_unlock(&g_workers_lock);
            if (err == EMFILE || err == ENFILE || err == ENOMEM || err == ENOBUFS) {
                /* Out of descriptors or memory: let the others finish. */
                struct timespec pause = {0, 50 * 1000 * 1000};
                nanosleep(&pause, NULL);
            }
            continue;
        }
        int more = g_idle == 0 && g_threads < MAX_WORKERS;
        if (more) {
            g_threads++;
            g_idle++;
        }
        pthread_mutex_unlock(&g_workers_lock);
        if (more && start_worker() != 0) {
            pthread_mutex_lock(&g_workers_lock);
            g_threads--;
            g_idle--;
            pthread_mutex_unlock(&g_workers_lock);
        }
        serve(fd);
        pthread_mutex_lock(&g_workers_lock);
        if (g_stopping || g_idle >= MIN_IDLE)
            break;
        g_idle++;
        pthread_mutex_unlock(&g_workers_lock);
    }
    pthread_mutex_unlock(&g_workers_lock);
    ss_store_thread_done();
    pthread_mutex_lock(&g_workers_lock);
    g_threads--;
    pthread_cond_broadcast(&g_workers_done);
    pthread_mutex_unlock(&g_workers_lock);
    return NULL;
}

/* Starts a worker already counted in g_threads and g_idle. */
static int start_worker(void)
{
    pthread_attr_t attr;
    pthread_t thread;
    if (pthread_attr_init(&attr) != 0)
        return -1;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    int rc = pthread_create(&thread, &attr, worker, NULL);
    pthread_attr_destroy(&attr);
    if (rc != 0)
        dlog_print(DLOG_ERROR, TAG, "cannot start a worker: %s", strerror(rc));
    return rc;
}

/* Stops taking connections and waits up to SHUTDOWN_GRACE_MS for the workers
 * to finish what they serve; 0 when one is left. */
static int stop_workers(void)
{
    pthread_mutex_lock(&g_workers_lock);
    g_stopping = 1;
    pthread_mutex_unlock(&g_workers_lock);
    /* Wakes the workers waiting in accept(). */
    shutdown(g_listener, SHUT_RDWR);
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += SHUTDOWN_GRACE_MS / 1000;
    pthread_mutex_lock(&g_workers_lock);
    while (g_threads > 0)
        if (pthread_cond_timedwait(&g_workers_done, &g_workers_lock, &deadline) == ETIMEDOUT)
            break;
    int drained = g_threads == 0;
    pthread_mutex_unlock(&g_workers_lock);
    return drained;
}

/* Tells the service manager where this service is, by the notify protocol
 * of systemd: one datagram on the socket $NOTIFY_SOCKET names ("@" for the
 * abstract namespace). Nothing when it is not set. */
static void notify_manager(const char *state)
{
    const char *path = getenv("NOTIFY_SOCKET");
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (!path || (path[0] != '/' && path[0] != '@') || strlen(path) >= sizeof(addr.sun_path))
        return;
    size_t len = strlen(path);
    memcpy(addr.sun_path, path, len);
    if (path[0] == '@')
        addr.sun_path[0] = '\0';
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    if (sendto(fd, state, strlen(state), MSG_NOSIGNAL, (struct sockaddr *)&addr,
               (socklen_t)(offsetof(struct sockaddr_un, sun_path) + len)) < 0)
        dlog_print(DLOG_WARN, TAG, "cannot tell the service manager '%s': %s", state,
                   strerror(errno));
    close(fd);
}

static int usage(FILE *out, const char *prog, int status)
{
    fprintf(out,
            "Usage: %s [--root DIR] [--service-user USER|UID]\n"
            "\n"
            "The platform's storage service: keeps the secure-storage items under\n"
            "DIR/secure-storage (default: $SSO_PLATFORM_ROOT, else the platform's default\n"
            "root) and serves them on DIR/secure-storage/socket to the processes each item\n"
            "is meant for. Prints \"ready\" once it serves; stops on SIGTERM or SIGINT.\n"
            "\n"
            "  --root DIR            the platform root (must exist)\n"
            "  --service-user USER   the SSO service's account, which writes the items and\n"
            "                        reads them all (default: %s)\n",
            prog, SSO_STORAGE_SERVICE_USER);
    return status;
}

static int parse_user(const char *text, uid_t *uid)
{
    char *end = NULL;
    errno = 0;
    unsigned long long v = strtoull(text, &end, 10);
    if (text[0] >= '0' && text[0] <= '9' && *end == '\0' && errno == 0 && v < (uid_t)-1) {
        *uid = (uid_t)v;
        return 0;
    }
    struct passwd *pw = getpwnam(text);
    if (!pw)
        return -1;
    *uid = pw->pw_uid;
    return 0;
}

/* The store directory must be this service's: another user's store is
 * another service's business. */
static int check_store_owner(void)
{
    char store[PATH_MAX];
    if (sso_platform_path(store, sizeof(store), SS_WIRE_STORE_DIR) != 0)
        return -1;
    struct stat st;
    if (lstat(store, &st) != 0)
        return errno == ENOENT ? 0 : -1;
    if (!S_ISDIR(st.st_mode)) {
        fprintf(stderr, "sso-storaged: %s is not a directory\n", store);
        return -1;
    }
    if (st.st_uid != geteuid()) {
        fprintf(stderr, "sso-storaged: %s belongs to uid %u; this service runs as uid %u\n", store,
                (unsigned)st.st_uid, (unsigned)geteuid());
        return -1;
    }
    return 0;
}

static int listen_on(const char *path)
{
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(addr.sun_path)) {
        fprintf(stderr, "sso-storaged: the socket path %s is too long\n", path);
        return -1;
    }
    strcpy(addr.sun_path, path);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    /* A socket left by a service that died; the lock says none runs. */
    unlink(path);
    if (bind(fd, (struct sockaddr *)&addr, sizeof(addr)) != 0 || chmod(path, 0666) != 0 ||
        listen(fd, 128) != 0) {
        fprintf(stderr, "sso-storaged: cannot listen on %s: %s\n", path, strerror(errno));
        close(fd);
        return -1;
    }
    return fd;
}

int main(int argc, char **argv)
{
    const char *service_user = SSO_STORAGE_SERVICE_USER;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0)
            return usage(stdout, argv[0], 0);
        if (strcmp(argv[i], "--root") == 0 && i + 1 < argc && argv[i + 1][0] != '\0') {
            setenv("SSO_PLATFORM_ROOT", argv[++i], 1);
        } else if (strcmp(argv[i], "--service-user") == 0 && i + 1 < argc) {
            service_user = argv[++i];
        } else {
            fprintf(stderr, "sso-storaged: unknown argument '%s'\n", argv[i]);
            return usage(stderr, argv[0], 2);
        }
    }
    g_policy.own_uid = geteuid();
    if (parse_user(service_user, &g_policy.service_uid) != 0) {
        fprintf(stderr, "sso-storaged: no such user '%s'\n", service_user);
        return 2;
    }

    const char *root = sso_platform_root();
    struct stat st;
    if (stat(root, &st) != 0 || !S_ISDIR(st.st_mode)) {
        fprintf(stderr, "sso-storaged: no platform root at %s\n", root);
        return 1;
    }
    char lock_path[PATH_MAX], socket_path[PATH_MAX];
    if (sso_platform_path(lock_path, sizeof(lock_path), LOCK_FILE) != 0 ||
        sso_platform_path(socket_path, sizeof(socket_path), SS_WIRE_SOCKET) != 0 ||
        strlen(socket_path) >= sizeof(((struct sockaddr_un *)0)->sun_path)) {
        fprintf(stderr, "sso-storaged: the socket path under %s is too long\n", root);
        return 1;
    }
    if (check_store_owner() != 0)
        return 1;
    int rc = ss_store_prepare();
    if (rc != SS_ERROR_NONE) {
        fprintf(stderr, "sso-storaged: cannot prepare the store under %s (error %d)\n", root, rc);
        return 1;
    }
    /* Held for the service's life: one service a store. */
    int lock = open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
        fprintf(stderr, "sso-storaged: %s\n",
                lock >= 0 && errno == EWOULDBLOCK
                    ? "another storage service serves this platform root"
                    : strerror(errno));
        return 1;
    }

    /* Signals arrive through a descriptor; no thread is interrupted. */
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, NULL);
    signal(SIGPIPE, SIG_IGN);
    int sfd = signalfd(-1, &stop, SFD_CLOEXEC);
    int listener = sfd >= 0 ? listen_on(socket_path) : -1;
    if (listener < 0)
        return 1;
    struct stat own_socket;
    memset(&own_socket, 0, sizeof(own_socket));
    stat(socket_path, &own_socket);

    g_listener = listener;
    pthread_mutex_lock(&g_workers_lock);
    for (int i = 0; i < MIN_IDLE; ++i) {
        g_threads++;
        g_idle++;
        if (start_worker() != 0) {
            g_threads--;
            g_idle--;
        }
    }
    int started = g_threads;
    pthread_mutex_unlock(&g_workers_lock);
    if (started == 0)
        return 1;

    dlog_print(DLOG_INFO, TAG, "serving %s (SSO service uid %u, own uid %u)", root,
               (unsigned)g_policy.service_uid, (unsigned)g_policy.own_uid);
    printf("ready\n");
    fflush(stdout);
    notify_manager("READY=1");

    struct signalfd_siginfo info;
    while (read(sfd, &info, sizeof(info)) < 0 && errno == EINTR) {
    }

    notify_manager("STOPPING=1");
    int drained = stop_workers();
    /* Only our own socket: a service started after us may own the path. */
    struct stat now;
    if (stat(socket_path, &now) == 0 && now.st_ino == own_socket.st_ino &&
        now.st_dev == own_socket.st_dev)
        unlink(socket_path);
    dlog_print(DLOG_INFO, TAG, "stopped");
    /* A worker stuck in a stalled client must not meet exit's clean-up. */
    if (!drained)
        _exit(0);
    close(listener);
    return 0;
}
