#define _GNU_SOURCE
#include <stdlib.h>
#include <string.h>

#include "app_control.h"
#include "app_control_private.h"
#include "sso_platform_common.h"

/* Handles and their extras. Extras are a small array kept in the order the
 * keys were added; requests carry a handful, so lookups are linear. */

struct app_control_s *app_control_new_handle(void)
{
    struct app_control_s *h = calloc(1, sizeof(*h));
    if (h)
        h->launch_mode = APP_CONTROL_LAUNCH_MODE_SINGLE;
    return h;
}

void app_control_free_handle(struct app_control_s *h)
{
    if (!h)
        return;
    for (size_t i = 0; i < h->n_extras; ++i) {
        free(h->extras[i].key);
        free(h->extras[i].value);
    }
    free(h->extras);
    free(h->app_id);
    free(h->operation);
    free(h->caller);
    free(h);
}

bool app_control_valid_result(int result)
{
    return result == APP_CONTROL_RESULT_SUCCEEDED || result == APP_CONTROL_RESULT_FAILED ||
           result == APP_CONTROL_RESULT_CANCELED;
}

static int reserve_extra(struct app_control_s *h)
{
    if (h->n_extras < h->cap_extras)
        return 0;
    size_t cap = h->cap_extras ? h->cap_extras * 2 : 8;
    struct app_control_extra *extras = realloc(h->extras, cap * sizeof(*extras));
    if (!extras)
        return -1;
    h->extras = extras;
    h->cap_extras = cap;
    return 0;
}

int app_control_append_extra(struct app_control_s *h, const char *key, size_t key_len,
                             const char *value, size_t value_len)
{
    if (reserve_extra(h) != 0)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    char *k = strndup(key, key_len);
    char *v = strndup(value, value_len);
    if (!k || !v) {
        free(k);
        free(v);
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    }
    h->extras[h->n_extras].key = k;
    h->extras[h->n_extras].value = v;
    h->n_extras++;
    return APP_CONTROL_ERROR_NONE;
}

static struct app_control_extra *find_extra(app_control_h h, const char *key)
{
    for (size_t i = 0; i < h->n_extras; ++i)
        if (strcmp(h->extras[i].key, key) == 0)
            return &h->extras[i];
    return NULL;
}

/* Replaces *field with a copy of value (NULL clears it). */
static int set_string(char **field, const char *value)
{
    char *copy = NULL;
    if (value) {
        copy = strdup(value);
        if (!copy)
            return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    }
    free(*field);
    *field = copy;
    return APP_CONTROL_ERROR_NONE;
}

/* *out = a copy of value, or NULL when value is NULL. */
static int get_string(const char *value, char **out)
{
    if (!value) {
        *out = NULL;
        return APP_CONTROL_ERROR_NONE;
    }
    char *copy = strdup(value);
    if (!copy)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    *out = copy;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_create(app_control_h *app_control)
{
    if (!app_control)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    struct app_control_s *h = app_control_new_handle();
    if (!h)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    *app_control = h;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_clone(app_control_h *clone, app_control_h app_control)
{
    if (!clone || !app_control)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    struct app_control_s *h = app_control_new_handle();
    if (!h)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    h->launch_mode = app_control->launch_mode;
    h->received = app_control->received;
    int rc = set_string(&h->app_id, app_control->app_id);
    if (rc == APP_CONTROL_ERROR_NONE)
        rc = set_string(&h->operation, app_control->operation);
    if (rc == APP_CONTROL_ERROR_NONE)
        rc = set_string(&h->caller, app_control->caller);
    for (size_t i = 0; rc == APP_CONTROL_ERROR_NONE && i < app_control->n_extras; ++i) {
        const struct app_control_extra *e = &app_control->extras[i];
        rc = app_control_append_extra(h, e->key, strlen(e->key), e->value, strlen(e->value));
    }
    if (rc != APP_CONTROL_ERROR_NONE) {
        app_control_free_handle(h);
        return rc;
    }
    *clone = h;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_destroy(app_control_h app_control)
{
    if (!app_control)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    app_control_free_handle(app_control);
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_set_app_id(app_control_h app_control, const char *app_id)
{
    if (!app_control)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    if (app_id && !app_registry_valid_id(app_id))
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return set_string(&app_control->app_id, app_id);
}

SSO_PLATFORM_EXPORT int app_control_get_app_id(app_control_h app_control, char **app_id)
{
    if (!app_control || !app_id)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return get_string(app_control->app_id, app_id);
}

SSO_PLATFORM_EXPORT int app_control_set_operation(app_control_h app_control, const char *operation)
{
    if (!app_control || (operation && operation[0] == '\0'))
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return set_string(&app_control->operation, operation);
}

SSO_PLATFORM_EXPORT int app_control_get_operation(app_control_h app_control, char **operation)
{
    if (!app_control || !operation)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return get_string(app_control->operation, operation);
}

SSO_PLATFORM_EXPORT int app_control_set_launch_mode(app_control_h app_control,
                                                    app_control_launch_mode_e mode)
{
    if (!app_control ||
        (mode != APP_CONTROL_LAUNCH_MODE_SINGLE && mode != APP_CONTROL_LAUNCH_MODE_GROUP))
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    app_control->launch_mode = mode;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_get_launch_mode(app_control_h app_control,
                                                    app_control_launch_mode_e *mode)
{
    if (!app_control || !mode)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    *mode = app_control->launch_mode;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_add_extra_data(app_control_h app_control, const char *key,
                                                   const char *value)
{
    if (!app_control || !key || key[0] == '\0' || !value)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    struct app_control_extra *e = find_extra(app_control, key);
    if (e)
        return set_string(&e->value, value);
    return app_control_append_extra(app_control, key, strlen(key), value, strlen(value));
}

SSO_PLATFORM_EXPORT int app_control_get_extra_data(app_control_h app_control, const char *key,
                                                   char **value)
{
    if (!app_control || !key || key[0] == '\0' || !value)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    struct app_control_extra *e = find_extra(app_control, key);
    if (!e)
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    return get_string(e->value, value);
}

SSO_PLATFORM_EXPORT int app_control_remove_extra_data(app_control_h app_control, const char *key)
{
    if (!app_control || !key || key[0] == '\0')
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    struct app_control_extra *e = find_extra(app_control, key);
    if (!e)
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    free(e->key);
    free(e->value);
    size_t i = (size_t)(e - app_control->extras);
    memmove(e, e + 1, (app_control->n_extras - i - 1) * sizeof(*e));
    app_control->n_extras--;
    return APP_CONTROL_ERROR_NONE;
}

SSO_PLATFORM_EXPORT int app_control_foreach_extra_data(app_control_h app_control,
                                                       app_control_extra_data_cb callback,
                                                       void *user_data)
{
    if (!app_control || !callback)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    /* Iterate over a snapshot of the keys, so the callback may change the
     * handle. */
    size_t n = app_control->n_extras;
    if (n == 0)
        return APP_CONTROL_ERROR_NONE;
    char **keys = calloc(n, sizeof(*keys));
    if (!keys)
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    int rc = APP_CONTROL_ERROR_NONE;
    for (size_t i = 0; i < n; ++i) {
        keys[i] = strdup(app_control->extras[i].key);
        if (!keys[i])
            rc = APP_CONTROL_ERROR_OUT_OF_MEMORY;
    }
    for (size_t i = 0; rc == APP_CONTROL_ERROR_NONE && i < n; ++i)
        if (!callback(app_control, keys[i], user_data))
            break;
    for (size_t i = 0; i < n; ++i)
        free(keys[i]);
    free(keys);
    return rc;
}

SSO_PLATFORM_EXPORT int app_control_get_caller(app_control_h request, char **caller)
{
    if (!request || !caller || !request->received)
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    return get_string(request->caller ? request->caller : "", caller);
}
