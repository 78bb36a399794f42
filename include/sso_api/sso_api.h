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

/* ----------------------------------------------------------------------------
 * Callback types
 * ------------------------------------------------------------------------- */

/**
 * Login-state change, single subscriber (sso_subscribe_login_state_change and
 * its _extra form). Called on the thread of the GLib main loop that was the
 * thread default when the subscription was made, with: the user data given at
 * subscription, a result that is always 0, the new state, a text (the login
 * id; with the _extra form "login id|GUID|event sub-type") and, when signed
 * in, the account's icon path (else NULL). Both texts are valid only during
 * the call. The return value is ignored.
 */
typedef int (*sso_login_state_changed_cb)(void *user_data, int result, sso_login_state state,
                                          char *text, char *icon_path);

/**
 * Login-state change, one of several registered callbacks
 * (sso_register_login_state_changed_cb). Called, after the single subscriber
 * and in ascending order of the callback pointers, with the new state, the
 * account's GUID (the previous account's when signed out) and, in the last
 * argument, the icon path text when signed in (else NULL): the user data given
 * at registration is NOT passed back. Texts are valid only during the call.
 */
typedef int (*sso_login_state_changed_multi_cb)(sso_login_state state, char *guid, void *icon_path);

/**
 * Outcome of an account UI flow. result is 0 on success, -1 on failure; data
 * is NULL or a JSON text, valid only during the call.
 */
typedef int (*sso_account_ui_result_cb)(void *user_data, int result, char *data);

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

/* ----------------------------------------------------------------------------
 * Login-state notification. Call these from the thread that runs the
 * application's GLib main loop: notifications arrive there, and these
 * functions take no locks.
 * ------------------------------------------------------------------------- */

/**
 * @brief Makes @p callback the single login-state subscriber, replacing any
 *        earlier one.
 * @return 0, or -1 when the settings watch cannot be installed (the single
 *         subscriber is then cleared).
 */
SSO_API int sso_subscribe_login_state_change(sso_login_state_changed_cb callback, void *user_data);

/**
 * @brief As sso_subscribe_login_state_change(), with the extended text
 *        "login id|GUID|event sub-type". The extended form stays on until
 *        sso_unsubscribe_login_state_change(), even if this call fails.
 */
SSO_API int sso_subscribe_login_state_change_extra(sso_login_state_changed_cb callback,
                                                   void *user_data);

/**
 * @brief Removes the single subscriber and the settings watch. Callbacks
 *        registered with sso_register_login_state_changed_cb() hear nothing
 *        more until a later subscription or registration.
 * @return 0.
 */
SSO_API int sso_unsubscribe_login_state_change(void);

/**
 * @brief Adds @p callback to the registered login-state callbacks.
 * @return 0; -1 when it is registered already (the stored user data is kept)
 *         or the settings watch cannot be installed.
 */
SSO_API int sso_register_login_state_changed_cb(sso_login_state_changed_multi_cb callback,
                                                void *user_data);

/**
 * @brief Removes @p callback (an unknown one is no error); the settings watch
 *        goes when nothing is left to notify.
 * @return 0.
 */
SSO_API int sso_unregister_login_state_changed_cb(sso_login_state_changed_multi_cb callback);

/**
 * @brief Drops every callback registration the library holds for the
 *        application (login-state subscriber, armed account-view callback)
 *        and forgets the cached hotel-mode answer.
 * @return 0.
 */
SSO_API int sso_cb_reset(void);

/* ----------------------------------------------------------------------------
 * Policy predicates, decided locally; they never block.
 * ------------------------------------------------------------------------- */

/**
 * @brief Whether the user must be made to sign in before using the device.
 * @return 1 when sign-in is enforced, else 0.
 */
SSO_API int sso_check_enforce_login_condition(void);

/**
 * @brief Whether the current signed-out state is only a temporary logout.
 * @return 1 or 0.
 */
SSO_API int sso_check_temporary_logout_condition(void);

/**
 * @brief Retired query of a terms state. Logs the term id and always returns
 *        -1; term_id may be NULL. Does not block.
 */
SSO_API int sso_get_term_state(const char *term_id);

/* ----------------------------------------------------------------------------
 * Service requests. Each sends one request to the SSO service and returns at
 * once with the service's acceptance: 0 accepted, -1 refused locally (nothing
 * is sent), refused by the service, or not answered in time. The caller's
 * thread blocks for at most 5000 ms (the first request of a process may wait
 * up to 10 s more while the library's D-Bus link comes up). An accepted
 * request's result arrives later, exactly once, through its callback, which
 * runs on the library's "SSOProxyMonitor" thread (never the caller's), one
 * callback at a time; a refused request never calls back. Texts a callback
 * receives belong to the library and are valid only during the call: copy
 * what you keep. user_data is handed back untouched and may be NULL. A
 * callback must not call sso_give_proxy().
 * ------------------------------------------------------------------------- */

/** Result of an access-token request: the service's result code (0 success)
 *  and the access token. */
typedef int (*sso_request_access_token_cb)(void *user_data, int result, char *access_token);

/** Result of an auth-code request: the service's result code and the auth
 *  code. */
typedef int (*sso_request_auth_code_cb)(void *user_data, int result, char *auth_code);

/** Result of sso_generate_token_with_authcode_dsc(_noti): the result code
 *  only. */
typedef int (*sso_token_with_authcode_cb)(void *user_data, int result);

/** Result of the other token-generating requests: the result code and the
 *  service's response text. */
typedef int (*sso_token_response_cb)(void *user_data, int result, char *response_data);

/** Result of an account operation or a profile or group query: the result
 *  code and the service's response text (JSON as the service writes it). */
typedef int (*sso_response_data_cb)(void *user_data, int result, char *response_data);

/** Result of sso_identify_current_user_info(): the result code, the user's
 *  birthday and the identity-verification URL. */
typedef int (*sso_identify_user_info_cb)(void *user_data, int result, char *birthday,
                                         char *identify_url);

/** Result of sso_get_user_info(): the result code and the user's profile,
 *  passed by value (texts cut one byte short of their fields). */
typedef int (*sso_get_user_info_cb)(void *user_data, int result, sso_user_info info);

/** Result of sso_get_namecheck_auth_info(): NOT a result code but true when
 *  the service reported success, then the name-check texts (cut one byte
 *  short of the fields of sso_name_check_auth_info_s). */
typedef int (*sso_get_namecheck_auth_info_cb)(void *user_data, bool success, char *birth_date,
                                              char *age, char *check_url);

/** Result of sso_get_user_json_info(): the result code and a JSON object of
 *  the profile and the user's country codes. */
typedef int (*sso_user_json_info_cb)(void *user_data, int result, char *json);

/* ---- tokens and auth codes ---- */

/**
 * @brief Asks for an access token of application @p app_id for @p scope.
 *
 * Needs a running service and a signed-in user. @p scope may be NULL (no
 * scope; "" is sent as an empty scope). @p app_id, @p secret_key and
 * @p callback must not be NULL. Blocks for at most 5000 ms; @p callback gets
 * the token later on the "SSOProxyMonitor" thread.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_access_token_with_scope(const char *app_id, const char *secret_key,
                                                const char *scope,
                                                sso_request_access_token_cb callback,
                                                void *user_data);

/**
 * @brief sso_request_access_token_with_scope() without a scope.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_access_token(const char *app_id, const char *secret_key,
                                     sso_request_access_token_cb callback, void *user_data);

/**
 * @brief Exchanges @p auth_code for an access token.
 *
 * Needs a signed-in user (no liveness check). @p scope may be NULL; the
 * other pointers must not be. Blocks for at most 5000 ms; @p callback gets
 * the token on the "SSOProxyMonitor" thread.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_access_token_using_authcode(const char *app_id, const char *secret_key,
                                                    const char *auth_code, const char *scope,
                                                    sso_request_access_token_cb callback,
                                                    void *user_data);

/**
 * @brief Asks for an auth code of the signed-in user for @p app_id.
 *
 * Needs a running service and a signed-in user. @p scope may be NULL;
 * @p app_id and @p callback must not be. Blocks for at most 5000 ms;
 * @p callback gets the code on the "SSOProxyMonitor" thread.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_auth_code(const char *app_id, const char *scope,
                                  sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for a user auth code. As sso_request_auth_code() (service and
 *        sign-in needed, @p scope may be NULL, at most 5000 ms, callback on
 *        "SSOProxyMonitor").
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_user_authcode(const char *app_id, const char *scope,
                                      sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for a device auth code. Needs a running service but nobody
 *        signed in; otherwise as sso_request_user_authcode().
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_device_authcode(const char *app_id, const char *scope,
                                        sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for an auth code for effortless login. Needs a signed-in user
 *        (no liveness check); @p scope may be NULL; at most 5000 ms; callback
 *        on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_auth_code_for_effortless_login(const char *app_id, const char *scope,
                                                       sso_request_auth_code_cb callback,
                                                       void *user_data);

/**
 * @brief Asks for an auth code with an account id and password, without
 *        anybody signed in. Note the order: @p user_data comes BEFORE
 *        @p callback. @p scope and @p user_data may be NULL, the rest must
 *        not be. The password is never logged. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_authcode_with_ID_PWD(const char *app_id, const char *account_id,
                                             const char *passwd, const char *scope, void *user_data,
                                             sso_request_auth_code_cb callback);

/**
 * @brief Asks for an auth code for another device identified by its device
 *        security code @p dsc (may be NULL). @p callback must not be NULL. At
 *        most 5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_authcode_for_other_device(const char *dsc,
                                                  sso_request_auth_code_cb callback,
                                                  void *user_data);

/**
 * @brief Has the service create the device account of @p userid from
 *        @p authcode, telling the user when @p use_notification is true.
 *
 * Refused (-1) on a hotel product, whatever the arguments. @p authcode and
 * @p userid must not be NULL; @p dsc may be NULL; @p callback may be NULL
 * (then no result is delivered). Returns -100 when the device already holds
 * six accounts and @p userid is not one of them. At most 5000 ms; callback,
 * with the result code only, on "SSOProxyMonitor".
 * @return 0 when accepted, -100 at the account limit, else -1.
 */
SSO_API int sso_generate_token_with_authcode_dsc_noti(const char *authcode, const char *userid,
                                                      const char *dsc,
                                                      sso_token_with_authcode_cb callback,
                                                      void *user_data, bool use_notification);

/**
 * @brief sso_generate_token_with_authcode_dsc_noti() with the notification on.
 * @return 0 when accepted, -100 at the account limit, else -1.
 */
SSO_API int sso_generate_token_with_authcode_dsc(const char *authcode, const char *userid,
                                                 const char *dsc,
                                                 sso_token_with_authcode_cb callback,
                                                 void *user_data);

/**
 * @brief As sso_generate_token_with_authcode_dsc_noti(), with the user id
 *        first and a @p delete_flag for the service; the callback also gets
 *        the service's response text.
 * @return 0 when accepted, -100 at the account limit, else -1.
 */
SSO_API int sso_generate_token_with_authcode_dsc_deleteFlag(const char *userid,
                                                            const char *authcode, bool delete_flag,
                                                            const char *dsc,
                                                            sso_token_response_cb callback,
                                                            void *user_data);

/**
 * @brief Has the service create the device account of @p userid from its
 *        password. Refused on a hotel product; @p userid and @p passwd must
 *        not be NULL, @p callback may be. The password is never logged. At
 *        most 5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, -100 at the account limit, else -1.
 */
SSO_API int sso_generate_token_with_ID_PWD(const char *userid, const char *passwd, bool delete_flag,
                                           sso_token_response_cb callback, void *user_data);

/**
 * @brief Retired: use sso_generate_token_with_authcode_dsc(). Sends nothing,
 *        never calls back, does not block; any argument may be NULL.
 * @return -1.
 */
SSO_API int sso_generate_token_with_authcode(const char *authcode, const char *userid,
                                             sso_token_with_authcode_cb callback, void *user_data);

/* ---- auth codes bound to a device security code ---- */

/**
 * @brief Asks for a user auth code bound to the device security code @p dsc.
 *
 * Needs a running service and a signed-in user. @p scope, @p dsc and
 * @p response_type may be NULL; @p app_id and @p callback must not be. At
 * most 5000 ms; @p callback gets the code on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_user_authcode_with_dsc(const char *app_id, const char *scope,
                                               const char *dsc, const char *response_type,
                                               sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief As sso_request_user_authcode_with_dsc(), with a PKCE code challenge
 *        (must not be NULL; may be empty).
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_user_authcode_with_challenge(const char *app_id, const char *scope,
                                                     const char *dsc, const char *response_type,
                                                     const char *code_challenge,
                                                     sso_request_auth_code_cb callback,
                                                     void *user_data);

/**
 * @brief As sso_request_user_authcode_with_dsc(), with a PKCE code verifier
 *        (must not be NULL).
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_user_authcode_with_verifier(const char *app_id, const char *scope,
                                                    const char *dsc, const char *response_type,
                                                    const char *code_verifier,
                                                    sso_request_auth_code_cb callback,
                                                    void *user_data);

/* ---- account operations ---- */

/**
 * @brief Registers the account @p account_id with @p authcode and the device
 *        security code @p dsc, signing it in when @p perform_login_flag is
 *        true.
 *
 * @p account_id, @p authcode, @p dsc and @p callback must not be NULL (the
 * service expects a DSC text here; pass "" for none). Returns -100 when six
 * accounts are registered and @p account_id is not one of them. At most
 * 5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, -100 at the account limit, else -1.
 */
SSO_API int sso_register_account(const char *account_id, const char *authcode, const char *dsc,
                                 sso_response_data_cb callback, void *user_data,
                                 bool perform_login_flag);

/**
 * @brief Signs the current user out. Needs a signed-in user; @p confirm_id
 *        may be NULL; @p callback must not be. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_perform_logout(sso_response_data_cb callback, void *user_data,
                               const char *confirm_id);

/**
 * @brief Checks @p passwd against the signed-in account. Needs a signed-in
 *        user; neither @p passwd nor @p callback may be NULL. The password is
 *        never logged. At most 5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_verify_password(const char *passwd, sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the list of the device's accounts. Needs a running
 *        service; @p callback must not be NULL. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_account_list(sso_response_data_cb callback, void *user_data);

/**
 * @brief Sets the password of @p account_id. No argument but @p user_data may
 *        be NULL. The password is never logged. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_set_passfw(const char *account_id, const char *password,
                           sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for a password-reset mail to @p email. Needs a running
 *        service; neither @p email nor @p callback may be NULL. At most
 *        5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_reset_passwd(const char *email, sso_response_data_cb callback,
                                     void *user_data);

/**
 * @brief Switches the active account to @p account_id (must not be NULL or
 *        empty). @p extra is passed to the service; NULL or "" means none.
 *        @p callback must not be NULL. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_switch_account(const char *account_id, sso_response_data_cb callback,
                               void *user_data, const char *extra);

/**
 * @brief As sso_switch_account(), by the account's GUID.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_switch_account_by_guid(const char *guid, sso_response_data_cb callback,
                                       void *user_data, const char *extra);

/**
 * @brief Switches to @p account_id (not NULL, not empty) with a user token
 *        (not NULL). @p callback must not be NULL. At most 5000 ms; callback
 *        on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_switch_account_with_usertoken(const char *account_id, sso_response_data_cb callback,
                                              void *user_data, const char *usertoken);

/**
 * @brief Asks the service whether the account can be switched now. No
 *        callback; blocks for at most 5000 ms.
 * @return true when the service says yes; false otherwise, also when it does
 *         not answer.
 */
SSO_API bool sso_is_account_switching_available(void);

/**
 * @brief Has the service announce the current account again. Needs a
 *        signed-in user and a running service. No callback; blocks for at
 *        most 5000 ms.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_request_current_account_noti(void);

/**
 * @brief Asks the service to reset. No callback; blocks for at most 5000 ms.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_reset(void);

/* ---- profile and groups ---- */

/**
 * @brief Asks for the signed-in user's profile as the service's JSON text.
 *        Needs a signed-in user; @p callback must not be NULL. At most
 *        5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_user_info_v4(sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the signed-in user's profile as a sso_user_info record.
 *        Needs a signed-in user; @p callback must not be NULL. At most
 *        5000 ms; callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_user_info(sso_get_user_info_cb callback, void *user_data);

/**
 * @brief Asks for the identity-verification data of the current user. Needs
 *        nobody signed in; @p callback must not be NULL. At most 5000 ms;
 *        callback on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_identify_current_user_info(sso_identify_user_info_cb callback, void *user_data);

/**
 * @brief Asks for the signed-in user's name-check data. Needs a signed-in
 *        user; @p callback must not be NULL. At most 5000 ms; callback on
 *        "SSOProxyMonitor" with a success flag instead of a result code.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_namecheck_auth_info(sso_get_namecheck_auth_info_cb callback, void *user_data);

/**
 * @brief Asks for the dynamic list of the user's accounts. Needs nobody
 *        signed in; @p callback must not be NULL. At most 5000 ms; callback
 *        on "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_dynamic_my_account_list(sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the family group of the signed-in user. Needs a running
 *        service and a signed-in user; only @p user_data may be NULL. The
 *        access token is never logged. At most 5000 ms; callback on
 *        "SSOProxyMonitor".
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_user_family_group(const char *app_id, const char *access_token,
                                      sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the members of the group @p group_id. As
 *        sso_get_user_family_group(); only @p user_data may be NULL.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_user_group_users(const char *app_id, const char *access_token,
                                     const char *group_id, sso_response_data_cb callback,
                                     void *user_data);

/**
 * @brief sso_get_user_info() with the profile and the user's country codes
 *        handed to @p callback as a JSON text (keys "user_id", "prefix_name",
 *        "first_name", "last_name", "birth_date", "zip_code", "mobile_num",
 *        "receive_email", "alpha2CountryCode", "userCountryCode").
 *
 * @p callback is not checked here: pass one, a NULL callback only means the
 * result is dropped when it arrives. At most 5000 ms; callback on
 * "SSOProxyMonitor". A few bytes of bookkeeping stay allocated for a request
 * that is refused, in case its result still arrives.
 * @return 0 when accepted, else -1.
 */
SSO_API int sso_get_user_json_info(sso_user_json_info_cb callback, void *user_data);

/* ---- retired: partner authentication and content-provider accounts ----
 * These send nothing, never call back and do not block; every argument is
 * ignored and may be NULL. */

/** @return -1. */
SSO_API int sso_get_partner_auth_info(const char *auth_key, sso_response_data_cb callback,
                                      void *user_data);
/** @return -1. */
SSO_API int sso_save_partner_auth_info(const char *auth_key, const char *auth_value,
                                       sso_response_data_cb callback, void *user_data);
/** @return -1. */
SSO_API int sso_clear_partner_auth_info(const char *auth_key, sso_response_data_cb callback,
                                        void *user_data);
/** @return -1; @p cp_account_info is not written. */
SSO_API int sso_get_cp_account_info(const char *cp_id, char **cp_account_info);
/** @return 0 when a user is signed in, else -1. */
SSO_API int sso_get_cp_account_mapping_list(sso_response_data_cb callback, void *user_data);
/** @return 0 when a user is signed in, else -1. */
SSO_API int sso_add_cp_account_mapping_info(const char *cp_id, const char *cp_user_id,
                                            sso_response_data_cb callback, void *user_data);
/** @return 0 when a user is signed in, else -1. */
SSO_API int sso_remove_cp_account_mapping_info(const char *cp_id, sso_response_data_cb callback,
                                               void *user_data);

/* ----------------------------------------------------------------------------
 * Account UI and PIN flows. These launch the device's account UI
 * applications. Call them from the thread that runs the application's GLib
 * main loop (the thread-default main context): their callbacks are delivered
 * there. A callback's data text is valid only during the call.
 * ------------------------------------------------------------------------- */

/**
 * @brief Shows an account page ("com.veltra.tv.CSAccount"; types 7 and 8:
 *        "QHVMP48x7k.WebAccountExtension", the account and terms web pages).
 *
 * The page is the type printed in at most two characters. @p data (NULL sends
 * "0") is passed as is, except for types 10 (switch account: @p data is the
 * GUID) and 9 (voice registration: @p data is the account id), which send it
 * inside a small JSON object, unescaped. The signed-in state is not checked.
 *
 * @p callback is armed as the one-shot "account view closed" notice: it is
 * called with (user data, 0, NULL) once the account UI sets
 * "memory/sso/view_status" to 0. The user data it then gets is that of the
 * first sso_show() of the process (the one that installed the watch). Types 7
 * and 8 also call it at once, with this call's user data, before returning 0.
 *
 * @return 0 launched; 1 when the launch could not be made (no callback);
 *         -1 when @p caller_id or @p callback is NULL.
 */
SSO_API int sso_show(int type, const char *data, const char *caller_id,
                     sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief Shows the terms page: sso_show() with type 7 and no data.
 * @param window must not be NULL; not otherwise used.
 * @param reserved ignored.
 * @return as sso_show(); -1 when @p window, @p caller_id or @p callback is NULL.
 */
SSO_API int sso_show_term_page(void *window, void *reserved, const char *caller_id,
                               sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief sso_show() whose data asks for a transparent window
 *        ({"mode":"1"}) or, when @p transparent is false, is a single space.
 * @return as sso_show(); -1 when @p caller_id or @p callback is NULL.
 */
SSO_API int sso_show_with_transparent_win(int type, const char *caller_id,
                                          sso_account_ui_result_cb callback, void *user_data,
                                          bool transparent);

/**
 * @brief Asks the account UI ("com.veltra.tv.CSAccount") to verify the
 *        signed-in user (action "Default").
 *
 * Needs a signed-in user. @p callback is called once, when the account UI
 * answers, with 0 and a JSON text {"response", "result"} ("result" is
 * "success", "change_account" or "failed"), or with -1 and an empty text when
 * the UI failed, was cancelled or gave no usable answer. One request is
 * pending per process: a newer request takes over the older one's callback
 * slot (the older callback is then never called).
 *
 * @return 0 launched; -1 when @p account_id or @p callback is NULL or nobody
 *         is signed in (no callback), or when the launch failed (and the
 *         callback has already been called with -1 and an empty text).
 */
SSO_API int sso_request_account_verification(const char *account_id,
                                             sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief As sso_request_account_verification(), with the PIN application
 *        ("com.veltra.tv.CSAccountPIN"): @p pin_type 1 verifies the PIN
 *        ("PINVerify"), 2 for another account ("PINVerify_NAccount"), any
 *        other value is a plain verification ("Default", not grouped with the
 *        caller).
 */
SSO_API int sso_request_account_verification_using_pin(const char *account_id,
                                                       sso_account_ui_result_cb callback,
                                                       void *user_data, int pin_type);

/**
 * @brief As sso_request_account_verification(), setting up a PIN with the PIN
 *        application: @p pin_type 1 "PINSetup_High", 2 "PINSetup_NAccount",
 *        any other value "PINSetup".
 */
SSO_API int sso_request_account_setup_pin(const char *account_id, sso_account_ui_result_cb callback,
                                          void *user_data, int pin_type);

/* ---- caller identity and whitelist / signature access tokens ----
 * A whitelist access token is issued only to packages whose signing
 * certificate the service trusts. Every function here first checks that the
 * package named is the calling process's own package (the SSO service's own
 * package "org.orvex.ssoservice" and the account application's package
 * "com.veltra.orvex.veltra-account" may name any package). The "signature"
 * functions are aliases of the "whitelist" ones. */

/** Result of a whitelist access-token request: the service's result code
 *  (0 success) and the token. Called on the library's "SSOProxyMonitor"
 *  thread; the token belongs to the library and is valid during the call
 *  only. */
typedef int (*sso_request_whitelist_accesstoken_cb)(void *user_data, int result,
                                                    char *access_token);

/**
 * @brief Identifies the calling application now (application id, package id,
 *        executable name) instead of at the first whitelist call. Call it
 *        early on one thread when several threads will make such calls.
 * @return 0, or -1 when the library is being unloaded.
 */
SSO_API int sso_pre_init_callerInformation(void);

/**
 * @brief Requests a whitelist access token for @p app_id on behalf of the
 *        calling process's own package, sending its package id and the
 *        SHA-256 fingerprint of its signer certificate's public key.
 * @param scope optional (NULL: none).
 * At most 5000 ms; @p callback runs later on "SSOProxyMonitor". Needs a
 * signed-in user and a running service.
 * @return 0 when accepted; -1 on a NULL @p app_id or @p callback, a package
 *         that is not registered or has no author signer certificate, or any
 *         refusal (the callback is then never called).
 */
SSO_API int sso_request_whitelist_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data);

/** @brief The same as sso_request_whitelist_accesstoken(). */
SSO_API int sso_request_signature_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data);

/**
 * @brief Requests a whitelist access token with an explicit package name and
 *        signature. @p packagename must be the caller's own package unless
 *        the caller is one of the two system packages.
 * @return 0 when accepted, else -1 (callback never called).
 */
SSO_API int sso_api_request_whitelist_accesstoken(const char *app_id, const char *packagename,
                                                  const char *signature, const char *scope,
                                                  sso_request_whitelist_accesstoken_cb callback,
                                                  void *user_data);

/**
 * @brief Reads, without asking the service, the whitelist access token the
 *        service stored for @p app_id in the current account's data of the
 *        calling process's own package.
 * @param access_token receives a newly allocated, NUL-terminated copy that
 *        the caller frees with free(); untouched on failure.
 * @return 0, or -1 (nobody signed in, package refused, no token stored).
 */
SSO_API int sso_get_whitelist_accesstoken(const char *app_id, char **access_token);

/** @brief The same as sso_get_whitelist_accesstoken(). */
SSO_API int sso_get_signature_accesstoken(const char *app_id, char **access_token);

/**
 * @brief sso_get_whitelist_accesstoken() for an explicit package name (the
 *        caller's own, unless the caller is one of the two system packages).
 *        The token is freed by the caller with free().
 * @return 0, or -1.
 */
SSO_API int sso_api_get_whitelist_accesstoken(const char *app_id, const char *packagename,
                                              char **access_token);

#ifdef __cplusplus
}
#endif

#endif /* SSO_API_SSO_API_H */
