#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "app_control_private.h"
#include "app_control_registry.h"
#include "sso_platform_common.h"

/*
 * Registry layout: <root>/apps is one flat directory with a file per
 * application. The file name is the app id with every byte outside
 * [A-Za-z0-9_.-] (and a leading '.') written as %XX, so it never contains '/'
 * and never starts with the '.' of the atomic writer's temporary files. The
 * content is the program's absolute path and a newline.
 */

#define APPS_DIR "apps"
#define MAX_ID_LEN 255
/* The atomic writer's temporary ".<name>.XXXXXX" must still fit NAME_MAX. */
#define MAX_FILE_NAME SSO_PLATFORM_MAX_FILE_NAME
#define MAX_ENTRY_LEN PATH_MAX
#define FILE_MODE 0644
#define DIR_MODE 0755

/* Encodes an app id into name (MAX_FILE_NAME + 1 bytes); -1 when unusable. */
static int encode_id(const char *app_id, char *name)
{
    if (!sso_platform_valid_name(app_id, MAX_ID_LEN))
        return -1;
    return sso_platform_encode_name(app_id, name);
}

/* Decodes a file name; NULL for a stray file that names no valid app id. */
static char *decode_name(const char *name)
{
    char *id = sso_platform_decode_name(name);
    char check[MAX_FILE_NAME + 1];
    if (id && encode_id(id, check) != 0) {
        free(id);
        return NULL;
    }
    return id;
}

bool app_registry_valid_id(const char *app_id)
{
    char name[MAX_FILE_NAME + 1];
    return encode_id(app_id, name) == 0;
}

int app_registry_entry_path(const char *app_id, char *buf, size_t size)
{
    char name[MAX_FILE_NAME + 1];
    if (encode_id(app_id, name) != 0)
        return -1;
    char rel[sizeof(APPS_DIR) + 1 + sizeof(name)];
    snprintf(rel, sizeof(rel), "%s/%s", APPS_DIR, name);
    return sso_platform_path(buf, size, rel);
}

static bool valid_exec(const char *exec_path, size_t len)
{
    if (len == 0 || exec_path[0] != '/' || len >= PATH_MAX)
        return false;
    for (size_t i = 0; i < len; ++i)
        if (exec_path[i] == '\n' || exec_path[i] == '\0')
            return false;
    return true;
}

/* Reads an entry file: APP_NOT_FOUND, IO_ERROR or a malloc'ed program path. */
static int read_entry(const char *path, char **exec_path)
{
    char *data = NULL;
    size_t len = 0;
    if (sso_platform_read_file(path, MAX_ENTRY_LEN, &data, &len) != 0) {
        if (errno == ENOENT)
            return APP_CONTROL_ERROR_APP_NOT_FOUND;
        return errno == ENOMEM ? APP_CONTROL_ERROR_OUT_OF_MEMORY : APP_CONTROL_ERROR_IO_ERROR;
    }
    if (len > 0 && data[len - 1] == '\n')
        data[--len] = '\0';
    if (!valid_exec(data, len)) {
        free(data);
        return APP_CONTROL_ERROR_IO_ERROR;
    }
    *exec_path = data;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_register_app(const char *app_id, const char *exec_path)
{
    char path[PATH_MAX];
    if (!exec_path || !valid_exec(exec_path, strlen(exec_path)) ||
        app_registry_entry_path(app_id, path, sizeof(path)) != 0)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    size_t len = strlen(exec_path);
    char *content = malloc(len + 2);
    if (!content)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    memcpy(content, exec_path, len);
    content[len] = '\n';
    content[len + 1] = '\0';
    int rc = APP_CONTROL_ERROR_NONE;
    if (sso_platform_write_atomic(path, content, len + 1, FILE_MODE) != 0) {
        rc = APP_CONTROL_ERROR_IO_ERROR;
        char dir[PATH_MAX];
        /* First registration on this device: make the registry and retry. */
        if (errno == ENOENT && sso_platform_path(dir, sizeof(dir), APPS_DIR) == 0 &&
            sso_platform_mkdirs(dir, DIR_MODE) == 0 &&
            sso_platform_write_atomic(path, content, len + 1, FILE_MODE) == 0)
            rc = APP_CONTROL_ERROR_NONE;
    }
    free(content);
    return rc;
}

SSO_PLATFORM_EXPORT int app_control_unregister_app(const char *app_id)
{
    char path[PATH_MAX];
    if (app_registry_entry_path(app_id, path, sizeof(path)) != 0)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    if (unlink(path) == 0)
        return APP_CONTROL_ERROR_NONE;
    return errno == ENOENT ? APP_CONTROL_ERROR_APP_NOT_FOUND : APP_CONTROL_ERROR_IO_ERROR;
}

SSO_PLATFORM_EXPORT int app_control_get_app_exec(const char *app_id, char **exec_path)
{
    char path[PATH_MAX];
    if (!exec_path || app_registry_entry_path(app_id, path, sizeof(path)) != 0)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return read_entry(path, exec_path);
}

struct registered {
    char *id;
    char *exec;
};

static int compare_registered(const void *a, const void *b)
{
    return strcmp(((const struct registered *)a)->id, ((const struct registered *)b)->id);
}

SSO_PLATFORM_EXPORT int app_control_foreach_registered_app(app_control_registered_app_cb callback,
                                                           void *user_data)
{
    if (!callback)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    char dir_path[PATH_MAX];
    if (sso_platform_path(dir_path, sizeof(dir_path), APPS_DIR) != 0)
        return APP_CONTROL_ERROR_IO_ERROR;
    DIR *dir = opendir(dir_path);
    if (!dir)
        return errno == ENOENT ? APP_CONTROL_ERROR_NONE : APP_CONTROL_ERROR_IO_ERROR;

    /* Collect first, so the callback runs without the directory open and in
     * a stable order. */
    struct registered *apps = NULL;
    size_t n = 0, cap = 0;
    int rc = APP_CONTROL_ERROR_NONE;
    struct dirent *de;
    while (rc == APP_CONTROL_ERROR_NONE && (de = readdir(dir)) != NULL) {
        if (de->d_name[0] == '.')
            continue;
        char *id = decode_name(de->d_name);
        if (!id)
            continue;
        char path[PATH_MAX];
        char *exec = NULL;
        if (snprintf(path, sizeof(path), "%s/%s", dir_path, de->d_name) >= (int)sizeof(path) ||
            read_entry(path, &exec) != APP_CONTROL_ERROR_NONE) {
            free(id);
            continue;
        }
        if (n == cap) {
            size_t ncap = cap ? cap * 2 : 16;
            struct registered *napps = realloc(apps, ncap * sizeof(*napps));
            if (!napps) {
                free(id);
                free(exec);
                rc = APP_CONTROL_ERROR_OUT_OF_MEMORY;
                break;
            }
            apps = napps;
            cap = ncap;
        }
        apps[n].id = id;
        apps[n].exec = exec;
        ++n;
    }
    closedir(dir);
    if (rc == APP_CONTROL_ERROR_NONE && n > 1)
        qsort(apps, n, sizeof(*apps), compare_registered);
    bool go_on = rc == APP_CONTROL_ERROR_NONE;
    for (size_t i = 0; i < n; ++i) {
        if (go_on)
            go_on = callback(apps[i].id, apps[i].exec, user_data);
        free(apps[i].id);
        free(apps[i].exec);
    }
    free(apps);
    return rc;
}
