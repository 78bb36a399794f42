#define _GNU_SOURCE
#include "system_info.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "sso_platform_common.h"

/*
 * Store layout: <root>/features is one flat directory with a file per flag.
 * The file name is the key with every byte outside [A-Za-z0-9_.-] (and a
 * leading '.') written as %XX, so "com.veltra/featureconf/x" becomes
 * "com.veltra%2Ffeatureconf%2Fx": names never contain '/' and never start
 * with the '.' of the atomic writer's temporary files. A boolean flag's file
 * holds "true" or "false", optionally followed by one newline.
 *
 * Nothing is cached: every call reads the file.
 */

#define FEATURES_DIR "features"
#define MAX_KEY_LEN 255
/* The atomic writer's temporary ".<name>.XXXXXX" must still fit NAME_MAX. */
#define MAX_FILE_NAME SSO_PLATFORM_MAX_FILE_NAME
/* Anything larger is not a flag this library wrote. */
#define MAX_FILE_LEN 64
#define FILE_MODE 0644
#define DIR_MODE 0755

/* "<root>/features/<encoded key>" into buf, or -1 for an unusable key. */
static int flag_path(const char *key, char *buf, size_t size)
{
    if (!sso_platform_valid_name(key, MAX_KEY_LEN))
        return -1;
    char name[MAX_FILE_NAME + 1];
    if (sso_platform_encode_name(key, name) != 0)
        return -1;
    char rel[sizeof(FEATURES_DIR) + 1 + sizeof(name)];
    snprintf(rel, sizeof(rel), "%s/%s", FEATURES_DIR, name);
    return sso_platform_path(buf, size, rel);
}

SSO_PLATFORM_EXPORT int system_info_get_custom_bool(const char *key, bool *value)
{
    char path[PATH_MAX];
    if (!value || flag_path(key, path, sizeof(path)) != 0)
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    char *data = NULL;
    size_t len = 0;
    if (sso_platform_read_file(path, MAX_FILE_LEN, &data, &len) != 0) {
        if (errno == ENOENT)
            return SYSTEM_INFO_ERROR_NOT_SUPPORTED;
        if (errno == ENOMEM)
            return SYSTEM_INFO_ERROR_OUT_OF_MEMORY;
        return SYSTEM_INFO_ERROR_IO_ERROR;
    }
    if (len > 0 && data[len - 1] == '\n')
        data[--len] = '\0';
    int rc = SYSTEM_INFO_ERROR_NONE;
    if (len == 4 && memcmp(data, "true", 4) == 0)
        *value = true;
    else if (len == 5 && memcmp(data, "false", 5) == 0)
        *value = false;
    else
        rc = SYSTEM_INFO_ERROR_IO_ERROR;
    free(data);
    return rc;
}

SSO_PLATFORM_EXPORT int system_info_set_custom_bool(const char *key, bool value)
{
    char path[PATH_MAX];
    if (flag_path(key, path, sizeof(path)) != 0)
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    const char *text = value ? "true\n" : "false\n";
    if (sso_platform_write_atomic(path, text, strlen(text), FILE_MODE) == 0)
        return SYSTEM_INFO_ERROR_NONE;
    if (errno == ENOENT) {
        /* First flag on this device: make the store and retry. */
        char dir[PATH_MAX];
        if (sso_platform_path(dir, sizeof(dir), FEATURES_DIR) == 0 &&
            sso_platform_mkdirs(dir, DIR_MODE) == 0 &&
            sso_platform_write_atomic(path, text, strlen(text), FILE_MODE) == 0)
            return SYSTEM_INFO_ERROR_NONE;
    }
    return errno == ENOMEM ? SYSTEM_INFO_ERROR_OUT_OF_MEMORY : SYSTEM_INFO_ERROR_IO_ERROR;
}

SSO_PLATFORM_EXPORT int system_info_unset_custom(const char *key)
{
    char path[PATH_MAX];
    if (flag_path(key, path, sizeof(path)) != 0)
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    if (unlink(path) == 0)
        return SYSTEM_INFO_ERROR_NONE;
    if (errno == ENOENT)
        return SYSTEM_INFO_ERROR_NOT_SUPPORTED;
    return SYSTEM_INFO_ERROR_IO_ERROR;
}
