#define _GNU_SOURCE
#include "vconf.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/types.h>
#include <unistd.h>

#include "sso_platform_common.h"

/*
 * Store layout: <root>/vconf is one flat directory with a file per key. The
 * file name is the key with every byte outside [A-Za-z0-9_.-] (and a leading
 * '.') written as %XX, so names never contain '/' and never start with the
 * '.' that marks the temporary files of atomic writes. The content is a type
 * letter, a newline and the value: "i\n-12", "b\n1" or "s\n<bytes to EOF>".
 */

#define VCONF_DIR "vconf"
#define MAX_KEY_LEN 255
/* The atomic writer names its temporary file ".<name>.XXXXXX", which must
 * still fit the file system's name limit. */
#define MAX_FILE_NAME SSO_PLATFORM_MAX_FILE_NAME
/* Strings above this are refused on write; anything larger on disk is not a
 * value this library wrote. */
#define MAX_STRING_LEN (16u * 1024u * 1024u)
#define MAX_FILE_LEN (MAX_STRING_LEN + 2u)
#define FILE_MODE 0644
#define PRIVATE_FILE_MODE 0640
#define DIR_MODE 0755

#define WATCH_MASK                                                                                 \
    (IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF |    \
     IN_ONLYDIR)

struct _keynode_t {
    char *keyname;
    int type;
    int ival; /* int and bool */
    char *sval;
};

/* A value as read from its file. */
struct value {
    int type;
    int ival;
    char *sval; /* malloc'ed; for strings only */
};

/* ---- key names ---- */

/* Keys whose values identify the account holder: readable only by the writer
 * and the group of the settings directory (see vconf.h). */
static const char *const private_keys[] = {
    "memory/sso/prev_login_guid",
    "memory/sso/prev_login_id",
    "memory/sso/event_extra",
    "db/sso/display_name",
};

static mode_t key_mode(const char *key)
{
    for (size_t i = 0; i < sizeof(private_keys) / sizeof(private_keys[0]); ++i)
        if (strcmp(key, private_keys[i]) == 0)
            return PRIVATE_FILE_MODE;
    return FILE_MODE;
}

/* Returns VCONF_OK, VCONF_ERROR for a null key or VCONF_ERROR_WRONG_PREFIX for
 * one that cannot name a setting. */
static int check_key(const char *key)
{
    if (!key)
        return VCONF_ERROR;
    return sso_platform_valid_name(key, MAX_KEY_LEN) ? VCONF_OK : VCONF_ERROR_WRONG_PREFIX;
}

/* Encodes key into buf (at least MAX_FILE_NAME + 1 bytes). Fails when the
 * encoded name is too long for the file system. */
static int encode_key(const char *key, char *buf, size_t size)
{
    if (size < MAX_FILE_NAME + 1)
        return -1;
    return sso_platform_encode_name(key, buf);
}

/* Decodes a file name back into a key; NULL for a stray file. */
static char *decode_name(const char *name)
{
    char *key = sso_platform_decode_name(name);
    if (key && check_key(key) != VCONF_OK) {
        free(key);
        return NULL;
    }
    return key;
}

/* The file name of a key (name holds MAX_FILE_NAME + 1), validating the key
 * on the way. */
static int key_file_name(const char *key, char *name, size_t size)
{
    int rc = check_key(key);
    if (rc != VCONF_OK)
        return rc;
    if (encode_key(key, name, size) != 0)
        return VCONF_ERROR_WRONG_PREFIX;
    return VCONF_OK;
}

/* "<root>/vconf/<encoded key>", validating the key on the way. */
static int key_path(const char *key, char *buf, size_t size)
{
    char name[MAX_FILE_NAME + 1];
    int rc = key_file_name(key, name, sizeof(name));
    if (rc != VCONF_OK)
        return rc;
    char rel[sizeof(VCONF_DIR) + 1 + sizeof(name)];
    snprintf(rel, sizeof(rel), "%s/%s", VCONF_DIR, name);
    if (sso_platform_path(buf, size, rel) != 0)
        return VCONF_ERROR;
    return VCONF_OK;
}

/* ---- values on disk ---- */

static int read_error(int err)
{
    switch (err) {
    case ENOENT:
    case ENOTDIR:
        return VCONF_ERROR_FILE_NO_ENT;
    case EACCES:
    case EPERM:
        return VCONF_ERROR_FILE_PERM;
    case ENOMEM:
        return VCONF_ERROR_NO_MEM;
    case EFBIG:
        return VCONF_ERROR_FILE_FREAD;
    default:
        return VCONF_ERROR_FILE_OPEN;
    }
}

static int write_error(int err)
{
    switch (err) {
    case EACCES:
    case EPERM:
    case EROFS:
        return VCONF_ERROR_FILE_PERM;
    case ENOTDIR:
    case ENOENT:
        return VCONF_ERROR_FILE_ACCESS;
    case ENOMEM:
        return VCONF_ERROR_NO_MEM;
    default:
        return VCONF_ERROR_FILE_WRITE;
    }
}

static int parse_int(const char *s, size_t len, int *out)
{
    /* Tolerate one trailing newline from a hand-edited file. */
    if (len > 0 && s[len - 1] == '\n')
        --len;
    if (len == 0 || len > 12)
        return -1;
    char tmp[16];
    memcpy(tmp, s, len);
    tmp[len] = '\0';
    if (tmp[0] != '-' && (tmp[0] < '0' || tmp[0] > '9'))
        return -1;
    char *end = NULL;
    errno = 0;
    long v = strtol(tmp, &end, 10);
    if (errno != 0 || *end != '\0' || v < INT_MIN || v > INT_MAX)
        return -1;
    *out = (int)v;
    return 0;
}

/* Parses a file's content. Takes ownership of data: a string value keeps the
 * buffer (moved down over the type line), anything else frees it. */
static int parse_value(char *data, size_t len, struct value *v)
{
    if (len < 2 || data[1] != '\n') {
        free(data);
        return VCONF_ERROR_FILE_FREAD;
    }
    const char *body = data + 2;
    size_t blen = len - 2;
    int rc = VCONF_OK;
    switch (data[0]) {
    case 'i':
        v->type = VCONF_TYPE_INT;
        if (parse_int(body, blen, &v->ival) != 0)
            rc = VCONF_ERROR_FILE_FREAD;
        break;
    case 'b':
        v->type = VCONF_TYPE_BOOL;
        if (blen > 0 && body[blen - 1] == '\n')
            --blen;
        if (blen != 1 || (body[0] != '0' && body[0] != '1'))
            rc = VCONF_ERROR_FILE_FREAD;
        else
            v->ival = body[0] == '1';
        break;
    case 's':
        v->type = VCONF_TYPE_STRING;
        memmove(data, body, blen + 1); /* with the NUL read_file appends */
        v->sval = data;
        return VCONF_OK;
    default:
        rc = VCONF_ERROR_FILE_FREAD;
        break;
    }
    free(data);
    return rc;
}

static int read_value_at(const char *path, struct value *v)
{
    char *data = NULL;
    size_t len = 0;
    if (sso_platform_read_file(path, MAX_FILE_LEN, &data, &len) != 0)
        return read_error(errno);
    memset(v, 0, sizeof(*v));
    return parse_value(data, len, v);
}

static int read_key(const char *key, struct value *v)
{
    char path[PATH_MAX];
    int rc = key_path(key, path, sizeof(path));
    if (rc != VCONF_OK)
        return rc;
    return read_value_at(path, v);
}

/* The type of the key stored at path, VCONF_TYPE_NONE when there is none
 * (or its file is not one this library understands, so a write repairs it:
 * what is not a regular file, a FIFO say, is never read, only replaced). */
static int stored_type(const char *path, int *type)
{
    *type = VCONF_TYPE_NONE;
    int fd = sso_platform_open_regular(path, NULL);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR || errno == EINVAL)
            return VCONF_OK;
        return read_error(errno);
    }
    char head[2];
    ssize_t n;
    do {
        n = read(fd, head, sizeof(head));
    } while (n < 0 && errno == EINTR);
    int saved = errno;
    close(fd);
    if (n < 0)
        return read_error(saved);
    if (n == 2 && head[1] == '\n') {
        if (head[0] == 'i')
            *type = VCONF_TYPE_INT;
        else if (head[0] == 'b')
            *type = VCONF_TYPE_BOOL;
        else if (head[0] == 's')
            *type = VCONF_TYPE_STRING;
    }
    return VCONF_OK;
}

/* Writes a value of the given type. The type check and the write are two
 * steps, so two processes racing to create one key with different types can
 * both succeed and the last write wins; every write is still whole. That is
 * acceptable for a settings store whose keys have one owner each. */
static int write_key(const char *key, int type, const char *content, size_t len)
{
    char path[PATH_MAX];
    int rc = key_path(key, path, sizeof(path));
    if (rc != VCONF_OK)
        return rc;
    int existing;
    rc = stored_type(path, &existing);
    if (rc != VCONF_OK)
        return rc;
    if (existing != VCONF_TYPE_NONE && existing != type)
        return VCONF_ERROR_WRONG_TYPE;
    const mode_t mode = key_mode(key);
    if (sso_platform_write_atomic(path, content, len, mode) == 0)
        return VCONF_OK;
    if (errno != ENOENT)
        return write_error(errno);
    /* First write into this root: create the store and try again. */
    char dir[PATH_MAX];
    if (sso_platform_path(dir, sizeof(dir), VCONF_DIR) != 0)
        return VCONF_ERROR;
    if (sso_platform_mkdirs(dir, DIR_MODE) != 0)
        return write_error(errno);
    if (sso_platform_write_atomic(path, content, len, mode) != 0)
        return write_error(errno);
    return VCONF_OK;
}

/* ---- reads and writes ---- */

/* Reads a setting held as a number (an int or a bool) of the given type. */
static int get_number(const char *key, int type, int *val)
{
    if (!val)
        return VCONF_ERROR;
    struct value v;
    int rc = read_key(key, &v);
    if (rc != VCONF_OK)
        return rc;
    if (v.type != type) {
        free(v.sval);
        return VCONF_ERROR_WRONG_TYPE;
    }
    *val = v.ival;
    return VCONF_OK;
}

SSO_PLATFORM_EXPORT int vconf_get_int(const char *key, int *val)
{
    return get_number(key, VCONF_TYPE_INT, val);
}

SSO_PLATFORM_EXPORT int vconf_get_bool(const char *key, int *val)
{
    return get_number(key, VCONF_TYPE_BOOL, val);
}

SSO_PLATFORM_EXPORT char *vconf_get_str(const char *key)
{
    struct value v;
    int rc = read_key(key, &v);
    if (rc != VCONF_OK)
        return NULL;
    if (v.type != VCONF_TYPE_STRING) {
        errno = EINVAL;
        return NULL;
    }
    return v.sval;
}

SSO_PLATFORM_EXPORT int vconf_set_int(const char *key, int val)
{
    char content[24];
    int n = snprintf(content, sizeof(content), "i\n%d", val);
    return write_key(key, VCONF_TYPE_INT, content, (size_t)n);
}

SSO_PLATFORM_EXPORT int vconf_set_bool(const char *key, int val)
{
    return write_key(key, VCONF_TYPE_BOOL, val ? "b\n1" : "b\n0", 3);
}

SSO_PLATFORM_EXPORT int vconf_set_str(const char *key, const char *str)
{
    if (!str)
        return VCONF_ERROR;
    size_t len = strlen(str);
    if (len > MAX_STRING_LEN)
        return VCONF_ERROR_WRONG_VALUE;
    char *content = malloc(len + 2);
    if (!content)
        return VCONF_ERROR_NO_MEM;
    content[0] = 's';
    content[1] = '\n';
    memcpy(content + 2, str, len);
    int rc = write_key(key, VCONF_TYPE_STRING, content, len + 2);
    free(content);
    return rc;
}

SSO_PLATFORM_EXPORT int vconf_unset(const char *key)
{
    char path[PATH_MAX];
    int rc = key_path(key, path, sizeof(path));
    if (rc != VCONF_OK)
        return rc;
    if (unlink(path) == 0)
        return VCONF_OK;
    switch (errno) {
    case ENOENT:
    case ENOTDIR:
        return VCONF_ERROR_FILE_NO_ENT;
    case EACCES:
    case EPERM:
    case EROFS:
        return VCONF_ERROR_FILE_PERM;
    default:
        return VCONF_ERROR_FILE_REMOVE;
    }
}

/* ---- change notification ----
 *
 * Every main context with subscribers has one watcher: an inotify instance on
 * the store directory, attached to the context as a GSource, so events are
 * read and callbacks run on the thread that runs the context. The registry of
 * subscriptions and watchers is process-wide and guarded by g_lock (a pthread
 * mutex, which the thread sanitizer understands, unlike GLib's futex locks).
 * Callbacks never run with g_lock held: a delivery snapshots the ids of the
 * matching subscriptions and re-checks each id under the lock just before its
 * call, so a callback may subscribe or unsubscribe anything. Unsubscribing
 * from another thread waits for a call of that subscription in progress, so
 * its user_data may be freed right after.
 *
 * A removed watcher's source may still be dispatching on its thread; GLib
 * holds a reference for that, and the finalizer closes the fd only after the
 * last one goes. No GLib call that can drop a source's last reference is made
 * with g_lock held, so the finalizer may take it. */

typedef struct {
    GSource base;
    int fd;            /* fixed after creation */
    char *dir;         /* fixed after creation: the store of the root then */
    int wd;            /* g_lock; -1 once the directory is gone */
    GMainContext *ctx; /* g_lock; referenced while registered */
    unsigned nsubs;    /* g_lock */
} Watcher;

struct subscription {
    guint64 id;
    char *key;
    vconf_callback_fn cb;
    void *user_data;
    Watcher *watcher;
    /* Calls in progress, all on the thread of the watcher's context. Once
     * removed while calls run, the last call out frees the entry, unless a
     * remover on another thread waits for it. */
    unsigned running;
    pthread_t runner;
    int removed;
    int remover_waits;
};

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_call_done = PTHREAD_COND_INITIALIZER;
static GPtrArray *g_subs;     /* struct subscription * */
static GPtrArray *g_watchers; /* Watcher *, one reference each */
static guint64 g_next_id = 1;

static gboolean watcher_dispatch(GSource *source, GSourceFunc callback, gpointer user_data);
static void watcher_finalize(GSource *source);

static GSourceFuncs watcher_funcs = {
    .prepare = NULL,
    .check = NULL,
    .dispatch = watcher_dispatch,
    .finalize = watcher_finalize,
};

static void watcher_finalize(GSource *source)
{
    Watcher *w = (Watcher *)source;
    /* The lock orders this after every access made under it elsewhere;
     * GLib's own reference counting is invisible to the thread sanitizer. */
    pthread_mutex_lock(&g_lock);
    int fd = w->fd;
    char *dir = w->dir;
    w->fd = -1;
    w->dir = NULL;
    pthread_mutex_unlock(&g_lock);
    if (fd >= 0)
        close(fd);
    g_free(dir);
}

static int watch_error(int err)
{
    return err == ENOMEM || err == ENOSPC || err == EMFILE ? VCONF_ERROR_NO_MEM
                                                           : VCONF_ERROR_FILE_ACCESS;
}

/* Creates the store directory if needed and watches it. */
static int watch_dir(int fd, const char *dir, int *wd)
{
    if (sso_platform_mkdirs(dir, DIR_MODE) != 0)
        return write_error(errno);
    *wd = inotify_add_watch(fd, dir, WATCH_MASK);
    if (*wd < 0)
        return watch_error(errno);
    return VCONF_OK;
}

/* Creates and attaches a watcher for ctx. Called with g_lock. */
static int watcher_new_locked(GMainContext *ctx, Watcher **out)
{
    char dir[PATH_MAX];
    if (sso_platform_path(dir, sizeof(dir), VCONF_DIR) != 0)
        return VCONF_ERROR;
    int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd < 0)
        return watch_error(errno);
    int wd;
    int rc = watch_dir(fd, dir, &wd);
    if (rc != VCONF_OK) {
        close(fd);
        return rc;
    }
    Watcher *w = (Watcher *)g_source_new(&watcher_funcs, sizeof(Watcher));
    w->fd = fd;
    w->dir = g_strdup(dir);
    w->wd = wd;
    w->ctx = g_main_context_ref(ctx);
    w->nsubs = 0;
    g_source_set_name(&w->base, "vconf key watch");
    g_source_add_unix_fd(&w->base, fd, G_IO_IN);
    g_source_attach(&w->base, ctx);
    g_ptr_array_add(g_watchers, w);
    *out = w;
    return VCONF_OK;
}

static struct subscription *find_sub_locked(guint64 id)
{
    for (guint i = 0; g_subs && i < g_subs->len; ++i) {
        struct subscription *s = g_ptr_array_index(g_subs, i);
        if (s->id == id)
            return s;
    }
    return NULL;
}

/* A node with the key's value as it is now; VCONF_TYPE_NONE when unset. */
static keynode_t *node_new(const char *dir, const char *key)
{
    char name[MAX_FILE_NAME + 1];
    if (encode_key(key, name, sizeof(name)) != 0)
        return NULL;
    keynode_t *node = calloc(1, sizeof(*node));
    if (!node)
        return NULL;
    node->keyname = strdup(key);
    if (!node->keyname) {
        free(node);
        return NULL;
    }
    node->type = VCONF_TYPE_NONE;
    char path[PATH_MAX];
    int n = snprintf(path, sizeof(path), "%s/%s", dir, name);
    struct value v;
    if (n > 0 && (size_t)n < sizeof(path) && read_value_at(path, &v) == VCONF_OK) {
        node->type = v.type;
        node->ival = v.ival;
        node->sval = v.sval;
    }
    return node;
}

static void sub_free(struct subscription *s)
{
    g_free(s->key);
    g_free(s);
}

static void node_free(keynode_t *node)
{
    free(node->keyname);
    free(node->sval);
    free(node);
}

/* Calls every subscriber of key on this watcher, in subscription order. */
static void deliver(Watcher *w, const char *key)
{
    pthread_mutex_lock(&g_lock);
    guint n = 0;
    guint64 *ids = g_new(guint64, g_subs->len + 1);
    for (guint i = 0; i < g_subs->len; ++i) {
        struct subscription *s = g_ptr_array_index(g_subs, i);
        if (s->watcher == w && strcmp(s->key, key) == 0)
            ids[n++] = s->id;
    }
    const char *dir = w->dir;
    pthread_mutex_unlock(&g_lock);

    /* The node carries the value read now, once for all subscribers: after a
     * burst of writes each event reports the latest value. */
    keynode_t *node = n > 0 ? node_new(dir, key) : NULL;
    for (guint i = 0; node && i < n; ++i) {
        if (g_source_is_destroyed(&w->base))
            break;
        pthread_mutex_lock(&g_lock);
        struct subscription *s = find_sub_locked(ids[i]);
        if (!s || s->watcher != w) {
            pthread_mutex_unlock(&g_lock);
            continue;
        }
        s->running++;
        s->runner = pthread_self();
        vconf_callback_fn cb = s->cb;
        void *user_data = s->user_data;
        pthread_mutex_unlock(&g_lock);

        cb(node, user_data);

        pthread_mutex_lock(&g_lock);
        struct subscription *done = NULL;
        if (--s->running == 0 && s->removed) {
            if (s->remover_waits)
                pthread_cond_broadcast(&g_call_done);
            else
                done = s;
        }
        pthread_mutex_unlock(&g_lock);
        if (done)
            sub_free(done);
    }
    if (node)
        node_free(node);
    g_free(ids);
}

/* Events were lost: report every key subscribed on this watcher. */
static void deliver_all(Watcher *w)
{
    pthread_mutex_lock(&g_lock);
    GPtrArray *keys = g_ptr_array_new_with_free_func(g_free);
    for (guint i = 0; i < g_subs->len; ++i) {
        struct subscription *s = g_ptr_array_index(g_subs, i);
        if (s->watcher != w)
            continue;
        gboolean seen = FALSE;
        for (guint j = 0; j < keys->len && !seen; ++j)
            seen = strcmp(g_ptr_array_index(keys, j), s->key) == 0;
        if (!seen)
            g_ptr_array_add(keys, g_strdup(s->key));
    }
    pthread_mutex_unlock(&g_lock);
    for (guint i = 0; i < keys->len; ++i)
        deliver(w, g_ptr_array_index(keys, i));
    g_ptr_array_unref(keys);
}

static gboolean watcher_dispatch(GSource *source, GSourceFunc callback, gpointer user_data)
{
    (void)callback;
    (void)user_data;
    Watcher *w = (Watcher *)source;
    pthread_mutex_lock(&g_lock);
    int fd = w->fd;
    pthread_mutex_unlock(&g_lock);

    /* One read per dispatch: a callback that writes the key it watches must
     * not keep this loop busy forever; more events just dispatch again. */
    char buf[8192] __attribute__((aligned(__alignof__(struct inotify_event))));
    ssize_t len;
    do {
        len = read(fd, buf, sizeof(buf));
    } while (len < 0 && errno == EINTR);
    if (len <= 0)
        return G_SOURCE_CONTINUE;

    for (char *p = buf; p < buf + len;) {
        const struct inotify_event *ev = (const struct inotify_event *)p;
        p += sizeof(struct inotify_event) + ev->len;
        if (g_source_is_destroyed(source))
            break;
        if (ev->mask & IN_Q_OVERFLOW) {
            deliver_all(w);
            continue;
        }
        if (ev->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
            /* The store directory went away (or moved): its watch ends and
             * nothing more arrives until a later subscription on this context
             * watches the directory there now. */
            pthread_mutex_lock(&g_lock);
            if (!(ev->mask & IN_IGNORED))
                inotify_rm_watch(fd, ev->wd);
            if (ev->wd == w->wd)
                w->wd = -1;
            pthread_mutex_unlock(&g_lock);
            continue;
        }
        /* Name events of an older watch still count: the value is read from
         * the store as it is now anyway. */
        if (ev->len == 0 || ev->name[0] == '.' || ev->name[0] == '\0')
            continue;
        char *key = decode_name(ev->name);
        if (key)
            deliver(w, key);
        free(key);
    }
    return G_SOURCE_CONTINUE;
}

SSO_PLATFORM_EXPORT int vconf_notify_key_changed(const char *key, vconf_callback_fn cb,
                                                 void *user_data)
{
    if (!cb)
        return VCONF_ERROR;
    char name[MAX_FILE_NAME + 1];
    int rc = key_file_name(key, name, sizeof(name));
    if (rc != VCONF_OK)
        return rc;

    GMainContext *ctx = g_main_context_ref_thread_default();
    pthread_mutex_lock(&g_lock);
    if (!g_subs) {
        g_subs = g_ptr_array_new();
        g_watchers = g_ptr_array_new();
    }
    for (guint i = 0; i < g_subs->len; ++i) {
        struct subscription *s = g_ptr_array_index(g_subs, i);
        if (s->cb == cb && strcmp(s->key, key) == 0) {
            pthread_mutex_unlock(&g_lock);
            g_main_context_unref(ctx);
            return VCONF_ERROR;
        }
    }
    Watcher *w = NULL;
    for (guint i = 0; i < g_watchers->len && !w; ++i) {
        Watcher *c = g_ptr_array_index(g_watchers, i);
        if (c->ctx == ctx)
            w = c;
    }
    if (!w) {
        rc = watcher_new_locked(ctx, &w);
    } else {
        /* Watch the directory there now: the same one gives back the same
         * watch; a replacement (its predecessor removed, maybe with the news
         * not yet read) gets a new one. */
        int wd;
        rc = watch_dir(w->fd, w->dir, &wd);
        if (rc == VCONF_OK)
            w->wd = wd;
    }
    if (rc != VCONF_OK) {
        pthread_mutex_unlock(&g_lock);
        g_main_context_unref(ctx);
        return rc;
    }
    struct subscription *s = g_new0(struct subscription, 1);
    s->id = g_next_id++;
    s->key = g_strdup(key);
    s->cb = cb;
    s->user_data = user_data;
    s->watcher = w;
    w->nsubs++;
    g_ptr_array_add(g_subs, s);
    pthread_mutex_unlock(&g_lock);
    g_main_context_unref(ctx);
    return VCONF_OK;
}

SSO_PLATFORM_EXPORT int vconf_ignore_key_changed(const char *key, vconf_callback_fn cb)
{
    if (!cb)
        return VCONF_ERROR;
    int rc = check_key(key);
    if (rc != VCONF_OK)
        return rc;
    pthread_mutex_lock(&g_lock);
    struct subscription *found = NULL;
    for (guint i = 0; g_subs && i < g_subs->len && !found; ++i) {
        struct subscription *s = g_ptr_array_index(g_subs, i);
        if (s->cb == cb && strcmp(s->key, key) == 0) {
            found = s;
            g_ptr_array_remove_index(g_subs, i);
        }
    }
    if (!found) {
        pthread_mutex_unlock(&g_lock);
        return VCONF_ERROR;
    }
    Watcher *w = found->watcher;
    GMainContext *ctx = NULL;
    if (--w->nsubs == 0) {
        g_ptr_array_remove_fast(g_watchers, w);
        ctx = w->ctx;
        w->ctx = NULL;
    }
    int free_now = 1;
    if (found->running > 0) {
        found->removed = 1;
        if (pthread_equal(found->runner, pthread_self())) {
            /* Called from the callback (or its thread): the call in progress
             * frees the entry on its way out. */
            free_now = 0;
        } else {
            /* Once this returns the callback is not running, so the caller may
             * free user_data. */
            found->remover_waits = 1;
            while (found->running > 0)
                pthread_cond_wait(&g_call_done, &g_lock);
        }
    }
    pthread_mutex_unlock(&g_lock);
    if (ctx) {
        /* Last subscriber on this context: detach. A dispatch running right
         * now keeps the source alive until it returns. */
        g_source_destroy(&w->base);
        g_source_unref(&w->base);
        g_main_context_unref(ctx);
    }
    if (free_now)
        sub_free(found);
    return VCONF_OK;
}

/* ---- key nodes ---- */

SSO_PLATFORM_EXPORT const char *vconf_keynode_get_name(keynode_t *keynode)
{
    return keynode ? keynode->keyname : NULL;
}

SSO_PLATFORM_EXPORT int vconf_keynode_get_type(keynode_t *keynode)
{
    return keynode ? keynode->type : -1;
}

SSO_PLATFORM_EXPORT int vconf_keynode_get_int(keynode_t *keynode)
{
    return keynode && keynode->type == VCONF_TYPE_INT ? keynode->ival : -1;
}

SSO_PLATFORM_EXPORT int vconf_keynode_get_bool(keynode_t *keynode)
{
    return keynode && keynode->type == VCONF_TYPE_BOOL ? keynode->ival : -1;
}

SSO_PLATFORM_EXPORT char *vconf_keynode_get_str(keynode_t *keynode)
{
    return keynode && keynode->type == VCONF_TYPE_STRING ? keynode->sval : NULL;
}
