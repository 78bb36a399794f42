/*
 * app_common: facts about the running application.
 *
 * On this Linux platform the application launcher hands the application id
 * to the process in the environment variable SSO_PLATFORM_APP_ID; a process
 * started any other way is not an application and app_get_id fails.
 */
#ifndef SSO_PLATFORM_APP_COMMON_H
#define SSO_PLATFORM_APP_COMMON_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    APP_ERROR_NONE = 0,
    APP_ERROR_INVALID_PARAMETER = -22,
    APP_ERROR_OUT_OF_MEMORY = -12,
    APP_ERROR_INVALID_CONTEXT = -0x01100000 - 0x01,
} app_error_e;

/* Gives the application id of the calling process in a malloc'ed string that
 * the caller frees. APP_ERROR_INVALID_CONTEXT when the process is not an
 * application. */
int app_get_id(char **id);

#ifdef __cplusplus
}
#endif

#endif
