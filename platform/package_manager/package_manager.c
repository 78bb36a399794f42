#define _GNU_SOURCE
#include "package_manager.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "package_manager_admin.h"
#include "sso_platform_common.h"

/*
 * Registry layout: <root>/packages/<package id>, a text file of "app ID",
 * "cert TYPE BASE64" and "uid N" lines (see package_manager_admin.h). Package
 * ids are restricted to file-name-safe bytes, so the id is the file name as
 * is and never starts with the '.' of the atomic writer's temporary files
 * or of the lock that registrations take to hand out user ids one at a time
 * (<root>/packages/.lock).
 */

#define PACKAGES_DIR "packages"
#define LOCK_FILE PACKAGES_DIR "/.lock"
#define MAX_PACKAGE_ID_LEN 200
#define MAX_APP_ID_LEN 255
/* Room for a few certificate chains; anything larger is not ours. */
#define MAX_FILE_LEN (1024 * 1024)
#define FILE_MODE 0644
#define DIR_MODE 0755
#define CERT_TYPE_MAX PACKAGE_INFO_DISTRIBUTOR2_SIGNER_CERT

struct cert_entry {
    package_cert_type_e type;
    char *value;
};

struct package_info_s {
    char *package_id;
    char **apps;
    size_t app_count;
    struct cert_entry *certs;
    size_t cert_count;
    int has_uid;
    uid_t uid;
};

static int valid_package_id(const char *id)
{
    if (!id)
        return 0;
    size_t len = strlen(id);
    if (len == 0 || len > MAX_PACKAGE_ID_LEN || id[0] == '.')
        return 0;
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = (unsigned char)id[i];
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
              c == '_' || c == '.' || c == '-'))
            return 0;
    }
    return 1;
}

static int valid_app_id(const char *id)
{
    if (!id)
        return 0;
    size_t len = strlen(id);
    if (len == 0 || len > MAX_APP_ID_LEN)
        return 0;
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = (unsigned char)id[i];
        if (c <= 0x20 || c == 0x7f)
            return 0;
    }
    return 1;
}

static int package_path(const char *package_id, char *buf, size_t size)
{
    char rel[sizeof(PACKAGES_DIR) + 1 + MAX_PACKAGE_ID_LEN + 1];
    snprintf(rel, sizeof(rel), "%s/%s", PACKAGES_DIR, package_id);
    return sso_platform_path(buf, size, rel);
}

static void free_info(struct package_info_s *info)
{
    if (!info)
        return;
    free(info->package_id);
    for (size_t i = 0; i < info->app_count; ++i)
        free(info->apps[i]);
    free(info->apps);
    for (size_t i = 0; i < info->cert_count; ++i)
        free(info->certs[i].value);
    free(info->certs);
    free(info);
}

static int is_base64_text(const char *text)
{
    if (*text == '\0')
        return 0;
    for (const char *p = text; *p; ++p) {
        char c = *p;
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
              c == '+' || c == '/' || c == '='))
            return 0;
    }
    return 1;
}

static int append_app(struct package_info_s *info, const char *app_id)
{
    char **apps = realloc(info->apps, (info->app_count + 1) * sizeof(*apps));
    if (!apps)
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    info->apps = apps;
    apps[info->app_count] = strdup(app_id);
    if (!apps[info->app_count])
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    info->app_count++;
    return PACKAGE_MANAGER_ERROR_NONE;
}

static int append_cert(struct package_info_s *info, int type, const char *value)
{
    struct cert_entry *certs = realloc(info->certs, (info->cert_count + 1) * sizeof(*certs));
    if (!certs)
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    info->certs = certs;
    certs[info->cert_count].type = (package_cert_type_e)type;
    certs[info->cert_count].value = strdup(value);
    if (!certs[info->cert_count].value)
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    info->cert_count++;
    return PACKAGE_MANAGER_ERROR_NONE;
}

/* Parses one registry entry; the text is modified. A line that is not a
 * well-formed record makes the whole entry malformed. */
static int parse_entry(char *text, struct package_info_s *info)
{
    char *save = NULL;
    for (char *line = strtok_r(text, "\n", &save); line; line = strtok_r(NULL, "\n", &save)) {
        int rc;
        if (strncmp(line, "app ", 4) == 0) {
            if (!valid_app_id(line + 4))
                return PACKAGE_MANAGER_ERROR_IO_ERROR;
            rc = append_app(info, line + 4);
        } else if (strncmp(line, "cert ", 5) == 0) {
            char *end = NULL;
            errno = 0;
            long type = strtol(line + 5, &end, 10);
            if (errno != 0 || end == line + 5 || *end != ' ' || type < 0 || type > CERT_TYPE_MAX ||
                !is_base64_text(end + 1))
                return PACKAGE_MANAGER_ERROR_IO_ERROR;
            rc = append_cert(info, (int)type, end + 1);
        } else if (strncmp(line, "uid ", 4) == 0) {
            char *end = NULL;
            errno = 0;
            unsigned long long uid = strtoull(line + 4, &end, 10);
            /* One user id, never root's nor (uid_t)-1. */
            if (info->has_uid || errno != 0 || line[4] < '0' || line[4] > '9' || *end != '\0' ||
                uid == 0 || uid >= (uid_t)-1)
                return PACKAGE_MANAGER_ERROR_IO_ERROR;
            info->has_uid = 1;
            info->uid = (uid_t)uid;
            rc = PACKAGE_MANAGER_ERROR_NONE;
        } else {
            return PACKAGE_MANAGER_ERROR_IO_ERROR;
        }
        if (rc != PACKAGE_MANAGER_ERROR_NONE)
            return rc;
    }
    return PACKAGE_MANAGER_ERROR_NONE;
}

static int load_package(const char *package_id, struct package_info_s **out)
{
    char path[PATH_MAX];
    if (!valid_package_id(package_id) || package_path(package_id, path, sizeof(path)) != 0)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    char *data = NULL;
    size_t len = 0;
    if (sso_platform_read_file(path, MAX_FILE_LEN, &data, &len) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE;
        return errno == ENOMEM ? PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY
                               : PACKAGE_MANAGER_ERROR_IO_ERROR;
    }
    /* A NUL byte inside would hide the rest of the entry from the parser. */
    if (strlen(data) != len) {
        free(data);
        return PACKAGE_MANAGER_ERROR_IO_ERROR;
    }
    struct package_info_s *info = calloc(1, sizeof(*info));
    if (!info || !(info->package_id = strdup(package_id))) {
        free(info);
        free(data);
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    }
    int rc = parse_entry(data, info);
    free(data);
    if (rc != PACKAGE_MANAGER_ERROR_NONE) {
        free_info(info);
        return rc;
    }
    *out = info;
    return PACKAGE_MANAGER_ERROR_NONE;
}

/* Calls visit for every well-formed entry, in package id order, until it
 * returns something else than PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, which is
 * then the result. A malformed entry is skipped: it cannot vouch for
 * anything. no_registry is the result when the registry does not exist. */
static int for_each_package(int (*visit)(const char *package_id, const struct package_info_s *info,
                                         void *user_data),
                            void *user_data, int no_registry)
{
    char dir_path[PATH_MAX];
    if (sso_platform_path(dir_path, sizeof(dir_path), PACKAGES_DIR) != 0)
        return PACKAGE_MANAGER_ERROR_IO_ERROR;
    struct dirent **names = NULL;
    int n = scandir(dir_path, &names, NULL, alphasort);
    if (n < 0)
        return (errno == ENOENT || errno == ENOTDIR) ? no_registry : PACKAGE_MANAGER_ERROR_IO_ERROR;
    int rc = PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE;
    for (int i = 0; i < n; ++i) {
        const char *name = names[i]->d_name;
        struct package_info_s *info = NULL;
        if (rc == PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE && valid_package_id(name) &&
            load_package(name, &info) == PACKAGE_MANAGER_ERROR_NONE)
            rc = visit(name, info, user_data);
        free_info(info);
        free(names[i]);
    }
    free(names);
    return rc;
}

struct app_search {
    const char *app_id;
    char *package_id;
};

static int holds_app(const char *package_id, const struct package_info_s *info, void *user_data)
{
    struct app_search *search = user_data;
    for (size_t a = 0; a < info->app_count; ++a) {
        if (strcmp(info->apps[a], search->app_id) == 0) {
            search->package_id = strdup(package_id);
            return search->package_id ? PACKAGE_MANAGER_ERROR_NONE
                                      : PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
        }
    }
    return PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE;
}

SSO_PLATFORM_EXPORT int package_manager_get_package_id_by_app_id(const char *app_id,
                                                                 char **package_id)
{
    if (!valid_app_id(app_id) || !package_id)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    struct app_search search = {app_id, NULL};
    int rc = for_each_package(holds_app, &search, PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE);
    if (rc == PACKAGE_MANAGER_ERROR_NONE)
        *package_id = search.package_id;
    return rc;
}

SSO_PLATFORM_EXPORT int package_info_create(const char *package_id, package_info_h *handle)
{
    if (!package_id || !handle)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    return load_package(package_id, handle);
}

SSO_PLATFORM_EXPORT int package_info_foreach_cert_info(package_info_h handle,
                                                       package_info_cert_info_cb callback,
                                                       void *user_data)
{
    if (!handle || !callback)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    for (size_t i = 0; i < handle->cert_count; ++i)
        if (!callback(handle, handle->certs[i].type, handle->certs[i].value, user_data))
            break;
    return PACKAGE_MANAGER_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int package_info_destroy(package_info_h handle)
{
    if (!handle)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    free_info(handle);
    return PACKAGE_MANAGER_ERROR_NONE;
}

/* ------------------------------------------------------------ registering */

static char *base64_encode(const unsigned char *data, size_t len)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    char *out = malloc((len + 2) / 3 * 4 + 1);
    if (!out)
        return NULL;
    size_t o = 0;
    for (size_t i = 0; i < len; i += 3) {
        unsigned v = (unsigned)data[i] << 16;
        if (i + 1 < len)
            v |= (unsigned)data[i + 1] << 8;
        if (i + 2 < len)
            v |= data[i + 2];
        out[o++] = alphabet[(v >> 18) & 63];
        out[o++] = alphabet[(v >> 12) & 63];
        out[o++] = i + 1 < len ? alphabet[(v >> 6) & 63] : '=';
        out[o++] = i + 2 < len ? alphabet[v & 63] : '=';
    }
    out[o] = '\0';
    return out;
}

/* Appends text to a growing buffer. */
static int append_text(char **buf, size_t *len, size_t *cap, const char *text)
{
    size_t n = strlen(text);
    if (*len + n + 1 > *cap) {
        size_t cap2 = (*len + n + 1) * 2;
        char *b = realloc(*buf, cap2);
        if (!b)
            return -1;
        *buf = b;
        *cap = cap2;
    }
    memcpy(*buf + *len, text, n + 1);
    *len += n;
    return 0;
}

/* Takes the registry's lock (made with the packages directory when missing);
 * returns its descriptor, or -1 with errno set. Closing it lets go. */
static int lock_registry(void)
{
    char dir_path[PATH_MAX], lock_path[PATH_MAX];
    if (sso_platform_path(dir_path, sizeof(dir_path), PACKAGES_DIR) != 0 ||
        sso_platform_path(lock_path, sizeof(lock_path), LOCK_FILE) != 0)
        return -1;
    if (sso_platform_mkdirs(dir_path, DIR_MODE) != 0)
        return -1;
    int fd = open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC, FILE_MODE);
    if (fd < 0)
        return -1;
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            int saved = errno;
            close(fd);
            errno = saved;
            return -1;
        }
    }
    return fd;
}

struct uid_list {
    uid_t *uids;
    size_t count;
};

static int uid_listed(const struct uid_list *list, uid_t uid)
{
    for (size_t i = 0; i < list->count; ++i)
        if (list->uids[i] == uid)
            return 1;
    return 0;
}

struct uid_collection {
    const char *except;
    struct uid_list *list;
};

static int collect_uid(const char *package_id, const struct package_info_s *info, void *user_data)
{
    struct uid_collection *c = user_data;
    if (!info->has_uid || strcmp(package_id, c->except) == 0)
        return PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE; /* the next one */
    uid_t *grown = realloc(c->list->uids, (c->list->count + 1) * sizeof(*grown));
    if (!grown)
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    c->list->uids = grown;
    c->list->uids[c->list->count++] = info->uid;
    return PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE;
}

/* The user ids of every package but package_id. */
static int other_uids(const char *package_id, struct uid_list *out)
{
    out->uids = NULL;
    out->count = 0;
    struct uid_collection c = {package_id, out};
    int rc = for_each_package(collect_uid, &c, PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE);
    if (rc == PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE)
        return PACKAGE_MANAGER_ERROR_NONE; /* every entry visited */
    free(out->uids);
    out->uids = NULL;
    out->count = 0;
    return rc;
}

/* The user id a registration gets. Called with the registry locked. */
static int choose_uid(const char *package_id, uid_t wanted, uid_t *out)
{
    struct uid_list taken;
    int rc = other_uids(package_id, &taken);
    if (rc != PACKAGE_MANAGER_ERROR_NONE)
        return rc;
    if (wanted != PACKAGE_MANAGER_UID_AUTO) {
        if (uid_listed(&taken, wanted))
            rc = PACKAGE_MANAGER_ERROR_UID_IN_USE;
        else
            *out = wanted;
    } else {
        struct package_info_s *own = NULL;
        if (load_package(package_id, &own) == PACKAGE_MANAGER_ERROR_NONE && own->has_uid &&
            !uid_listed(&taken, own->uid)) {
            *out = own->uid;
        } else {
            rc = PACKAGE_MANAGER_ERROR_NO_UID;
            for (uid_t uid = PACKAGE_MANAGER_UID_MIN; uid <= PACKAGE_MANAGER_UID_MAX; ++uid) {
                if (!uid_listed(&taken, uid)) {
                    *out = uid;
                    rc = PACKAGE_MANAGER_ERROR_NONE;
                    break;
                }
            }
        }
        free_info(own);
    }
    free(taken.uids);
    return rc;
}

SSO_PLATFORM_EXPORT int package_manager_add_package_as(const char *package_id,
                                                       const char *const *app_ids, size_t app_count,
                                                       const package_manager_cert_s *certs,
                                                       size_t cert_count, uid_t uid,
                                                       uid_t *assigned)
{
    if (!valid_package_id(package_id) || !app_ids || app_count == 0 || (cert_count > 0 && !certs) ||
        uid == 0)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    for (size_t i = 0; i < app_count; ++i)
        if (!valid_app_id(app_ids[i]))
            return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    for (size_t i = 0; i < cert_count; ++i)
        if ((int)certs[i].type < 0 || certs[i].type > CERT_TYPE_MAX || !certs[i].der ||
            certs[i].der_len == 0)
            return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;

    char *text = NULL;
    size_t len = 0, cap = 0;
    int failed = append_text(&text, &len, &cap, "");
    for (size_t i = 0; i < app_count && !failed; ++i)
        failed = append_text(&text, &len, &cap, "app ") ||
                 append_text(&text, &len, &cap, app_ids[i]) || append_text(&text, &len, &cap, "\n");
    for (size_t i = 0; i < cert_count && !failed; ++i) {
        char head[32];
        snprintf(head, sizeof(head), "cert %d ", (int)certs[i].type);
        char *b64 = base64_encode(certs[i].der, certs[i].der_len);
        failed = !b64 || append_text(&text, &len, &cap, head) ||
                 append_text(&text, &len, &cap, b64) || append_text(&text, &len, &cap, "\n");
        free(b64);
    }
    if (failed) {
        free(text);
        return PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
    }

    char path[PATH_MAX];
    if (package_path(package_id, path, sizeof(path)) != 0) {
        free(text);
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    }
    /* Choosing a user id and writing the entry is one step: two registrations
     * at once must not both take the same free id. */
    int lock = lock_registry();
    if (lock < 0) {
        free(text);
        return PACKAGE_MANAGER_ERROR_IO_ERROR;
    }
    uid_t chosen = 0;
    int rc = choose_uid(package_id, uid, &chosen);
    if (rc == PACKAGE_MANAGER_ERROR_NONE) {
        char line[32];
        snprintf(line, sizeof(line), "uid %llu\n", (unsigned long long)chosen);
        if (append_text(&text, &len, &cap, line) != 0)
            rc = PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY;
        else if (sso_platform_write_atomic(path, text, len, FILE_MODE) != 0)
            rc = PACKAGE_MANAGER_ERROR_IO_ERROR;
    }
    close(lock);
    free(text);
    if (rc == PACKAGE_MANAGER_ERROR_NONE && assigned)
        *assigned = chosen;
    return rc;
}

SSO_PLATFORM_EXPORT int package_manager_add_package(const char *package_id,
                                                    const char *const *app_ids, size_t app_count,
                                                    const package_manager_cert_s *certs,
                                                    size_t cert_count)
{
    return package_manager_add_package_as(package_id, app_ids, app_count, certs, cert_count,
                                          PACKAGE_MANAGER_UID_AUTO, NULL);
}

SSO_PLATFORM_EXPORT int package_manager_get_package_uid(const char *package_id, uid_t *uid)
{
    if (!uid)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    struct package_info_s *info = NULL;
    int rc = load_package(package_id, &info);
    if (rc != PACKAGE_MANAGER_ERROR_NONE)
        return rc;
    rc = info->has_uid ? PACKAGE_MANAGER_ERROR_NONE : PACKAGE_MANAGER_ERROR_NO_UID;
    if (info->has_uid)
        *uid = info->uid;
    free_info(info);
    return rc;
}

SSO_PLATFORM_EXPORT int package_manager_remove_package(const char *package_id)
{
    char path[PATH_MAX];
    if (!valid_package_id(package_id) || package_path(package_id, path, sizeof(path)) != 0)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    if (unlink(path) != 0)
        return (errno == ENOENT || errno == ENOTDIR) ? PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE
                                                     : PACKAGE_MANAGER_ERROR_IO_ERROR;
    return PACKAGE_MANAGER_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int package_manager_foreach_app(const char *package_id,
                                                    package_manager_app_cb callback,
                                                    void *user_data)
{
    if (!callback)
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    struct package_info_s *info = NULL;
    int rc = load_package(package_id, &info);
    if (rc != PACKAGE_MANAGER_ERROR_NONE)
        return rc;
    for (size_t i = 0; i < info->app_count; ++i)
        if (!callback(info->apps[i], user_data))
            break;
    free_info(info);
    return PACKAGE_MANAGER_ERROR_NONE;
}
