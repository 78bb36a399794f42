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
#include <type_traits>
#include <utility>

#include "SSOAPIClientLifeCycle.h"
#include "SSOAPIError.h"
#include "SSORequestTable.h"
#include "sso_bus_connection.h"
#include "sso_log.h"

class CSSOSvcGdbus;

// One field of a request tuple: a text, a 32-bit or a 64-bit number. The
// frame turns it into a value only once the link is up, so a refused request
// builds nothing.
class SSOField {
public:
    enum class Kind { Text, Int32, Int64 };
    SSOField(const char *text) : m_text(text) {}
    SSOField(const std::string &text) : m_text(text.c_str()) {}
    SSOField(int32_t number) : m_kind(Kind::Int32), m_number(number) {}
    SSOField(int64_t number) : m_kind(Kind::Int64), m_number(number) {}

    Kind kind() const { return m_kind; }
    const char *text() const { return m_text; }
    int64_t number() const { return m_number; }

private:
    Kind m_kind = Kind::Text;
    const char *m_text = nullptr; // not owned; lives for the call
    int64_t m_number = 0;
};

// One request on its way to the service, the same for every request. Request
// functions reach it through sso_private_send_request (below); Open brings
// the link up first and only then reads the request id and takes ae_index,
// so a request never carries the id of a link that is gone. Send builds the
// tuple from the request's row (object name first; callback, request id, user
// data, ae_index, method_call last), records the request as outstanding,
// sends it, and forgets it again if the service refuses.
// Lives on the caller's stack for one call; holds the library open.
class SSORequestFrame {
public:
    explicit SSORequestFrame(const char *function);
    SSORequestFrame(const SSORequestFrame &) = delete;
    SSORequestFrame &operator=(const SSORequestFrame &) = delete;

    // False (logged; the request returns -1) when the link cannot be had, the
    // library is being unloaded or the client name is another process's.
    // Blocks at most the link's set-up.
    bool Open();
    long long requestId() const { return m_requestId; }
    int32_t aeIndex() const { return m_aeIndex; }
    const std::string &objectName() const { return m_objectName; }

    // An asynchronous request: fields go between the object name and the
    // callback, afterCallback between the callback and the request id.
    // 0 when the service accepted it, else -1.
    int Send(std::initializer_list<SSOField> fields, gint64 callback,
             std::initializer_list<SSOField> afterCallback, gint64 userData);
    int Send(std::initializer_list<SSOField> fields, gint64 callback, gint64 userData)
    {
        return Send(fields, callback, {}, userData);
    }
    // A plain request, "(sxs)" plus its fields: the frame's result.
    int SendPlain(std::initializer_list<SSOField> fields = {});
    // A read answered "(s)": true with the text, else false and nullMessage
    // logged when the answer carried none.
    bool ReadData(std::initializer_list<SSOField> fields, std::string &out,
                  const char *nullMessage);

private:
    // (object name, the parts in order); nullptr (logged) when a text is null.
    GVariant *Tuple(std::initializer_list<std::initializer_list<SSOField>> parts);

    const SSORequestType *m_type;
    SSOAPIBusyScope m_busy;
    SSOClock::time_point m_arrival;
    CSSOSvcGdbus *m_transport = nullptr;
    bool m_open = false;
    std::string m_objectName;
    uint64_t m_link = 0; // the link the request id belongs to
    long long m_requestId = 0;
    int32_t m_aeIndex = 0;
};

template <typename P> inline gint64 Value(P pointer)
{
    return static_cast<gint64>(reinterpret_cast<intptr_t>(pointer));
}

// Which row a request function sends, and the name its lines are logged
// under: its own, or that of the exported function that called it.
struct SSORequestName {
    SSORequestName(const char *function) : row(function), caller(function) {}
    SSORequestName(const char *rowFunction, const char *callerName)
        : row(rowFunction), caller(callerName)
    {
    }
    const char *row;
    const char *caller;
};

// The send half of every asynchronous request function, once its own checks
// have passed: opens the frame of the name's row, lets logSent write the
// function's line (logSent(caller name, request id), or (caller name, frame),
// with the SSO_LOG*_FOR macros), and sends the fields. 0 when the service accepted the request,
// else -1. Blocks at most the link's set-up plus the request time-out.
template <typename Callback, typename LogSent>
int sso_private_send_request(SSORequestName name, std::initializer_list<SSOField> fields,
                             Callback callback, void *userData, LogSent &&logSent,
                             std::initializer_list<SSOField> afterCallback = {})
{
    SSORequestFrame frame(name.row);
    if (!frame.Open())
        return -1;
    if constexpr (std::is_invocable_v<LogSent, const char *, const SSORequestFrame &>)
        logSent(name.caller, static_cast<const SSORequestFrame &>(frame));
    else
        logSent(name.caller, frame.requestId());
    return frame.Send(fields, Value(callback), afterCallback, Value(userData));
}

// A plain request of function's row, answered "(i)": 0 when the service
// answered 1, else -1.
int sso_private_send_plain(const char *function);

// Sends one request: 0 when the service accepted it (answered "(i)" with 1),
// -1 otherwise. parameters is a floating tuple, consumed. *reply is always
// null on return. methodName must not be null. link: as for
// CSSOSvcGdbus::CallMethodToServer (0: whichever link is up).
int sso_private_request_method(const char *methodName, GVariant *parameters, GVariant **reply,
                               uint64_t link = 0);

// Makes sure the transport exists and the dispatcher is registered, then calls
// the service with the 5000 ms time-out. On true, *reply holds the reply.
bool sso_private_call_dbus_method_to_server(std::string methodName, GVariant *parameters,
                                            GVariant **reply, uint64_t link = 0);

// The one handler of calls the service makes on the account client object.
// Runs on the "SSOProxyMonitor" thread.
void sso_handle_api_response(CSSOBusConnection *connection, const char *sender,
                             const char *objectPath, const char *interfaceName,
                             const char *methodName, GVariant *parameters,
                             CSSOBusInvocation *invocation, void *userData);

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
// Both watches and the armed view callback: the life cycle's unload hook.
void sso_private_drop_settings_watches();
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

// A calloc'ed copy of text (length + 1, zeroed) for a getter to hand out; the
// caller frees it. nullptr when no memory could be had.
char *sso_private_copy_out(const std::string &text);

// The argument checks of the request functions, one line each. Macros, so
// that the refusal is logged under the function's own name.
#define SSO_REFUSE_WITH(condition, logLine)                                                        \
    do {                                                                                           \
        if (condition) {                                                                           \
            logLine;                                                                               \
            return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);                               \
        }                                                                                          \
    } while (0)
#define SSO_REFUSE_IF(condition, message) SSO_REFUSE_WITH(condition, SSO_LOGE(message))
#define SSO_REFUSE_IF_NULL(condition, reason) SSO_REFUSE_WITH(condition, SSO_LOG_CHECK_NULL(reason))
// (name, text) pairs: -1 for the first text that is not UTF-8.
#define SSO_REFUSE_IF_NOT_UTF8(...)                                                                \
    do {                                                                                           \
        if (!sso_private_are_texts_utf8({__VA_ARGS__}))                                            \
            return -1;                                                                             \
    } while (0)

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
            /* A state that could not be read keeps the reader's cause. */                         \
            if (sso_login_result_ == 0)                                                            \
                SSOAPIError::Set(SSO_ERROR_NOT_SIGNED_IN);                                         \
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
