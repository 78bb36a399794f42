/**
 * @file sso_api.h
 * @brief The C API of libsso_api, the client library of the device's single
 *        sign-on (SSO) account service.
 *
 * Include it as `<sso_api/sso_api.h>` and link with `-lsso_api`
 * (`pkg-config --cflags --libs sso_api`, or `sso_api::sso_api` in CMake). It
 * compiles as C99 and as C++.
 *
 * The rules every function follows (which thread runs what, how long a call
 * blocks, who frees what, what the result codes mean) are on the
 * @ref index "main page"; each function's comment states its own case.
 * In short: 0 is success and -1 failure; texts handed to a callback belong
 * to the library and live only during the call; texts returned through a
 * `char **` are allocated with calloc() and released by the caller with
 * free(); results of service requests arrive on the library's own
 * "SSOProxyMonitor" thread; login, account-view and account-UI
 * notifications arrive on the thread that runs the application's GLib main
 * loop. A child process that goes on without exec() after fork() gets a link
 * of its own at its first request; what the parent set up (its results, its
 * callbacks) stays the parent's (see @ref fork).
 */
#ifndef SSO_API_SSO_API_H
#define SSO_API_SSO_API_H

#include <stdbool.h>

/**
 * @def SSO_API
 * @brief Marks the functions the shared library exports.
 *
 * With GCC and Clang it gives them default visibility; define
 * `SSO_API_NO_VISIBILITY` before including the header to leave the
 * declarations unmarked. It has no effect on callers.
 */
#if defined(__GNUC__) && !defined(SSO_API_NO_VISIBILITY)
#define SSO_API __attribute__((visibility("default")))
#else
#define SSO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup sso_errors Why a call failed
 * @brief The cause of the last failure of the calling thread, beside the
 *        result codes the functions return.
 *
 * Every exported function that fails (returns -1 or another failure value)
 * records why in a thread-local cause that sso_last_error() reads, until the
 * thread's next failing call. A call that succeeds may leave it as it was:
 * read it right after a failure. When the service refused a request, its
 * answer is kept too (sso_last_service_answer()).
 *
 * The names of sso_error_name() and sso_service_result_name() are stable
 * (snake_case), for logs and JSON; sso_strerror() is a sentence for people.
 * @{
 */

/** @brief Causes of failure. New causes may be added at the end. */
typedef enum {
    SSO_ERROR_NONE = 0,             /**< "none": no failure recorded. */
    SSO_ERROR_INVALID_ARGUMENT = 1, /**< "invalid_argument": NULL, empty or not UTF-8. */
    SSO_ERROR_UNLOADING = 2,        /**< "unloading": the library is being unloaded. */
    SSO_ERROR_NO_BUS = 3,           /**< "no_bus": the system bus cannot be reached. */
    SSO_ERROR_SERVICE_NOT_RUNNING = 4, /**< "service_not_running": nobody owns the service's name. */
    SSO_ERROR_SERVICE_REFUSED = 5,  /**< "service_refused": see sso_last_service_answer(). */
    SSO_ERROR_TIMED_OUT = 6,        /**< "timed_out": the bus or the service did not answer in time. */
    SSO_ERROR_LINK_GIVEN_UP = 7,    /**< "link_given_up": after sso_give_proxy(). */
    SSO_ERROR_NOT_SIGNED_IN = 8,    /**< "not_signed_in": the call needs a signed-in account. */
    SSO_ERROR_NOT_ALLOWED = 9,      /**< "not_allowed": the caller's package may not do this. */
    SSO_ERROR_STORAGE_UNREADABLE = 10, /**< "storage_unreadable": settings or secure storage. */
    SSO_ERROR_ACCOUNT_LIMIT = 11,   /**< "account_limit": six accounts are registered. */
    SSO_ERROR_CLIENT_NAME_TAKEN = 12, /**< "client_name_taken": another process holds the
                                           process's client bus name. */
    SSO_ERROR_BUS_ERROR = 13,       /**< "bus_error": any other failure of the bus call. */
    SSO_ERROR_NOT_SUPPORTED = 14,   /**< "not_supported": retired, or not on this product. */
    SSO_ERROR_OUT_OF_MEMORY = 15,   /**< "out_of_memory": a copy could not be allocated. */
    SSO_ERROR_LAUNCH_FAILED = 16,   /**< "launch_failed": the account UI could not be launched. */
    SSO_ERROR_NOT_FOUND = 17,       /**< "not_found": the value asked for is not stored. */
    SSO_ERROR_INTERNAL = 18,        /**< "internal": an unexpected failure inside the library. */
} sso_error_e;

/**
 * @brief The cause of the calling thread's last failure.
 *
 * Thread-local; any thread; never blocks.
 * @return #SSO_ERROR_NONE when no call of this thread has failed.
 */
SSO_API sso_error_e sso_last_error(void);

/**
 * @brief The service's answer to the request behind the last
 *        #SSO_ERROR_SERVICE_REFUSED of the calling thread.
 *
 * A request is accepted when the service answers 1; anything else is its
 * reason (see the @c SSO_SERVICE_RESULT_ codes). Thread-local; any thread.
 * @return The answer, or 0 when the last failure was no refusal.
 */
SSO_API int sso_last_service_answer(void);

/**
 * @brief The stable snake_case name of a cause ("no_bus").
 * @param error A cause, as sso_last_error() gives it.
 * @return A static text; "unknown" for a value that is no cause.
 */
SSO_API const char *sso_error_name(sso_error_e error);

/**
 * @brief A sentence that says what a cause means, for people.
 * @param error A cause, as sso_last_error() gives it.
 * @return A static text, never NULL.
 */
SSO_API const char *sso_strerror(sso_error_e error);

/**
 * @name Result codes of the SSO service
 * The @c result a service delivers to a request's callback (0 is success),
 * and the reasons it gives when it refuses a request; the library passes
 * them through unchanged. The codes below are the ones the service defines.
 * @{
 */
#define SSO_SERVICE_RESULT_OK 0              /**< "ok": done. */
#define SSO_SERVICE_RESULT_SERVICE_ERROR 1   /**< "service_error": a store refused a write. */
#define SSO_SERVICE_RESULT_INVALID_REQUEST 2 /**< "invalid_request": an argument is malformed. */
#define SSO_SERVICE_RESULT_NOT_SIGNED_IN 3   /**< "not_signed_in". */
#define SSO_SERVICE_RESULT_WRONG_PASSWORD 4  /**< "wrong_password". */
#define SSO_SERVICE_RESULT_INVALID_CLIENT 5  /**< "invalid_client": app id and secret. */
#define SSO_SERVICE_RESULT_NO_SUCH_ACCOUNT 6 /**< "no_such_account". */
#define SSO_SERVICE_RESULT_ACCOUNT_LIMIT 7   /**< "account_limit": six accounts. */
#define SSO_SERVICE_RESULT_ACCOUNT_EXISTS 8  /**< "account_exists". */
#define SSO_SERVICE_RESULT_INVALID_TOKEN 9   /**< "invalid_token": not issued, revoked or used. */
#define SSO_SERVICE_RESULT_NOT_WHITELISTED 10 /**< "not_whitelisted": package and signature. */
#define SSO_SERVICE_RESULT_NO_SUCH_GROUP 11  /**< "no_such_group". */
#define SSO_SERVICE_RESULT_NOT_YOUR_OBJECT 12 /**< "not_your_object": the request named another
                                                   process's object (an answer, not a result). */
/** @} */

/**
 * @brief The stable snake_case name of a service result code
 *        ("no_such_account" for 6).
 * @param result A callback's result, or the service's answer
 *               (sso_last_service_answer()).
 * @return A static text, or NULL for a code the service does not define.
 */
SSO_API const char *sso_service_result_name(int result);

/** @} */

/**
 * @ingroup sso_login_notification
 * @brief Login state of the device account, as read from the setting
 *        "db/sso/login_status" that the SSO service writes.
 *
 * Only the stored value 1 reads as #SSO_LOGEDIN; any other stored value reads
 * as #SSO_NOT_LOGIN. A missing setting is a failure: sso_get_login_state()
 * returns -1 and leaves #SSO_NOT_LOGIN in its output.
 */
typedef enum {
    SSO_NOT_LOGIN = 0, /**< Nobody is signed in. */
    SSO_LOGEDIN = 1,   /**< A user is signed in (the name is spelled with one G). */
} sso_login_state;

/**
 * @ingroup sso_getters
 * @brief The signed-in account, as filled by sso_get_login_info().
 *
 * 1536 bytes of NUL-terminated fields, also reported by
 * get_size_of_sso_login_info_s(). A value longer than its field is cut to
 * the field's size less two bytes (126 characters, 1022 for the icon path).
 */
typedef struct {
    char login_id[128];        /**< Login id of the active account. */
    char password[128];        /**< Always written empty. */
    char guid[128];            /**< GUID of the active account. */
    char uid[128];             /**< UID of the active account. */
    char user_icon_path[1024]; /**< Path of the account's icon file. */
} sso_login_info_s;

/**
 * @ingroup sso_requests
 * @brief Profile of the signed-in user, handed by value to a
 *        #sso_get_user_info_cb.
 *
 * Every field is NUL-terminated; 1536 bytes in all. A text longer than its
 * field is cut to the field's size less two bytes (126 characters, 510 for
 * @c auth). The texts are whatever the SSO service sent.
 */
typedef struct {
    char user_id[128];       /**< User id. */
    char prefix_name[128];   /**< Name prefix (title). */
    char first_name[128];    /**< First name. */
    char last_name[128];     /**< Last name. */
    char birth_date[128];    /**< Birth date. */
    char zip_code[128];      /**< Postal code. */
    char mobile_num[128];    /**< Mobile phone number. */
    char receive_email[128]; /**< Whether the user receives e-mail, as the service writes it. */
    char auth[512];          /**< Authorisation text of the profile. */
} sso_user_info;

/**
 * @ingroup sso_requests
 * @brief Name-check data of the signed-in user.
 *
 * The library fills one of these from the service's answer to
 * sso_get_namecheck_auth_info() and hands its three fields to the
 * #sso_get_namecheck_auth_info_cb; applications do not receive the record
 * itself. Texts are cut to the field's size less two bytes.
 */
typedef struct {
    char birth_date[128]; /**< Birth date. */
    char age[128];        /**< Age. */
    char check_url[256];  /**< URL of the name check. */
} sso_name_check_auth_info_s;

/**
 * @ingroup sso_login_notification
 * @brief Login-state change for the single subscriber of
 *        sso_subscribe_login_state_change() and
 *        sso_subscribe_login_state_change_extra().
 *
 * Called after every write of the setting "db/sso/login_status", so the same
 * state may be reported twice in a row. It runs on the thread that runs the
 * GLib main context that was the subscribing thread's default when the
 * settings watch was installed (see @ref sso_login_notification), before the
 * callbacks of sso_register_login_state_changed_cb().
 *
 * @param user_data The user data given at subscription, unchanged.
 * @param result    Always 0.
 * @param state     The new state.
 * @param text      Signed in: the login id of the account. Signed out: the
 *                  login id of the account that was signed in before. With
 *                  the _extra subscription: "login id|GUID|event sub-type"
 *                  instead, where the sub-type is the third "|" piece of the
 *                  setting "memory/sso/event_extra", or "NONE" when it has
 *                  fewer than three pieces. Never NULL; empty when the account
 *                  data cannot be read. Owned by the library, valid only
 *                  during the call.
 * @param icon_path Signed in: the account's icon path (possibly empty).
 *                  Signed out: NULL. Owned by the library, valid only during
 *                  the call.
 * @return Ignored.
 */
typedef int (*sso_login_state_changed_cb)(void *user_data, int result, sso_login_state state,
                                          char *text, char *icon_path);

/**
 * @ingroup sso_login_notification
 * @brief Login-state change for the callbacks registered with
 *        sso_register_login_state_changed_cb().
 *
 * Called on the same thread and for the same writes as
 * #sso_login_state_changed_cb, after the single subscriber, one registered
 * callback after another in ascending order of their pointer values. The
 * user data given at registration is NOT passed back.
 *
 * @param state     The new state.
 * @param guid      Signed in: the GUID of the account. Signed out: the GUID of
 *                  the account that was signed in before. Never NULL; owned
 *                  by the library, valid only during the call.
 * @param icon_path Signed in: the account's icon path, a `char *` text
 *                  (possibly empty). Signed out: NULL. Owned by the library,
 *                  valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_login_state_changed_multi_cb)(sso_login_state state, char *guid, void *icon_path);

/**
 * @ingroup sso_account_ui
 * @brief Outcome of an account UI flow (sso_show() and its variants, the
 *        account verification and PIN requests).
 *
 * Runs on the thread that runs the GLib main context that was the calling
 * thread's default when the flow was started (see @ref sso_account_ui), or,
 * where a function says so, on the calling thread before it returns.
 *
 * @param user_data The user data of the request (see each function for the
 *                  exceptions).
 * @param result    0 on success, -1 on failure.
 * @param data      NULL for the sso_show() family. For the verification and
 *                  PIN requests: a JSON object with the members "result"
 *                  ("success", "change_account" or "failed") and "response"
 *                  (the account UI's own answer), or an empty text on
 *                  failure. Owned by the library, valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_account_ui_result_cb)(void *user_data, int result, char *data);

/**
 * @defgroup sso_lifecycle Life cycle and the service link
 * @brief Loading and unloading, the D-Bus link to the SSO service, and
 *        dropping the application's registrations.
 *
 * Loading the library marks it alive and creates the account data cache;
 * it talks to nobody. The first request of the process brings up the D-Bus
 * link: the system-bus connection, the process's own bus name
 * "org.orvex.tv.ssoservice.ssoclient." followed by "obj", the process id,
 * "_" and the application id, the account client object on which results
 * arrive, and the "SSOProxyMonitor" thread that receives them. Set-up waits
 * at most 10 s for the object to be in place and runs under a lock, so other
 * threads that request meanwhile wait with it. A connection that closed
 * (the bus restarted) is noticed by the next request, which builds the link
 * anew; results addressed to the old link are dropped.
 *
 * Unloading the library (dlclose() or the end of the process) first marks
 * it terminated, so that results, notifications and replies that arrive
 * late are dropped, then removes the settings watches, tears the link down
 * (joining "SSOProxyMonitor") and frees the caches. Do not call the API
 * from code that runs during that tear-down.
 * @{
 */

/**
 * @brief Asks whether the SSO service answers.
 *
 * Sends one request ("sso_check_alive") and waits for the service's
 * acceptance. No callback follows. Requests that need a running service make
 * the same check themselves until one of theirs succeeds, and trust that
 * success for the rest of the process.
 *
 * Any thread. Blocks for at most 5000 ms; the first request of the process
 * (and the first after the link broke or failed to come up) also brings up
 * the D-Bus link, up to 10 s more.
 *
 * @retval 0  The service accepted the request.
 * @retval -1 The service refused it, did not answer within 5000 ms or is not
 *            running, the link could not be set up, sso_give_proxy() was
 *            called, or the library is being unloaded.
 */
SSO_API int sso_check_alive(void);

/**
 * @brief Tears the library's D-Bus link down for the rest of the process.
 *
 * Unregisters the account client object, gives up the process's bus name and
 * joins the "SSOProxyMonitor" thread. From then on every request, and
 * sso_check_alive(), fails with -1 without any D-Bus traffic, and results not
 * yet delivered are lost. The local getters, the login notifications and the
 * account UI functions keep working. A second call does nothing.
 *
 * Any thread except "SSOProxyMonitor": never call it from a result callback,
 * since it joins the thread that callback runs on. Never waits on the bus:
 * a request blocked on the service or inside the link's set-up on another
 * thread is cut short (it returns -1), and when no request was made yet no
 * link is brought up. Blocks only until the thread has ended, that is until
 * a callback running there has returned.
 */
SSO_API void sso_give_proxy(void);

/** @} */

/**
 * @ingroup sso_getters
 * @brief Size in bytes of #sso_login_info_s, for callers that allocate it
 *        dynamically.
 *
 * Any thread; does not block.
 *
 * @return 1536.
 */
SSO_API int get_size_of_sso_login_info_s(void);

/**
 * @defgroup sso_getters Account getters
 * @brief Synchronous queries of the device's account state, answered from
 *        local data without asking the SSO service.
 *
 * The SSO service publishes the account state in the device's settings
 * store (login state, account count, account-view state) and the public
 * account document in secure storage; these functions read them on the
 * calling thread. The document is cached and read again only when the
 * service has bumped its version setting (or the last read failed). They may be called from any
 * thread, callbacks included, and never block beyond that local reading
 * (the cache is shared under a lock). A getter that needs a signed-in user
 * checks the login state first and fails with -1 before touching secure
 * storage when nobody is signed in.
 *
 * A text returned through a `char **` is a new NUL-terminated buffer from
 * calloc() that the caller releases with free(); on failure the pointer is
 * left untouched unless the function says otherwise.
 * @{
 */

/**
 * @brief Reads whether a user is signed in.
 *
 * Any thread; does not block.
 *
 * @param[out] state Receives #SSO_LOGEDIN when the setting
 *                   "db/sso/login_status" holds 1, else #SSO_NOT_LOGIN. Set to
 *                   #SSO_NOT_LOGIN first, so it holds that on failure. Must not
 *                   be NULL.
 * @retval 0  The state was read.
 * @retval -1 @p state is NULL, or the setting is missing or cannot be read.
 */
SSO_API int sso_get_login_state(sso_login_state *state);

/**
 * @brief Reads the number of accounts registered on the device (setting
 *        "db/sso/account_count").
 *
 * Any thread; does not block. No sign-in is needed.
 *
 * @param[out] count Receives the number; 0 when it cannot be read. Must not
 *                   be NULL.
 * @retval 0  The number was read.
 * @retval -1 @p count is NULL, or the setting is missing or cannot be read.
 */
SSO_API int sso_get_account_number(int *count);

/**
 * @brief Gives the GUID of the signed-in account.
 *
 * Any thread; does not block beyond reading the account document.
 *
 * @param[out] guid Receives a new NUL-terminated text that the caller
 *                  releases with free(). Untouched on failure. Must not be
 *                  NULL.
 * @retval 0    Success.
 * @retval -1   @p guid is NULL, nobody is signed in (or the login state cannot
 *              be read), the library is being unloaded, or the account
 *              document names no GUID (it cannot be read or has no active
 *              account).
 * @retval -101 The text could not be allocated.
 */
SSO_API int sso_get_guid(char **guid);

/**
 * @brief Gives the UID of the signed-in account.
 *
 * Any thread; does not block beyond reading the account document.
 *
 * @param[out] uid Receives a new NUL-terminated text that the caller releases
 *                 with free(). Untouched on failure. Must not be NULL.
 * @retval 0  Success.
 * @retval -1 @p uid is NULL, nobody is signed in, the library is being
 *            unloaded, the account document names no UID, or the text could
 *            not be allocated (no separate code here, unlike sso_get_guid()).
 */
SSO_API int sso_get_login_vd_uid(char **uid);

/**
 * @brief Gives the auth token of the signed-in account.
 *
 * The token is never written to the log, not even on a debug device. Any
 * thread; does not block beyond reading the account document.
 *
 * @param[out] auth_token Receives a new NUL-terminated text that the caller
 *                        releases with free(). Untouched on failure. Must not
 *                        be NULL.
 * @retval 0    Success.
 * @retval -1   @p auth_token is NULL, nobody is signed in, the library is
 *              being unloaded, or the account document holds no token.
 * @retval -101 The text could not be allocated.
 */
SSO_API int sso_get_auth_token(char **auth_token);

/**
 * @brief Gives the user device id of the signed-in account.
 *
 * Any thread; does not block beyond reading the account document.
 *
 * @param[out] device_id Receives a new NUL-terminated text that the caller
 *                       releases with free(). Untouched on failure. Must not
 *                       be NULL.
 * @retval 0  Success.
 * @retval -1 @p device_id is NULL, nobody is signed in, the library is being
 *            unloaded, the account document holds no device id, or the text
 *            could not be allocated.
 */
SSO_API int sso_get_device_id(char **device_id);

/**
 * @brief Fills the caller's record with the signed-in account's login id,
 *        GUID, UID and icon path.
 *
 * Only the five text fields are written (@c password empty); each is cut to
 * its size less two bytes. When the login state says signed in but the
 * account document cannot be read or names no active account, the fields are
 * written empty and the result is still 0. Any thread; does not block beyond
 * reading the account document.
 *
 * @param[out] login_info The caller's record. Must not be NULL.
 * @retval 0  The record was filled.
 * @retval -1 @p login_info is NULL, nobody is signed in (or the login state
 *            cannot be read), or the library is being unloaded; the record
 *            is then not written.
 */
SSO_API int sso_get_login_info(sso_login_info_s *login_info);

/**
 * @brief Gives the login id of the signed-in account.
 *
 * The login id comes from sso_get_login_info(), so it is an empty text when
 * the account document cannot be read. Any thread; does not block beyond
 * reading the account document.
 *
 * @param[out] user_id Receives a new NUL-terminated text that the caller
 *                     releases with free(). Untouched on failure. Must not be
 *                     NULL.
 * @retval 0  Success.
 * @retval -1 @p user_id is NULL, nobody is signed in, the library is being
 *            unloaded, or the text could not be allocated.
 */
SSO_API int sso_get_login_user_id(char **user_id);

/**
 * @brief Gives the signed-in account as a JSON object.
 *
 * The object has the string members "loginid", "password" (always ""),
 * "guid", "uid", "userIcon", "userPinSet", "userCountryCode",
 * "alpha2CountryCode", "displayName" and "userDeviceID". When the account
 * document cannot be read, every member is "". Any thread; does not block
 * beyond reading the account document.
 *
 * @param[out] json Receives a new NUL-terminated text that the caller
 *                  releases with free(). Untouched on failure. Must not be
 *                  NULL. If the text cannot be allocated the result is still
 *                  0 and @p *json is left as it was, so set it to NULL before
 *                  the call.
 * @retval 0  Success (see @p json for the allocation failure).
 * @retval -1 @p json is NULL, nobody is signed in (or the login state cannot
 *            be read), or the text could not be made.
 */
SSO_API int sso_get_login_json_info(char **json);

/**
 * @brief Gives the device's whole public account document (every registered
 *        account) as the JSON text the SSO service wrote.
 *
 * No sign-in is needed. Any thread; does not block beyond reading the
 * account document.
 *
 * @param[out] accounts Receives a new NUL-terminated text that the caller
 *                      releases with free(). Also set after a failed read of
 *                      the document, to an empty text that the caller must
 *                      free as well. Must not be NULL.
 * @retval 0  Success.
 * @retval -1 The document could not be read (@p *accounts then holds an
 *            empty text), or, with @p *accounts untouched: @p accounts is
 *            NULL, the library is being unloaded, or the text could not be
 *            allocated.
 */
SSO_API int sso_get_accounts(char **accounts);

/**
 * @brief Tells whether the account UI shows a popup (setting
 *        "memory/sso/view_status" equal to 1).
 *
 * Any thread; does not block.
 *
 * @param[out] state Receives 1 when the view state is 1, else 0 (also on
 *                   failure). Must not be NULL.
 * @retval 0  The state was read.
 * @retval -1 @p state is NULL, or the setting is missing or cannot be read.
 */
SSO_API int sso_get_popup_state(int *state);

/**
 * @brief Gives the application id of the account UI,
 *        "com.veltra.tv.CSAccount".
 *
 * Any thread; does not block.
 *
 * @param[out] package_id Receives a new NUL-terminated text that the caller
 *                        releases with free(). Untouched on failure. Must not
 *                        be NULL.
 * @retval 0  Success.
 * @retval -1 @p package_id is NULL or the text could not be allocated.
 */
SSO_API int sso_get_account_ui_application_package_id(char **package_id);

/** @} */

/**
 * @defgroup sso_login_notification Login notification
 * @brief Callbacks on sign-in and sign-out.
 *
 * The library watches the setting "db/sso/login_status" and calls, after
 * every write of it, first the single subscriber
 * (sso_subscribe_login_state_change() or its _extra form), then every
 * callback registered with sso_register_login_state_changed_cb(). One
 * settings watch serves both; the first successful subscription or
 * registration installs it.
 *
 * Threads: the callbacks run on the thread that runs the GLib main context
 * that was the thread default of the thread that installed the watch (the
 * global default context when that thread had pushed none), and only while a
 * main loop runs that context. Call these functions, and sso_cb_reset(),
 * from that thread, the application's main-loop thread: they take no locks.
 * None of them blocks. A callback may call the getters and these functions;
 * a registration or removal made during a notification takes effect from
 * the next one.
 * @{
 */

/**
 * @brief Makes @p callback the single login-state subscriber, replacing any
 *        earlier one without notice.
 *
 * Installs the settings watch if it is not installed. Call from the
 * application's main-loop thread (see @ref sso_login_notification).
 *
 * @param callback  Called on every login-state change; see
 *                  #sso_login_state_changed_cb. NULL is accepted and leaves
 *                  no single subscriber (the watch is installed all the
 *                  same).
 * @param user_data Handed back to @p callback unchanged; may be NULL.
 * @retval 0  Subscribed.
 * @retval -1 The settings watch could not be installed; the single
 *            subscriber is then cleared (registered callbacks stay).
 */
SSO_API int sso_subscribe_login_state_change(sso_login_state_changed_cb callback, void *user_data);

/**
 * @brief As sso_subscribe_login_state_change(), with the extended text
 *        "login id|GUID|event sub-type" in the callback's @c text.
 *
 * The extended form is switched on before subscribing and stays on, even
 * when this call fails and for later plain subscriptions, until
 * sso_unsubscribe_login_state_change() or sso_cb_reset(). Call from the
 * application's main-loop thread.
 *
 * @param callback  As for sso_subscribe_login_state_change().
 * @param user_data As for sso_subscribe_login_state_change().
 * @retval 0  Subscribed.
 * @retval -1 The settings watch could not be installed; the single
 *            subscriber is then cleared.
 */
SSO_API int sso_subscribe_login_state_change_extra(sso_login_state_changed_cb callback,
                                                   void *user_data);

/**
 * @brief Removes the single subscriber, switches the extended text off and
 *        removes the settings watch.
 *
 * The watch goes even while registered callbacks remain: they stay
 * registered but hear nothing until a later subscription or registration
 * installs it again. Call from the application's main-loop thread; once it
 * returns, no login callback runs any more.
 *
 * @return 0.
 */
SSO_API int sso_unsubscribe_login_state_change(void);

/**
 * @brief Adds @p callback to the registered login-state callbacks.
 *
 * Installs the settings watch if it is not installed. Call from the
 * application's main-loop thread.
 *
 * @param callback  Called on every login-state change; see
 *                  #sso_login_state_changed_multi_cb. A NULL callback is
 *                  accepted and never called.
 * @param user_data Stored with the registration but NOT passed to
 *                  @p callback; may be NULL.
 * @retval 0  Registered.
 * @retval -1 @p callback is registered already (its stored user data is
 *            kept), or the settings watch could not be installed.
 */
SSO_API int sso_register_login_state_changed_cb(sso_login_state_changed_multi_cb callback,
                                                void *user_data);

/**
 * @brief Removes @p callback from the registered login-state callbacks.
 *
 * When no registered callback and no single subscriber remain, the settings
 * watch is removed too. Call from the application's main-loop thread.
 *
 * @param callback The callback given to sso_register_login_state_changed_cb();
 *                 one that is not registered (NULL included) is no error.
 * @return 0.
 */
SSO_API int sso_unregister_login_state_changed_cb(sso_login_state_changed_multi_cb callback);

/** @} */

/**
 * @ingroup sso_lifecycle
 * @brief Drops the notification state the library keeps for the
 *        application.
 *
 * Does what sso_unsubscribe_login_state_change() does (single subscriber,
 * extended text, login-state watch: registered callbacks stay registered but
 * hear nothing until the watch is installed again), disarms the account-view
 * callback of sso_show() and removes its settings watch (the next sso_show()
 * installs it anew, with that call's user data), and forgets the cached
 * answer to whether the device is a hotel product. A pending account
 * verification or PIN callback is kept. Call from the application's
 * main-loop thread; does not block.
 *
 * @return 0.
 */
SSO_API int sso_cb_reset(void);

/**
 * @defgroup sso_policy Policy
 * @brief Local answers to how the device treats the absence of a signed-in
 *        user.
 *
 * Decided from product feature flags, settings and marker files, read afresh
 * at every call; the SSO service is not asked. Any thread; they never block.
 * Marker files are device paths (on this Linux platform they are looked up
 * under `$SSO_PLATFORM_ROOT/fs`).
 * @{
 */

/**
 * @brief Whether the user must be made to sign in before using the device.
 *
 * Sign-in is enforced exactly when the marker file
 * "/opt/share/com.veltra.tv.CSAccount/enforce_login" exists, the feature
 * "com.veltra/featureconf/account.signin_mandatory" is true, the setting
 * "db/comss/enforcelogin" is not 2 (0, undecided, counts as yes; a setting
 * that cannot be read counts as 2), and the setting
 * "db/sso/disable_enforcelogin" is not true (an unreadable one counts as
 * false). Without the marker file nothing else is read.
 *
 * @retval 1 Sign-in is enforced.
 * @retval 0 It is not (also after an internal failure).
 */
SSO_API int sso_check_enforce_login_condition(void);

/**
 * @brief Whether the current signed-out state is only a temporary logout.
 *
 * True when the setting "db/sso/temp_logout_status" is 1 or cannot be read;
 * false for any other value. The marker file
 * "/opt/share/com.veltra.tv.CSAccount/temp_logout_test_flag" inverts the
 * answer, for testing.
 *
 * @retval 1 Temporary logout.
 * @retval 0 Not a temporary logout (also after an internal failure).
 */
SSO_API int sso_check_temporary_logout_condition(void);

/**
 * @brief Retired query of a terms state: always fails.
 *
 * Logs @p term_id and nothing else. Any thread; does not block.
 *
 * @param term_id Only logged; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_get_term_state(const char *term_id);

/** @} */

/**
 * @defgroup sso_requests Service requests
 * @brief Asynchronous requests answered by the SSO service: access tokens,
 *        auth codes, account operations, profile and group queries.
 *
 * Each request function checks its arguments and local preconditions, then
 * sends one D-Bus request to the SSO service and returns its acceptance:
 * 0 accepted, -1 refused locally (nothing is sent), refused by the service,
 * not answered in time, or the link is down or given up. The requests that
 * create or register an account return -100, sending nothing, when the
 * device already holds six accounts and the account named is not one of
 * them.
 *
 * Blocking: the calling thread (any application thread) waits for at most
 * 5000 ms for the acceptance. A request that needs a running service first
 * asks sso_check_alive() until that succeeds once in the process (another
 * 5000 ms at most); the first request of the process, and the first after
 * the link broke, also brings up the D-Bus link (up to 10 s, see
 * @ref sso_lifecycle).
 *
 * Results: an accepted request's result arrives later, once, through its
 * callback, which runs on the library's "SSOProxyMonitor" thread, never on
 * the caller's thread, one callback at a time for the whole process; a
 * callback that blocks holds up every later result. The callback gets the
 * request's @c user_data unchanged, the SSO service's own result code
 * passed through unchanged (0 success; other values are the service's), and
 * texts that belong to the library and are valid only during the call: copy
 * what you keep. A callback's return value is ignored. A refused request
 * never calls back. The library sets no deadline for results: one can be
 * lost if the service does not answer, if the link was rebuilt or given up
 * meanwhile, or while the library is being unloaded, so keep @c user_data
 * valid until the callback has run and wait with a deadline of your own.
 * A callback may make further requests but must not call sso_give_proxy().
 *
 * Optional texts: where a parameter says "NULL means none", NULL is sent as
 * absent while "" is sent as an empty text. Passwords are never logged;
 * secret keys, auth codes and tokens only on a device that carries the debug
 * marker file "/etc/debug".
 * @{
 */

/**
 * @brief Result of an access-token request.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data    The request's user data, unchanged.
 * @param result       The SSO service's result code (0 success).
 * @param access_token The access token, as sent by the service. Owned by the
 *                     library, valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_request_access_token_cb)(void *user_data, int result, char *access_token);

/**
 * @brief Result of an auth-code request.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data The request's user data, unchanged.
 * @param result    The SSO service's result code (0 success).
 * @param auth_code The auth code, as sent by the service. Owned by the
 *                  library, valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_request_auth_code_cb)(void *user_data, int result, char *auth_code);

/**
 * @brief Result of sso_generate_token_with_authcode_dsc() and
 *        sso_generate_token_with_authcode_dsc_noti(): the result code only.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data The request's user data, unchanged.
 * @param result    The SSO service's result code (0 success).
 * @return Ignored.
 */
typedef int (*sso_token_with_authcode_cb)(void *user_data, int result);

/**
 * @brief Result of sso_generate_token_with_authcode_dsc_deleteFlag() and
 *        sso_generate_token_with_ID_PWD().
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data     The request's user data, unchanged.
 * @param result        The SSO service's result code (0 success).
 * @param response_data The service's response text. Owned by the library,
 *                      valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_token_response_cb)(void *user_data, int result, char *response_data);

/**
 * @brief Result of an account operation, or of a profile or group query that
 *        answers with the service's text.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data     The request's user data, unchanged.
 * @param result        The SSO service's result code (0 success).
 * @param response_data The service's response text (JSON as the service
 *                      writes it). Owned by the library, valid only during
 *                      the call.
 * @return Ignored.
 */
typedef int (*sso_response_data_cb)(void *user_data, int result, char *response_data);

/**
 * @brief Result of sso_identify_current_user_info().
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data    The request's user data, unchanged.
 * @param result       The SSO service's result code (0 success).
 * @param birthday     The user's birthday. Owned by the library, valid only
 *                     during the call.
 * @param identify_url The identity-verification URL. Owned by the library,
 *                     valid only during the call.
 * @return Ignored.
 */
typedef int (*sso_identify_user_info_cb)(void *user_data, int result, char *birthday,
                                         char *identify_url);

/**
 * @brief Result of sso_get_user_info().
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data The request's user data, unchanged.
 * @param result    The SSO service's result code (0 success).
 * @param info      The user's profile, passed by value (the callee's own
 *                  copy), texts cut to their field's size less two bytes.
 * @return Ignored.
 */
typedef int (*sso_get_user_info_cb)(void *user_data, int result, sso_user_info info);

/**
 * @brief Result of sso_get_namecheck_auth_info(): a success flag, NOT a
 *        result code, and the name-check texts.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests). The texts are those of
 * #sso_name_check_auth_info_s, cut to the field's size less two bytes; owned
 * by the library, valid only during the call.
 *
 * @param user_data  The request's user data, unchanged.
 * @param success    true when the service's result code is 0.
 * @param birth_date The user's birth date.
 * @param age        The user's age.
 * @param check_url  The name-check URL.
 * @return Ignored.
 */
typedef int (*sso_get_namecheck_auth_info_cb)(void *user_data, bool success, char *birth_date,
                                              char *age, char *check_url);

/**
 * @brief Result of sso_get_user_json_info().
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data The request's user data, unchanged.
 * @param result    The SSO service's result code (0 success).
 * @param json      A JSON object of the profile and the user's country
 *                  codes (see sso_get_user_json_info()); NULL only when the
 *                  text could not be allocated. Owned by the library, valid
 *                  only during the call.
 * @return Ignored.
 */
typedef int (*sso_user_json_info_cb)(void *user_data, int result, char *json);

/* ---- tokens and auth codes ---- */

/**
 * @brief Asks for an access token of application @p app_id for @p scope.
 *
 * Needs a running service and a signed-in user. Blocks for at most 5000 ms
 * (see @ref sso_requests); @p callback later gets the token on
 * "SSOProxyMonitor".
 *
 * @param app_id     The application (client) id. Must not be NULL.
 * @param secret_key The application's secret. Must not be NULL.
 * @param scope      The scope; NULL means none.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_request_access_token_with_scope(const char *app_id, const char *secret_key,
                                                const char *scope,
                                                sso_request_access_token_cb callback,
                                                void *user_data);

/**
 * @brief sso_request_access_token_with_scope() without a scope.
 *
 * Same checks, blocking and callback thread.
 *
 * @param app_id     The application (client) id. Must not be NULL.
 * @param secret_key The application's secret. Must not be NULL.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 As for sso_request_access_token_with_scope().
 */
SSO_API int sso_request_access_token(const char *app_id, const char *secret_key,
                                     sso_request_access_token_cb callback, void *user_data);

/**
 * @brief Exchanges @p auth_code for an access token.
 *
 * Needs a signed-in user; the service's liveness is not checked first.
 * Blocks for at most 5000 ms; @p callback later gets the token on
 * "SSOProxyMonitor".
 *
 * @param app_id     The application (client) id. Must not be NULL.
 * @param secret_key The application's secret. Must not be NULL.
 * @param auth_code  The auth code to exchange. Must not be NULL.
 * @param scope      The scope; NULL means none.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, nobody is signed in, or the
 *            request was refused or failed.
 */
SSO_API int sso_request_access_token_using_authcode(const char *app_id, const char *secret_key,
                                                    const char *auth_code, const char *scope,
                                                    sso_request_access_token_cb callback,
                                                    void *user_data);

/**
 * @brief Asks for an auth code of the signed-in user for @p app_id.
 *
 * Needs a running service and a signed-in user. Blocks for at most 5000 ms;
 * @p callback later gets the code on "SSOProxyMonitor".
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_request_auth_code(const char *app_id, const char *scope,
                                  sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for a user auth code for @p app_id.
 *
 * Needs a running service and a signed-in user. Blocks for at most 5000 ms;
 * @p callback later gets the code on "SSOProxyMonitor".
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_request_user_authcode(const char *app_id, const char *scope,
                                      sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for a device auth code for @p app_id.
 *
 * Needs a running service; the login state is not checked, so it works with
 * or without a signed-in user. Blocks for at most 5000 ms; @p callback later
 * gets the code on "SSOProxyMonitor".
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, the service is not running, or
 *            the request was refused or failed.
 */
SSO_API int sso_request_device_authcode(const char *app_id, const char *scope,
                                        sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief Asks for an auth code for effortless login.
 *
 * Needs a signed-in user; the service's liveness is not checked first.
 * Blocks for at most 5000 ms; @p callback later gets the code on
 * "SSOProxyMonitor".
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, nobody is signed in, or the
 *            request was refused or failed.
 */
SSO_API int sso_request_auth_code_for_effortless_login(const char *app_id, const char *scope,
                                                       sso_request_auth_code_cb callback,
                                                       void *user_data);

/**
 * @brief Asks for an auth code with an account id and its password.
 *
 * Note the order: @p user_data comes BEFORE @p callback. Neither the login
 * state nor the service's liveness is checked. The password is never
 * logged. Blocks for at most 5000 ms; @p callback later gets the code on
 * "SSOProxyMonitor".
 *
 * @param app_id     The application (client) id. Must not be NULL.
 * @param account_id The account's id. Must not be NULL.
 * @param passwd     The account's password. Must not be NULL.
 * @param scope      The scope; NULL means none.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param callback   Receives the result. Must not be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, or the request was refused or
 *            failed.
 */
SSO_API int sso_request_authcode_with_ID_PWD(const char *app_id, const char *account_id,
                                             const char *passwd, const char *scope, void *user_data,
                                             sso_request_auth_code_cb callback);

/**
 * @brief Asks for an auth code for another device, identified by its device
 *        security code.
 *
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later gets the code on "SSOProxyMonitor".
 *
 * @param dsc       The other device's security code; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, or the request was refused or failed.
 */
SSO_API int sso_request_authcode_for_other_device(const char *dsc,
                                                  sso_request_auth_code_cb callback,
                                                  void *user_data);

/**
 * @brief Has the service create the device account of @p userid from
 *        @p authcode, telling the user when @p use_notification is true.
 *
 * Refused at once on a hotel product, before the arguments are looked at.
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later gets the result code on
 * "SSOProxyMonitor".
 *
 * @param authcode         The auth code. Must not be NULL.
 * @param userid           The account's user id. Must not be NULL.
 * @param dsc              The device security code; NULL means none.
 * @param callback         Receives the result; may be NULL, and then no
 *                         result is delivered.
 * @param user_data        Handed back to @p callback; may be NULL.
 * @param use_notification Whether the service tells the user.
 * @retval 0    Accepted.
 * @retval -100 The device holds six accounts and @p userid is not one of
 *              them (nothing is sent).
 * @retval -1   A hotel product, a NULL @p authcode or @p userid, or the
 *              request was refused or failed.
 */
SSO_API int sso_generate_token_with_authcode_dsc_noti(const char *authcode, const char *userid,
                                                      const char *dsc,
                                                      sso_token_with_authcode_cb callback,
                                                      void *user_data, bool use_notification);

/**
 * @brief sso_generate_token_with_authcode_dsc_noti() with the notification
 *        on.
 *
 * @param authcode  The auth code. Must not be NULL.
 * @param userid    The account's user id. Must not be NULL.
 * @param dsc       The device security code; NULL means none.
 * @param callback  Receives the result; may be NULL (no result is then
 *                  delivered).
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0    Accepted.
 * @retval -100 At the six-account limit (see the _noti form).
 * @retval -1   As for sso_generate_token_with_authcode_dsc_noti().
 */
SSO_API int sso_generate_token_with_authcode_dsc(const char *authcode, const char *userid,
                                                 const char *dsc,
                                                 sso_token_with_authcode_cb callback,
                                                 void *user_data);

/**
 * @brief As sso_generate_token_with_authcode_dsc_noti(), with the user id
 *        first and a delete flag for the service; the callback also gets the
 *        service's response text.
 *
 * Refused at once on a hotel product. Neither the login state nor the
 * service's liveness is checked. Blocks for at most 5000 ms; @p callback
 * later runs on "SSOProxyMonitor".
 *
 * @param userid      The account's user id. Must not be NULL.
 * @param authcode    The auth code. Must not be NULL.
 * @param delete_flag Passed to the service.
 * @param dsc         The device security code; NULL means none.
 * @param callback    Receives the result; may be NULL (no result is then
 *                    delivered).
 * @param user_data   Handed back to @p callback; may be NULL.
 * @retval 0    Accepted.
 * @retval -100 The device holds six accounts and @p userid is not one of
 *              them.
 * @retval -1   A hotel product, a NULL @p userid or @p authcode, or the
 *              request was refused or failed.
 */
SSO_API int sso_generate_token_with_authcode_dsc_deleteFlag(const char *userid,
                                                            const char *authcode, bool delete_flag,
                                                            const char *dsc,
                                                            sso_token_response_cb callback,
                                                            void *user_data);

/**
 * @brief Has the service create the device account of @p userid from its
 *        password.
 *
 * Refused at once on a hotel product. Neither the login state nor the
 * service's liveness is checked. The password is never logged. Blocks for
 * at most 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param userid      The account's user id. Must not be NULL.
 * @param passwd      The account's password. Must not be NULL.
 * @param delete_flag Passed to the service.
 * @param callback    Receives the result; may be NULL (no result is then
 *                    delivered).
 * @param user_data   Handed back to @p callback; may be NULL.
 * @retval 0    Accepted.
 * @retval -100 The device holds six accounts and @p userid is not one of
 *              them.
 * @retval -1   A hotel product, a NULL @p userid or @p passwd, or the
 *              request was refused or failed.
 */
SSO_API int sso_generate_token_with_ID_PWD(const char *userid, const char *passwd, bool delete_flag,
                                           sso_token_response_cb callback, void *user_data);

/**
 * @brief Retired: use sso_generate_token_with_authcode_dsc(). Always fails.
 *
 * Sends nothing, never calls back and does not block.
 *
 * @param authcode  Ignored; may be NULL.
 * @param userid    Ignored; may be NULL.
 * @param callback  Never called; may be NULL.
 * @param user_data Ignored; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_generate_token_with_authcode(const char *authcode, const char *userid,
                                             sso_token_with_authcode_cb callback, void *user_data);

/* ---- auth codes bound to a device security code ---- */

/**
 * @brief Asks for a user auth code bound to a device security code.
 *
 * Needs a running service and a signed-in user. Blocks for at most 5000 ms;
 * @p callback later gets the code on "SSOProxyMonitor".
 *
 * @param app_id        The application (client) id. Must not be NULL.
 * @param scope         The scope; NULL means none.
 * @param dsc           The device security code; NULL means none.
 * @param response_type The response type; NULL means none.
 * @param callback      Receives the result. Must not be NULL.
 * @param user_data     Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_request_user_authcode_with_dsc(const char *app_id, const char *scope,
                                               const char *dsc, const char *response_type,
                                               sso_request_auth_code_cb callback, void *user_data);

/**
 * @brief As sso_request_user_authcode_with_dsc(), with a PKCE code
 *        challenge.
 *
 * @param app_id         The application (client) id. Must not be NULL.
 * @param scope          The scope; NULL means none.
 * @param dsc            The device security code; NULL means none.
 * @param response_type  The response type; NULL means none.
 * @param code_challenge The code challenge. Must not be NULL; may be empty.
 * @param callback       Receives the result. Must not be NULL.
 * @param user_data      Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id, @p code_challenge or @p callback, the service
 *            is not running, nobody is signed in, or the request was refused
 *            or failed.
 */
SSO_API int sso_request_user_authcode_with_challenge(const char *app_id, const char *scope,
                                                     const char *dsc, const char *response_type,
                                                     const char *code_challenge,
                                                     sso_request_auth_code_cb callback,
                                                     void *user_data);

/**
 * @brief As sso_request_user_authcode_with_dsc(), with a PKCE code
 *        verifier.
 *
 * @param app_id        The application (client) id. Must not be NULL.
 * @param scope         The scope; NULL means none.
 * @param dsc           The device security code; NULL means none.
 * @param response_type The response type; NULL means none.
 * @param code_verifier The code verifier. Must not be NULL; may be empty.
 * @param callback      Receives the result. Must not be NULL.
 * @param user_data     Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id, @p code_verifier or @p callback, the service
 *            is not running, nobody is signed in, or the request was refused
 *            or failed.
 */
SSO_API int sso_request_user_authcode_with_verifier(const char *app_id, const char *scope,
                                                    const char *dsc, const char *response_type,
                                                    const char *code_verifier,
                                                    sso_request_auth_code_cb callback,
                                                    void *user_data);

/* ---- account operations ---- */

/**
 * @brief Registers the account @p account_id with @p authcode and a device
 *        security code, signing it in when @p perform_login_flag is true.
 *
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param account_id         The account's id. Must not be NULL.
 * @param authcode           The auth code. Must not be NULL.
 * @param dsc                The device security code, sent as given (there
 *                           is no "none" here: pass "" when there is no
 *                           code). Must not be NULL.
 * @param callback           Receives the result. Must not be NULL.
 * @param user_data          Handed back to @p callback; may be NULL.
 * @param perform_login_flag Whether the service signs the account in.
 * @retval 0    Accepted.
 * @retval -100 The device holds six accounts and @p account_id is not one of
 *              them (nothing is sent).
 * @retval -1   A NULL argument that must not be, or the request was refused
 *              or failed.
 */
SSO_API int sso_register_account(const char *account_id, const char *authcode, const char *dsc,
                                 sso_response_data_cb callback, void *user_data,
                                 bool perform_login_flag);

/**
 * @brief Signs the current user out.
 *
 * Needs a signed-in user. Blocks for at most 5000 ms; @p callback later runs
 * on "SSOProxyMonitor".
 *
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param confirm_id A confirmation id for the service; NULL means none.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, nobody is signed in, or the request was
 *            refused or failed.
 */
SSO_API int sso_perform_logout(sso_response_data_cb callback, void *user_data,
                               const char *confirm_id);

/**
 * @brief Checks @p passwd against the signed-in account.
 *
 * Needs a signed-in user. The password is never logged. Blocks for at most
 * 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param passwd    The password to check. Must not be NULL.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p passwd or @p callback, nobody is signed in, or the
 *            request was refused or failed.
 */
SSO_API int sso_verify_password(const char *passwd, sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the list of the device's accounts.
 *
 * Needs a running service; no sign-in is needed. Blocks for at most 5000 ms;
 * @p callback later runs on "SSOProxyMonitor".
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, the service is not running, or the request
 *            was refused or failed.
 */
SSO_API int sso_request_account_list(sso_response_data_cb callback, void *user_data);

/**
 * @brief Sets the password of @p account_id.
 *
 * Neither the login state nor the service's liveness is checked. The
 * password is never logged. Blocks for at most 5000 ms; @p callback later
 * runs on "SSOProxyMonitor".
 *
 * @param account_id The account's id. Must not be NULL.
 * @param password   The new password. Must not be NULL.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, or the request was refused or
 *            failed.
 */
SSO_API int sso_set_passfw(const char *account_id, const char *password,
                           sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for a password-reset mail to @p email.
 *
 * Needs a running service; no sign-in is needed. Blocks for at most 5000 ms;
 * @p callback later runs on "SSOProxyMonitor".
 *
 * @param email     The address. Must not be NULL.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p email or @p callback, the service is not running, or
 *            the request was refused or failed.
 */
SSO_API int sso_request_reset_passwd(const char *email, sso_response_data_cb callback,
                                     void *user_data);

/**
 * @brief Switches the active account to @p account_id.
 *
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param account_id The account's id. Must not be NULL or empty.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param extra      Passed to the service; NULL and "" both mean none.
 * @retval 0  Accepted.
 * @retval -1 A NULL or empty @p account_id, a NULL @p callback, or the
 *            request was refused or failed.
 */
SSO_API int sso_switch_account(const char *account_id, sso_response_data_cb callback,
                               void *user_data, const char *extra);

/**
 * @brief Switches the active account to the account with GUID @p guid.
 *
 * As sso_switch_account().
 *
 * @param guid      The account's GUID. Must not be NULL or empty.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @param extra     Passed to the service; NULL and "" both mean none.
 * @retval 0  Accepted.
 * @retval -1 A NULL or empty @p guid, a NULL @p callback, or the request was
 *            refused or failed.
 */
SSO_API int sso_switch_account_by_guid(const char *guid, sso_response_data_cb callback,
                                       void *user_data, const char *extra);

/**
 * @brief Switches the active account to @p account_id with a user token.
 *
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param account_id The account's id. Must not be NULL or empty.
 * @param callback   Receives the result. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param usertoken  The user token. Must not be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL or empty @p account_id, a NULL @p callback or
 *            @p usertoken, or the request was refused or failed.
 */
SSO_API int sso_switch_account_with_usertoken(const char *account_id, sso_response_data_cb callback,
                                              void *user_data, const char *usertoken);

/**
 * @brief Asks the service whether the account can be switched now.
 *
 * No callback: the service's acceptance is the answer. Blocks for at most
 * 5000 ms (plus the link set-up of a first request).
 *
 * @retval true  The service accepted, that is: switching is available.
 * @retval false It refused, did not answer in time or is not running.
 */
SSO_API bool sso_is_account_switching_available(void);

/**
 * @brief Has the service announce the current account again.
 *
 * Needs a signed-in user (checked first) and a running service. No
 * callback. Blocks for at most 5000 ms.
 *
 * @retval 0  Accepted.
 * @retval -1 Nobody is signed in, the service is not running, or the request
 *            was refused or failed.
 */
SSO_API int sso_request_current_account_noti(void);

/**
 * @brief Asks the service to reset.
 *
 * No local checks and no callback. Blocks for at most 5000 ms.
 *
 * @retval 0  Accepted.
 * @retval -1 Refused or failed.
 */
SSO_API int sso_reset(void);

/* ---- profile and groups ---- */

/**
 * @brief Asks for the signed-in user's profile as the service's JSON text.
 *
 * Needs a signed-in user. Blocks for at most 5000 ms; @p callback later runs
 * on "SSOProxyMonitor".
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, nobody is signed in, or the request was
 *            refused or failed.
 */
SSO_API int sso_get_user_info_v4(sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the signed-in user's profile as a #sso_user_info record.
 *
 * Needs a signed-in user. Blocks for at most 5000 ms; @p callback later runs
 * on "SSOProxyMonitor".
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, nobody is signed in, or the request was
 *            refused or failed.
 */
SSO_API int sso_get_user_info(sso_get_user_info_cb callback, void *user_data);

/**
 * @brief Asks for the identity-verification data of the current user.
 *
 * Neither the login state nor the service's liveness is checked, so it also
 * serves a device nobody has signed in to. Blocks for at most 5000 ms;
 * @p callback later runs on "SSOProxyMonitor".
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, or the request was refused or failed.
 */
SSO_API int sso_identify_current_user_info(sso_identify_user_info_cb callback, void *user_data);

/**
 * @brief Asks for the signed-in user's name-check data.
 *
 * Needs a signed-in user. Blocks for at most 5000 ms; @p callback later runs
 * on "SSOProxyMonitor" with a success flag instead of a result code.
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, nobody is signed in, or the request was
 *            refused or failed.
 */
SSO_API int sso_get_namecheck_auth_info(sso_get_namecheck_auth_info_cb callback, void *user_data);

/**
 * @brief Asks for the dynamic list of the user's accounts.
 *
 * Neither the login state nor the service's liveness is checked. Blocks for
 * at most 5000 ms; @p callback later runs on "SSOProxyMonitor".
 *
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p callback, or the request was refused or failed.
 */
SSO_API int sso_get_dynamic_my_account_list(sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the family group of the signed-in user.
 *
 * Needs a running service and a signed-in user. The access token is logged
 * only on a debug device. Blocks for at most 5000 ms; @p callback later runs
 * on "SSOProxyMonitor".
 *
 * @param app_id       The application (client) id. Must not be NULL.
 * @param access_token An access token of the application. Must not be NULL.
 * @param callback     Receives the result. Must not be NULL.
 * @param user_data    Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_get_user_family_group(const char *app_id, const char *access_token,
                                      sso_response_data_cb callback, void *user_data);

/**
 * @brief Asks for the members of the group @p group_id.
 *
 * As sso_get_user_family_group().
 *
 * @param app_id       The application (client) id. Must not be NULL.
 * @param access_token An access token of the application. Must not be NULL.
 * @param group_id     The group. Must not be NULL.
 * @param callback     Receives the result. Must not be NULL.
 * @param user_data    Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, the service is not running,
 *            nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_get_user_group_users(const char *app_id, const char *access_token,
                                     const char *group_id, sso_response_data_cb callback,
                                     void *user_data);

/**
 * @brief sso_get_user_info() with the profile handed to @p callback as a
 *        JSON text.
 *
 * The JSON object has the string members "user_id", "prefix_name",
 * "first_name", "last_name", "birth_date", "zip_code", "mobile_num",
 * "receive_email" (the profile without @c auth), "alpha2CountryCode" (the
 * setting "db/sso/sa_user_country_code") and "userCountryCode" (the
 * three-letter code of "db/sso/sa_user_country_code_3alpha"). Needs a
 * signed-in user. Blocks for at most 5000 ms; @p callback later runs on
 * "SSOProxyMonitor". A few bytes of bookkeeping stay allocated for a request
 * that is refused, in case its result still arrives.
 *
 * @param callback  Receives the result. Not checked here: a NULL callback
 *                  only means the result is dropped when it arrives. It is
 *                  not called when the JSON text cannot be made.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 Nobody is signed in, or the request was refused or failed.
 */
SSO_API int sso_get_user_json_info(sso_user_json_info_cb callback, void *user_data);

/* ---- retired: partner authentication and content-provider accounts ---- */

/**
 * @brief Retired partner-authentication query. Always fails.
 *
 * Sends nothing, never calls back and does not block.
 *
 * @param auth_key  Ignored; may be NULL.
 * @param callback  Never called; may be NULL.
 * @param user_data Ignored; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_get_partner_auth_info(const char *auth_key, sso_response_data_cb callback,
                                      void *user_data);
/**
 * @brief Retired partner-authentication store. Always fails.
 *
 * Sends nothing, never calls back and does not block.
 *
 * @param auth_key   Ignored; may be NULL.
 * @param auth_value Ignored; may be NULL.
 * @param callback   Never called; may be NULL.
 * @param user_data  Ignored; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_save_partner_auth_info(const char *auth_key, const char *auth_value,
                                       sso_response_data_cb callback, void *user_data);
/**
 * @brief Retired partner-authentication removal. Always fails.
 *
 * Sends nothing, never calls back and does not block.
 *
 * @param auth_key  Ignored; may be NULL.
 * @param callback  Never called; may be NULL.
 * @param user_data Ignored; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_clear_partner_auth_info(const char *auth_key, sso_response_data_cb callback,
                                        void *user_data);
/**
 * @brief Retired content-provider account query. Always fails.
 *
 * Sends nothing and does not block.
 *
 * @param cp_id           Ignored; may be NULL.
 * @param cp_account_info Not written; may be NULL.
 * @return -1, always.
 */
SSO_API int sso_get_cp_account_info(const char *cp_id, char **cp_account_info);
/**
 * @brief Retired content-provider mapping list. Answers only by login state.
 *
 * Sends nothing, never calls back and does not block beyond reading the
 * login state.
 *
 * @param callback  Never called; may be NULL.
 * @param user_data Ignored; may be NULL.
 * @retval 0  A user is signed in.
 * @retval -1 Nobody is signed in (or the state cannot be read).
 */
SSO_API int sso_get_cp_account_mapping_list(sso_response_data_cb callback, void *user_data);
/**
 * @brief Retired content-provider mapping addition. Answers only by login
 *        state.
 *
 * Sends nothing, never calls back and does not block beyond reading the
 * login state.
 *
 * @param cp_id      Ignored; may be NULL.
 * @param cp_user_id Ignored; may be NULL.
 * @param callback   Never called; may be NULL.
 * @param user_data  Ignored; may be NULL.
 * @retval 0  A user is signed in.
 * @retval -1 Nobody is signed in (or the state cannot be read).
 */
SSO_API int sso_add_cp_account_mapping_info(const char *cp_id, const char *cp_user_id,
                                            sso_response_data_cb callback, void *user_data);
/**
 * @brief Retired content-provider mapping removal. Answers only by login
 *        state.
 *
 * Sends nothing, never calls back and does not block beyond reading the
 * login state.
 *
 * @param cp_id     Ignored; may be NULL.
 * @param callback  Never called; may be NULL.
 * @param user_data Ignored; may be NULL.
 * @retval 0  A user is signed in.
 * @retval -1 Nobody is signed in (or the state cannot be read).
 */
SSO_API int sso_remove_cp_account_mapping_info(const char *cp_id, sso_response_data_cb callback,
                                               void *user_data);

/** @} */

/**
 * @defgroup sso_account_ui Account UI
 * @brief Opening the device's account UI applications and learning their
 *        outcome.
 *
 * Two families:
 * - sso_show() and its variants launch the account pages
 *   ("com.veltra.tv.CSAccount", or "QHVMP48x7k.WebAccountExtension" for
 *   the web pages) without waiting for an answer; they learn that the UI
 *   closed from the setting "memory/sso/view_status" turning 0, which fires
 *   the armed callback once. One callback is armed for the whole process:
 *   each sso_show() replaces the previous one.
 * - sso_request_account_verification() and the PIN requests launch an
 *   account application with a reply handler and call their callback once
 *   with its answer. One callback is pending for the whole process: a newer
 *   request takes over the older one's slot without calling it, and the
 *   first reply to arrive goes to the newest callback (with the user data of
 *   the request that reply answers).
 *
 * Threads: call these from the thread that runs the application's GLib
 * main loop. The launches do not wait for the launched application; their
 * callbacks run on the thread that runs the main context that was the
 * calling thread's default at the time (for sso_show(): when the view-state
 * watch was installed), and only while a loop runs it, except where a
 * function says the callback runs at once, before it returns. The functions
 * take no locks. A launched application that ends without answering counts
 * as a failed flow.
 * @{
 */

/**
 * @brief Shows an account page of the account UI.
 *
 * Launches "com.veltra.tv.CSAccount" with the page number @p type (printed
 * in at most two characters), the text @p data and @p caller_id. Types 1
 * and 30 add the launch type "RemoteLoginQR_Signin"; 6 and 9 ask for a lazy
 * task; 10 asks for a lazy task with the launch type "Verification"; types
 * 7 and 8 launch "QHVMP48x7k.WebAccountExtension" (the web pages about the
 * account and its terms) grouped with the caller instead. What each page
 * number shows is up to the account UI. The signed-in state is not
 * checked.
 *
 * @p callback is armed as the one-shot "account view closed" notice,
 * replacing any armed one: it is called with (user data, 0, NULL) once the
 * account UI sets "memory/sso/view_status" to 0. The user data it then gets
 * is that of the sso_show() call that installed the view-state watch (the
 * first of the process, or the first after sso_cb_reset()). Types 7 and 8
 * also call it at once, on the calling thread with this call's user data,
 * before returning 0; it then stays armed.
 *
 * Call from the application's main-loop thread; does not wait for the
 * account UI.
 *
 * @param type      The page number.
 * @param data      Passed to the page as is; NULL sends "0". For type 10 it
 *                  is the account's GUID and for type 9 the account id: these
 *                  are sent inside a small JSON object, unescaped.
 * @param caller_id The caller's id, passed to the page. Must not be NULL.
 * @param callback  The account-view-closed callback. Must not be NULL.
 * @param user_data Handed to @p callback as described above; may be NULL.
 * @retval 0  Launched.
 * @retval 1  The launch request could not be created (the callback stays
 *            armed) or the launch failed (the callback is disarmed).
 * @retval -1 @p caller_id or @p callback is NULL; nothing is armed.
 */
SSO_API int sso_show(int type, const char *data, const char *caller_id,
                     sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief Shows the terms page: sso_show() with type 7 and no data.
 *
 * The callback is therefore called at once, before a successful return.
 * Call from the application's main-loop thread.
 *
 * @param window    Must not be NULL; not otherwise used.
 * @param reserved  Ignored; may be NULL.
 * @param caller_id The caller's id. Must not be NULL.
 * @param callback  As for sso_show(). Must not be NULL.
 * @param user_data As for sso_show(); may be NULL.
 * @retval 0  Launched.
 * @retval 1  As for sso_show().
 * @retval -1 @p window, @p caller_id or @p callback is NULL.
 */
SSO_API int sso_show_term_page(void *window, void *reserved, const char *caller_id,
                               sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief sso_show() with data that asks for a transparent window.
 *
 * The data is `{"mode":"1"}` when @p transparent is true and a single space
 * otherwise (for types 9 and 10 it is then wrapped as sso_show() describes).
 * Call from the application's main-loop thread.
 *
 * @param type        The page number, as for sso_show().
 * @param caller_id   The caller's id. Must not be NULL.
 * @param callback    As for sso_show(). Must not be NULL.
 * @param user_data   As for sso_show(); may be NULL.
 * @param transparent Whether the page opens in a transparent window.
 * @retval 0  Launched.
 * @retval 1  As for sso_show().
 * @retval -1 @p caller_id or @p callback is NULL.
 */
SSO_API int sso_show_with_transparent_win(int type, const char *caller_id,
                                          sso_account_ui_result_cb callback, void *user_data,
                                          bool transparent);

/**
 * @brief Asks the account UI ("com.veltra.tv.CSAccount") to verify the
 *        signed-in user (action "Default").
 *
 * Needs a signed-in user. @p callback is called once, when the account UI
 * answers: with 0 and a JSON text whose "result" is "success" or
 * "change_account" (or "failed", when the application reported a finished
 * PIN flow with an answer the library does not know), or with -1 and an
 * empty text when the UI failed, was cancelled, ended without answering or
 * gave no usable answer. It takes over the one
 * pending-callback slot of the process (see @ref sso_account_ui). Call from
 * the application's main-loop thread; does not wait for the account UI.
 *
 * @param account_id The account to verify. Must not be NULL.
 * @param callback   Receives the outcome. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @retval 0  Launched.
 * @retval -1 @p account_id or @p callback is NULL or nobody is signed in
 *            (no callback); or the launch failed, and @p callback has
 *            already been called, on the calling thread, with -1 and an
 *            empty text.
 */
SSO_API int sso_request_account_verification(const char *account_id,
                                             sso_account_ui_result_cb callback, void *user_data);

/**
 * @brief As sso_request_account_verification(), with the PIN application
 *        "com.veltra.tv.CSAccountPIN".
 *
 * Every action but "Default" opens grouped with the caller.
 *
 * @param account_id The account to verify. Must not be NULL.
 * @param callback   Receives the outcome. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param pin_type   1 verifies the PIN ("PINVerify"), 2 the PIN of another
 *                   account ("PINVerify_NAccount"); any other value asks for
 *                   a plain verification ("Default").
 * @retval 0  Launched.
 * @retval -1 As for sso_request_account_verification().
 */
SSO_API int sso_request_account_verification_using_pin(const char *account_id,
                                                       sso_account_ui_result_cb callback,
                                                       void *user_data, int pin_type);

/**
 * @brief As sso_request_account_verification(), setting up a PIN with the
 *        PIN application "com.veltra.tv.CSAccountPIN", grouped with the
 *        caller.
 *
 * @param account_id The account. Must not be NULL.
 * @param callback   Receives the outcome. Must not be NULL.
 * @param user_data  Handed back to @p callback; may be NULL.
 * @param pin_type   1 "PINSetup_High", 2 "PINSetup_NAccount", any other
 *                   value "PINSetup".
 * @retval 0  Launched.
 * @retval -1 As for sso_request_account_verification().
 */
SSO_API int sso_request_account_setup_pin(const char *account_id, sso_account_ui_result_cb callback,
                                          void *user_data, int pin_type);

/** @} */

/**
 * @defgroup sso_whitelist Whitelist access tokens
 * @brief Access tokens issued only to applications whose package and signing
 *        certificate the SSO service trusts.
 *
 * The request sends the application id, the package id and the upper-case
 * hexadecimal SHA-256 fingerprint of the public key of the package's author
 * signer certificate; the service answers on "SSOProxyMonitor" as for every
 * request (see @ref sso_requests). The read takes the token the service has
 * stored for the application in the signed-in account's data of the
 * package, locally, without asking the service.
 *
 * Every function first checks that the package named is the calling
 * process's own package; the SSO service's package "org.orvex.ssoservice"
 * and the account application's package "com.veltra.orvex.veltra-account"
 * may name any package. The calling process is identified once, at its
 * first use (application id, package id, executable name), without a lock:
 * call sso_pre_init_callerInformation() early on one thread when several
 * threads will use these functions. The "signature" functions are aliases
 * of the "whitelist" ones.
 * @{
 */

/**
 * @brief Result of a whitelist access-token request.
 *
 * Runs on "SSOProxyMonitor" (see @ref sso_requests).
 *
 * @param user_data    The request's user data, unchanged.
 * @param result       The SSO service's result code (0 success).
 * @param access_token The token. Owned by the library, valid only during the
 *                     call.
 * @return Ignored.
 */
typedef int (*sso_request_whitelist_accesstoken_cb)(void *user_data, int result,
                                                    char *access_token);

/**
 * @brief Identifies the calling application now instead of at the first
 *        whitelist call.
 *
 * Reads the application id, the package id (from the package registry) and
 * the executable name once for the process; later calls do nothing more.
 * Call it early on one thread; it blocks only for those local look-ups.
 *
 * @retval 0  Identified (also when a look-up found nothing: an application
 *            outside any package has an empty package id).
 * @retval -1 The library is being unloaded.
 */
SSO_API int sso_pre_init_callerInformation(void);

/**
 * @brief Requests a whitelist access token for @p app_id on behalf of the
 *        calling process's own package.
 *
 * Sends the package id and the fingerprint of its author signer certificate,
 * computed afresh from the package registry at each call. An application
 * outside any package sends an empty package id and an empty fingerprint
 * and lets the service decide. Needs a running service and a signed-in user.
 * Blocks for at most 5000 ms (see @ref sso_requests); @p callback later runs
 * on "SSOProxyMonitor".
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL @p app_id or @p callback, a package that has no author
 *            signer certificate, the service is not running, nobody is
 *            signed in, or the request was refused or failed (the callback
 *            is then never called).
 */
SSO_API int sso_request_whitelist_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data);

/**
 * @brief The same as sso_request_whitelist_accesstoken().
 *
 * @param app_id    The application (client) id. Must not be NULL.
 * @param scope     The scope; NULL means none.
 * @param callback  Receives the result. Must not be NULL.
 * @param user_data Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 As for sso_request_whitelist_accesstoken().
 */
SSO_API int sso_request_signature_accesstoken(const char *app_id, const char *scope,
                                              sso_request_whitelist_accesstoken_cb callback,
                                              void *user_data);

/**
 * @brief Requests a whitelist access token with an explicit package name
 *        and signature.
 *
 * The caller check comes first, then the service's liveness and the login
 * state. Blocks for at most 5000 ms (see @ref sso_requests); @p callback
 * later runs on "SSOProxyMonitor".
 *
 * @param app_id      The application (client) id. Must not be NULL.
 * @param packagename The package; the caller's own unless the caller is one
 *                    of the two system packages. Must not be NULL.
 * @param signature   The certificate fingerprint to send. Must not be NULL.
 * @param scope       The scope; NULL means none.
 * @param callback    Receives the result. Must not be NULL.
 * @param user_data   Handed back to @p callback; may be NULL.
 * @retval 0  Accepted.
 * @retval -1 A NULL argument that must not be, a package the caller may not
 *            name, the service is not running, nobody is signed in, or the
 *            request was refused or failed (the callback is then never
 *            called).
 */
SSO_API int sso_api_request_whitelist_accesstoken(const char *app_id, const char *packagename,
                                                  const char *signature, const char *scope,
                                                  sso_request_whitelist_accesstoken_cb callback,
                                                  void *user_data);

/**
 * @brief Reads the whitelist access token the service stored for @p app_id
 *        in the signed-in account's data of the calling process's own
 *        package.
 *
 * Local only: reads secure storage, asks nothing of the service. Any
 * thread; does not block beyond that reading.
 *
 * @param app_id       The application (client) id. Must not be NULL.
 * @param access_token Receives a new NUL-terminated copy of the token (empty
 *                     when the stored token is) that the caller releases
 *                     with free(). Untouched on failure. Must not be NULL.
 * @retval 0  Success.
 * @retval -1 A NULL argument, nobody is signed in, no token is stored for
 *            @p app_id and the account, or the copy could not be allocated.
 */
SSO_API int sso_get_whitelist_accesstoken(const char *app_id, char **access_token);

/**
 * @brief The same as sso_get_whitelist_accesstoken().
 *
 * @param app_id       The application (client) id. Must not be NULL.
 * @param access_token As for sso_get_whitelist_accesstoken(); the caller
 *                     releases it with free(). Must not be NULL.
 * @retval 0  Success.
 * @retval -1 As for sso_get_whitelist_accesstoken().
 */
SSO_API int sso_get_signature_accesstoken(const char *app_id, char **access_token);

/**
 * @brief sso_get_whitelist_accesstoken() for an explicit package name.
 *
 * The login state is checked first, then the caller. Local only; any
 * thread.
 *
 * @param app_id       The application (client) id. Must not be NULL.
 * @param packagename  The package; the caller's own unless the caller is one
 *                     of the two system packages. Must not be NULL.
 * @param access_token Receives a new NUL-terminated copy of the token that
 *                     the caller releases with free(). Untouched on failure.
 *                     Must not be NULL.
 * @retval 0  Success.
 * @retval -1 A NULL argument, nobody is signed in, a package the caller may
 *            not name, no token is stored, or the copy could not be
 *            allocated.
 */
SSO_API int sso_api_get_whitelist_accesstoken(const char *app_id, const char *packagename,
                                              char **access_token);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* SSO_API_SSO_API_H */
