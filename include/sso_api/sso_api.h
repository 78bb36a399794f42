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

/* ----------------------------------------------------------------------------
 * Synchronous account queries. They answer at once, on the calling thread,
 * from the device's settings and the cached account document; none talks to
 * the SSO service. A getter that needs a signed-in user returns -1 without
 * touching secure storage when nobody is signed in.
 * ------------------------------------------------------------------------- */

/**
 * @brief Reads whether a user is signed in.
 * @param[out] state SSO_LOGEDIN or SSO_NOT_LOGIN (written SSO_NOT_LOGIN first).
 * @return 0, or -1 when @p state is NULL or the state cannot be read.
 */
SSO_API int sso_get_login_state(sso_login_state *state);

/**
 * @brief Reads the number of accounts registered on the device.
 * @param[out] count the number; 0 when it cannot be read.
 * @return 0, or -1 when @p count is NULL or the number cannot be read.
 */
SSO_API int sso_get_account_number(int *count);

/**
 * @brief Gives the signed-in account's GUID.
 * @param[out] guid a new NUL-terminated text; the caller frees it with free().
 *                  Untouched on failure.
 * @return 0; -1 when @p guid is NULL, nobody is signed in or the account data
 *         cannot be read; -101 when the text could not be allocated.
 */
SSO_API int sso_get_guid(char **guid);

/**
 * @brief Gives the signed-in account's UID, as sso_get_guid() does.
 * @return 0, or -1 on any failure (allocation included).
 */
SSO_API int sso_get_login_vd_uid(char **uid);

/**
 * @brief Gives the signed-in account's auth token, as sso_get_guid() does.
 *        The token is never logged.
 * @return 0; -1 on failure; -101 when the text could not be allocated.
 */
SSO_API int sso_get_auth_token(char **auth_token);

/**
 * @brief Gives the signed-in user's device id, as sso_get_guid() does.
 * @return 0, or -1 on any failure.
 */
SSO_API int sso_get_device_id(char **device_id);

/**
 * @brief Fills the caller's record with the signed-in account's login id,
 *        GUID, UID and icon path (the password field stays empty). Only those
 *        five fields are written.
 * @return 0, or -1 when @p login_info is NULL, nobody is signed in or the
 *         account data cannot be read.
 */
SSO_API int sso_get_login_info(sso_login_info_s *login_info);

/**
 * @brief Gives the signed-in account's login id in a new text the caller frees.
 * @return 0, or -1 on any failure.
 */
SSO_API int sso_get_login_user_id(char **user_id);

/**
 * @brief Gives the signed-in account as a JSON object ("loginid", "password"
 *        (always ""), "guid", "uid", "userIcon", "userPinSet",
 *        "userCountryCode", "alpha2CountryCode", "displayName",
 *        "userDeviceID") in a new text the caller frees.
 * @return 0, or -1 when nobody is signed in or the text cannot be made.
 */
SSO_API int sso_get_login_json_info(char **json);

/**
 * @brief Gives the device's whole public account document (every registered
 *        account) in a new text the caller frees. No sign-in is needed.
 * @return 0; -1 when the document cannot be read, in which case @p accounts
 *         still receives an empty text that the caller must free.
 */
SSO_API int sso_get_accounts(char **accounts);

/**
 * @brief Tells whether the account UI shows a popup.
 * @param[out] state 1 when the view state is 1 (a popup is shown), else 0.
 * @return 0, or -1 when @p state is NULL or the state cannot be read.
 */
SSO_API int sso_get_popup_state(int *state);

/**
 * @brief Gives the application id of the account UI ("com.veltra.tv.CSAccount")
 *        in a new text the caller frees.
 * @return 0, or -1 when @p package_id is NULL or allocation failed.
 */
SSO_API int sso_get_account_ui_application_package_id(char **package_id);

/**
 * @brief Retired query of a terms state. Logs the term id and always returns
 *        -1; term_id may be NULL. Does not block.
 */
SSO_API int sso_get_term_state(const char *term_id);

#ifdef __cplusplus
}
#endif

#endif /* SSO_API_SSO_API_H */
