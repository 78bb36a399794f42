#define _GNU_SOURCE
#include "app_common.h"

#include <stdlib.h>
#include <string.h>

#include "sso_platform_common.h"

SSO_PLATFORM_EXPORT int app_get_id(char **id)
{
    if (!id)
        return APP_ERROR_INVALID_PARAMETER;
    const char *value = getenv("SSO_PLATFORM_APP_ID");
    if (!value || value[0] == '\0')
        return APP_ERROR_INVALID_CONTEXT;
    char *copy = strdup(value);
    if (!copy)
        return APP_ERROR_OUT_OF_MEMORY;
    *id = copy;
    return APP_ERROR_NONE;
}
