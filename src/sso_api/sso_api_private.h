// Internal entry points of the exported-API module: the request frame every
// request goes through, and the dispatcher of results.
#pragma once

#include <gio/gio.h>
#include <sso_api/sso_api.h>
#include <vconf.h>

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

#include "sso_log.h"

// Sends one request: 0 when the service accepted it (answered "(i)" with 1),
// -1 otherwise. parameters is a floating tuple, consumed. *reply is always
// null on return. methodName must not be null.
int sso_private_request_method(const char *methodName, GVariant *parameters, GVariant **reply);

// Makes sure the transport exists and the dispatcher is registered, then calls
// the service with the 5000 ms time-out. On true, *reply holds the reply.
bool sso_private_call_dbus_method_to_server(std::string methodName, GVariant *parameters,
                                            GVariant **reply);

// The one handler of calls the service makes on the account client object.
// Runs on the "SSOProxyMonitor" thread.
void sso_handle_api_response(GDBusConnection *connection, const char *sender,
                             const char *objectPath, const char *interfaceName,
                             const char *methodName, GVariant *parameters,
                             GDBusMethodInvocation *invocation, void *userData);

// The time-out of every request, in milliseconds.
constexpr int SSO_REQUEST_TIMEOUT_MS = 5000;

// ------------------------------------------------- login state notification

// True exactly when the login state reads SSO_LOGEDIN.
bool sso_private_is_login_state_login();
// 0 when signed in, else -1: the answer of the retired mapping functions.
int sso_private_return_by_login_state_as_deprecated_api();
// The one settings watch on "db/sso/login_status" shared by the single
// subscriber and the map.
bool sso_private_subscribe_vconf_login_state_change();
void sso_private_unsubscribe_vconf_login_state_change();
// Drops the view-state watch (if installed) and the armed view callback.
void sso_private_clear_vconf_view_state_callback();
// Arms the one-shot view callback, installing the view-state watch with this
// user data if it is not installed yet.
void sso_private_arm_view_state_callback(sso_account_ui_result_cb callback, void *userData);
void sso_private_disarm_view_state_callback();
sso_account_ui_result_cb sso_private_armed_view_state_callback();
// The settings watch handlers. Run on the main-loop thread that subscribed.
void sso_vconf_login_state_changed_cb(keynode_t *key, void *userData);
void sso_vconf_changed_cb(keynode_t *key, void *userData);

// ------------------------------------------------------------ service requests

// The asynchronous event index: each request that sends a tuple takes the
// current value for its ae_index field, then the counter moves on by one
// (wrapping). Atomic so that concurrent requests stay well defined; two
// requests never share an index.
extern std::atomic<int32_t> s_aync_event_index;
// Set the first time a liveness check succeeds and never cleared: from then
// on, requests that check liveness skip the round trip.
extern std::atomic<bool> s_is_sso_service_alive;

// Text sent to the service must be UTF-8: a D-Bus string is nothing else.
// Logs the first text that is not, by its parameter name, and answers false.
// Null texts pass; their own checks decide about them.
bool sso_private_are_texts_utf8(
    std::initializer_list<std::pair<const char *, const char *>> namedTexts);

// Takes the next ae_index. Call only once every local check has passed, so
// that refused requests consume no index.
int32_t sso_private_take_event_index();
// True when the service is known to be alive, asking it (sso_check_alive)
// only until the first success.
bool sso_private_is_sso_service_alive();

// Pointers travel through the service as 64-bit integers.
template <typename P> inline gint64 sso_private_pointer_value(P pointer)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(pointer));
}
// The same value for a "%lld" in the log.
template <typename P> inline long long sso_private_pointer_log(P pointer)
{
    return static_cast<long long>(reinterpret_cast<intptr_t>(pointer));
}

// The two preconditions shared by the request functions. Macros, so that the
// refusal is logged under the exported function's own name.
#define SSO_RETURN_IF_SERVICE_NOT_ALIVE(failure)                                                   \
    do {                                                                                           \
        if (!sso_private_is_sso_service_alive()) {                                                 \
            SSO_LOGE("SSO SERVICE is not alive)");                                                 \
            return (failure);                                                                      \
        }                                                                                          \
    } while (0)

#define SSO_RETURN_IF_NOT_LOGGED_IN(failure)                                                       \
    do {                                                                                           \
        sso_login_state sso_login_state_ = SSO_NOT_LOGIN;                                          \
        int sso_login_result_ = sso_get_login_state(&sso_login_state_);                            \
        if (sso_login_result_ == -1 || sso_login_state_ != SSO_LOGEDIN) {                          \
            SSO_LOGE("result [%d], Login State [%d]. Return (%s)", sso_login_result_,              \
                     static_cast<int>(sso_login_state_), "Not login state");                       \
            return (failure);                                                                      \
        }                                                                                          \
    } while (0)

// Switching by account id or, when that is null or empty, by GUID. Returns
// the request frame's result, or -1 when nothing could be sent.
int sso_private_request_switch_account_by_id_or_guid(const char *account_id, const char *guid,
                                                     sso_response_data_cb callback, void *user_data,
                                                     const char *extra);

// One request for an auth code bound to a device security code, with an
// optional code challenge or verifier. Lives on the caller's stack for one
// call.
struct _SSOAPIReqAuthCodeWithDSCData {
    std::string methodName; // server method, also sent as method_call
    std::string clientId;
    std::string scope;              // "HAS_NO_VALUE" when absent
    std::string deviceSecurityCode; // "HAS_NO_VALUE" when absent
    std::string responseType;       // "HAS_NO_VALUE" when absent
    std::string codeChallenge;      // empty unless the challenge request set it
    std::string codeVerifier;       // empty unless the verifier request set it
    sso_request_auth_code_cb pRequestAuthCodeCB = nullptr;
    void *pUserData = nullptr;

    // Every field on a line of its own, for the [DEVEL] log.
    std::string ToString() const;
};

// Checks liveness and login, takes an ae_index and sends the record.
int sso_private_request_user_authcode_with_dsc(const _SSOAPIReqAuthCodeWithDSCData &data);

// The retired partner-authentication request; the result comes back on the
// client method "sso_return_partner_auth_info", which the dispatcher does not
// deliver. No liveness or login check.
int sso_private_request_partner_auth_info(const char *authKey, const char *authValue,
                                          const char *method, sso_response_data_cb callback,
                                          void *userData);

// ------------------------------------------------------------ account UI

#include <app_control.h>

// Launches an account-action application (app id null: the PIN application)
// with a reply handler. 0 launched; -1 otherwise, after calling the callback
// with -1 when the launch itself failed.
int sso_private_request_account_action(const char *appId, const char *accountId,
                                       sso_account_ui_result_cb callback, void *userData,
                                       const char *action);
// The reply handler of those launches; runs on the main-loop thread.
void sso_account_action_reply_cb(app_control_h request, app_control_h reply,
                                 app_control_result_e result, void *userData);
