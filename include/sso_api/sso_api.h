/**
 * @file sso_api.h
 * @brief The client API of the device's single sign-on (SSO) account service.
 *
 * Every function is safe to call from any application thread unless its
 * comment says otherwise. Results: 0 is success (for an asynchronous request:
 * accepted by the SSO service), -1 a failed local check or a refused or failed
 * request; the few other codes are named where they occur.
 *
 * Strings the library hands to a callback belong to the library and are valid
 * only during the call. Strings it returns through a char** out argument are
 * allocated with calloc/malloc and released by the caller with free().
 */
#ifndef SSO_API_SSO_API_H
#define SSO_API_SSO_API_H

#include <stdbool.h>

#if defined(__GNUC__) && !defined(SSO_API_NO_VISIBILITY)
#define SSO_API __attribute__((visibility("default")))
#else
#define SSO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Login state of the device account. Any stored value other than 1 reads as
 *  SSO_NOT_LOGIN. */
typedef enum {
    SSO_NOT_LOGIN = 0, /**< nobody is signed in */
    SSO_LOGEDIN = 1,   /**< a user is signed in */
} sso_login_state;

/** The signed-in account as filled by sso_get_login_info(): 1536 bytes of
 *  NUL-terminated fields. Values longer than a field are cut one byte short of
 *  it (126 characters, 1022 for the icon path). */
typedef struct {
    char login_id[128];        /**< login id of the active account */
    char password[128];        /**< always empty */
    char guid[128];            /**< account GUID */
    char uid[128];             /**< account UID */
    char user_icon_path[1024]; /**< path of the account's icon file */
} sso_login_info_s;

/** Profile of the signed-in user, passed by value to the user-info callback.
 *  Every field is NUL-terminated; 1536 bytes in all. */
typedef struct {
    char user_id[128];
    char prefix_name[128];
    char first_name[128];
    char last_name[128];
    char birth_date[128];
    char zip_code[128];
    char mobile_num[128];
    char receive_email[128];
    char auth[512];
} sso_user_info;

/** Name-check record whose fields reach the name-check callback. */
typedef struct {
    char birth_date[128];
    char age[128];
    char check_url[256];
} sso_name_check_auth_info_s;

/**
 * @brief Asks whether the SSO service answers.
 *
 * Sends one synchronous request on the calling thread and blocks for at most
 * 5000 ms; the first request of a process also brings up the library's D-Bus
 * link (its bus name, its account client object and its "SSOProxyMonitor"
 * thread), which can take up to 10 s more when the bus is slow. No callback.
 *
 * @return 0 when the service accepted the request, -1 when it refused, did
 *         not answer in time, is not running, or after sso_give_proxy().
 */
SSO_API int sso_check_alive(void);

/**
 * @brief Tears the library's D-Bus link down for the rest of the process.
 *
 * Gives up the bus name, unregisters the account client object and joins the
 * "SSOProxyMonitor" thread; every later request fails with -1 until the
 * library is unloaded. Must not be called from a result callback (those run
 * on the thread it joins). Blocks until the thread has ended.
 */
SSO_API void sso_give_proxy(void);

/**
 * @brief Size in bytes of sso_login_info_s (1536), for callers that allocate it
 *        dynamically.
 */
SSO_API int get_size_of_sso_login_info_s(void);

/**
 * @brief Retired query of a terms state. Logs the term id and always returns
 *        -1; term_id may be NULL. Does not block.
 */
SSO_API int sso_get_term_state(const char *term_id);

#ifdef __cplusplus
}
#endif

#endif /* SSO_API_SSO_API_H */
