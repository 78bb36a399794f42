// The exported C API. Every entry point is a thin shell: it checks its
// arguments, calls into the C++ core, and lets no exception escape.
#include <sso_api/sso_api.h>

#include <vconf.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <map>

#include "SSOAPIClientLifeCycle.h"
#include "SSOAPIClientUtil.h"
#include "ICVConf.h"
#include "SSOAPIUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_api_proxy.h"
#include "sso_api_records.h"
#include "sso_log.h"

// Must stay the first static object of the API layer (this file is the
// layer's first source): it is constructed before, and destroyed after, every
// other one (the login-state callback map of sso_api_notify.cpp among them),
// so the client is alive for all of them. At unload it calls back to drop the
// settings watches.
static SSOAPIClientLifeCycle s_clientLifeCycle(sso_private_drop_settings_watches);

static_assert(sizeof(sso_login_info_s) == 1536, "sso_login_info_s is 1536 bytes");
static_assert(sizeof(sso_user_info) == 1536, "sso_user_info is 1536 bytes");

namespace {

void DropParameters(GVariant *parameters)
{
    if (parameters != nullptr)
        g_variant_unref(g_variant_ref_sink(parameters));
}

// Application callback forms, by shape of the client method.
using StringResultCb = int (*)(void *, int, char *);
using ResultOnlyCb = int (*)(void *, int);
using TwoStringsCb = int (*)(void *, int, char *, char *);
using NameCheckCb = int (*)(void *, bool, char *, char *, char *);
using UserInfoCb = int (*)(void *, int, sso_user_info);

template <typename Fn> Fn AsFunction(gint64 value)
{
    return reinterpret_cast<Fn>(static_cast<intptr_t>(value));
}

void *AsPointer(gint64 value)
{
    return reinterpret_cast<void *>(static_cast<intptr_t>(value));
}

// One result as the service delivered it, decoded by the roles of its
// shape (see SSORequestTable.h). Owns its texts.
struct Delivery {
    gchar *objectName = nullptr;
    gint64 callback = 0;
    gint64 threadId = 0;
    gint64 userData = 0;
    gint32 result = -1;
    gint32 aeIndex = 0;
    gchar *texts[sso_requests::kMaxDeliveryTexts] = {nullptr};
    gchar *methodCall = nullptr;

    Delivery() = default;
    Delivery(const Delivery &) = delete;
    Delivery &operator=(const Delivery &) = delete;
    ~Delivery()
    {
        g_free(objectName);
        for (gchar *text : texts)
            g_free(text);
        g_free(methodCall);
    }

    // parameters must have the signature the roles describe.
    void Decode(GVariant *parameters, const char *roles)
    {
        if (std::strlen(roles) != g_variant_n_children(parameters))
            return;
        size_t text = 0;
        for (size_t i = 0; roles[i] != '\0'; ++i) {
            GVariant *child = g_variant_get_child_value(parameters, i);
            const char role = roles[i];
            if (role == 'o' || role == 'm' || role == 's') {
                gchar **slot = role == 'o'                              ? &objectName
                               : role == 'm'                            ? &methodCall
                               : text < sso_requests::kMaxDeliveryTexts ? &texts[text++]
                                                                        : nullptr;
                if (slot != nullptr)
                    *slot = g_variant_dup_string(child, nullptr);
            } else if (role == 'r' || role == 'a') {
                (role == 'r' ? result : aeIndex) = g_variant_get_int32(child);
            } else {
                (role == 'c'   ? callback
                 : role == 't' ? threadId
                               : userData) = g_variant_get_int64(child);
            }
            g_variant_unref(child);
        }
    }
};

// Completes the outstanding request this result answers; false (logged) when
// the process sent no such request or its result came already.
bool IsOutstanding(const char *methodName, gint64 callback, gint64 userData)
{
    CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::PeekInstance();
    if (transport != nullptr && transport->Requests().Complete(methodName, callback, userData))
        return true;
    SSO_LOGE("[%s] answers no request of this process: dropped", methodName);
    return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, false);
}

} // namespace

// ------------------------------------------------------------ request frame

SSORequestFrame::SSORequestFrame(const char *function)
    : m_type(sso_requests::ByFunction(function)), m_arrival(SSOClock::now())
{
}

bool SSORequestFrame::Open()
{
    if (m_type == nullptr) {
        SSO_LOGE("no request is known by this name");
        return sso_private_fail(SSO_ERROR_INTERNAL, false);
    }
    const char *method = m_type->serverMethod;
    // The first transport of the process is created and connected here, which
    // can take up to the 10-second set-up.
    m_transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (m_transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        return sso_private_fail(SSO_ERROR_UNLOADING, false);
    }
    m_transport->RegisterCallback(sso_handle_api_response, nullptr);
    if (!m_transport->EnsureLink(m_arrival)) {
        SSO_LOGE("Failed to CallMethodToServer(). methodName [%s]", method);
        SSO_LOGE("sso_private_call_dbus_method_to_server() return false");
        SSO_LOG_END_F("pMethodName[%s] sso_result[%d] result[%d]", method, -1, -1);
        return false;
    }
    // Only now: the id of the link that will carry the request, and which
    // link that is (read first: a rebuild in between then shows at the send).
    m_objectName = m_transport->objectName();
    m_link = m_transport->linkGeneration();
    m_requestId = m_transport->proxyMonitorThreadId();
    if (m_type->form == SSORequestForm::Async)
        m_aeIndex = sso_private_take_event_index();
    m_open = true;
    return true;
}

GVariant *SSORequestFrame::Tuple(std::initializer_list<std::initializer_list<SSOField>> parts)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    g_variant_builder_add_value(&builder, g_variant_new_string(m_objectName.c_str()));
    for (const auto &part : parts) {
        for (const SSOField &field : part) {
            if (field.kind() == SSOField::Kind::Int32) {
                g_variant_builder_add_value(
                    &builder, g_variant_new_int32(static_cast<int32_t>(field.number())));
            } else if (field.kind() == SSOField::Kind::Int64) {
                g_variant_builder_add_value(&builder, g_variant_new_int64(field.number()));
            } else if (field.text() != nullptr) {
                g_variant_builder_add_value(&builder, g_variant_new_string(field.text()));
            } else {
                // A D-Bus string cannot be null: a function that let one
                // through is refused here, never sent.
                SSO_LOGE("a text of [%s] is null", m_type->serverMethod);
                g_variant_builder_clear(&builder);
                return nullptr;
            }
        }
    }
    return g_variant_builder_end(&builder);
}

namespace {

// The tuple must have the row's shape: a mistake in a request function is
// refused here, never sent.
bool HasShape(GVariant *tuple, const std::string &shape, const char *method)
{
    if (tuple == nullptr)
        return false;
    if (g_variant_is_of_type(tuple, G_VARIANT_TYPE(shape.c_str())))
        return true;
    SSO_LOGE("the tuple of [%s] is %s, not %s", method, g_variant_get_type_string(tuple),
             shape.c_str());
    g_variant_unref(g_variant_ref_sink(tuple));
    return false;
}

} // namespace

int SSORequestFrame::Send(std::initializer_list<SSOField> fields, gint64 callback,
                          std::initializer_list<SSOField> afterCallback, gint64 userData)
{
    if (!m_open || m_type->form != SSORequestForm::Async)
        return -1;
    GVariant *tuple = Tuple({fields,
                             {static_cast<int64_t>(callback)},
                             afterCallback,
                             {static_cast<int64_t>(m_requestId), static_cast<int64_t>(userData),
                              m_aeIndex, m_type->methodCall}});
    const std::string shape =
        std::string("(s") + m_type->fields + "x" + m_type->afterCallback + "xxis)";
    if (!HasShape(tuple, shape, m_type->serverMethod))
        return sso_private_fail(SSO_ERROR_INTERNAL, -1);

    // Recorded before it is sent: the result may come before the answer.
    SSOAPIRequestRegistry::Ticket ticket = 0;
    if (m_type->delivery != nullptr && callback != 0)
        ticket = m_transport->Requests().Add(m_type->delivery, callback, userData);
    int result = sso_private_request_method(m_type->serverMethod, tuple, nullptr, m_link);
    if (result != 0 && ticket != 0)
        m_transport->Requests().Remove(ticket);
    return result;
}

int SSORequestFrame::SendPlain(std::initializer_list<SSOField> fields)
{
    if (!m_open || m_type->form != SSORequestForm::Plain)
        return -1;
    GVariant *tuple = Tuple({{static_cast<int64_t>(m_requestId), m_type->serverMethod}, fields});
    if (!HasShape(tuple, std::string("(sxs") + m_type->fields + ")", m_type->serverMethod))
        return sso_private_fail(SSO_ERROR_INTERNAL, -1);
    return sso_private_request_method(m_type->serverMethod, tuple, nullptr, m_link);
}

int sso_private_send_plain(const char *function)
{
    SSORequestFrame frame(function);
    if (!frame.Open())
        return -1;
    return frame.SendPlain();
}

bool SSORequestFrame::ReadData(std::initializer_list<SSOField> fields, std::string &out,
                               const char *nullMessage)
{
    out.clear();
    if (!m_open || m_type->form != SSORequestForm::Data)
        return false;
    GVariant *tuple = Tuple({{static_cast<int64_t>(m_requestId), m_type->serverMethod}, fields});
    if (!HasShape(tuple, std::string("(sxs") + m_type->fields + ")", m_type->serverMethod))
        return false;
    GVariant *reply = nullptr;
    bool ok = sso_private_call_dbus_method_to_server(m_type->serverMethod, tuple, &reply, m_link);
    if (ok) {
        if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(s)"))) {
            SSO_LOGE("%s", nullMessage);
            SSOAPIError::Set(SSO_ERROR_BUS_ERROR);
            ok = false;
        } else {
            const gchar *text = nullptr;
            g_variant_get(reply, "(&s)", &text);
            out = text != nullptr ? text : "";
        }
    }
    if (reply != nullptr)
        g_variant_unref(reply);
    return ok;
}

bool sso_private_call_dbus_method_to_server(std::string methodName, GVariant *parameters,
                                            GVariant **reply, uint64_t link)
{
    SSO_LOG_START();
    SSO_LOGE("---> methodName [%s]", methodName.c_str());
    // The first transport of the process is created and connected here, which
    // can take up to the 10-second set-up.
    CSSOSvcGdbus *transport =
        SSOAPIUtil::IsClientAlive() ? SSOAPISingleton<CSSOSvcGdbus>::GetInstance() : nullptr;
    if (transport == nullptr) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        DropParameters(parameters);
        return sso_private_fail(SSO_ERROR_UNLOADING, false);
    }
    // Cheap after the first time: only the first registration takes effect,
    // and it is in place before the first result can arrive.
    transport->RegisterCallback(sso_handle_api_response, nullptr);
    if (!transport->CallMethodToServer(methodName, parameters, reply, SSO_REQUEST_TIMEOUT_MS,
                                       link)) {
        SSO_LOGE("Failed to CallMethodToServer(). methodName [%s]", methodName.c_str());
        return false;
    }
    SSO_LOG_END();
    return true;
}

int sso_private_request_method(const char *methodName, GVariant *parameters, GVariant **reply,
                               uint64_t link)
{
    // The caller may wait here for the service: an unload waits for it.
    SSOAPIBusyScope busy;
    GVariant *localReply = nullptr;
    if (reply == nullptr)
        reply = &localReply;
    *reply = nullptr;
    if (methodName == nullptr) {
        SSO_LOG_CHECK_NULL("pMethodName is null");
        DropParameters(parameters);
        return sso_private_fail(SSO_ERROR_INTERNAL, -1);
    }
    SSO_LOG_START_F("pMethodName [%s]", methodName);

    int ssoResult = -1;
    int result = -1;
    if (!sso_private_call_dbus_method_to_server(methodName, parameters, reply, link)) {
        if (*reply != nullptr) {
            g_variant_unref(*reply);
            *reply = nullptr;
        }
        SSO_LOGE("sso_private_call_dbus_method_to_server() return false");
    } else {
        if (*reply != nullptr && g_variant_is_of_type(*reply, G_VARIANT_TYPE("(i)")))
            g_variant_get(*reply, "(i)", &ssoResult);
        if (*reply != nullptr) {
            g_variant_unref(*reply);
            *reply = nullptr;
        }
        if (ssoResult != 1) {
            SSO_LOGE("result(%d) is not 1", ssoResult);
            SSOAPIError::SetRefused(ssoResult);
        } else {
            result = 0;
        }
    }
    SSO_LOG_END_F("pMethodName[%s] sso_result[%d] result[%d]", methodName, result, ssoResult);
    return result;
}

bool sso_private_are_texts_utf8(
    std::initializer_list<std::pair<const char *, const char *>> namedTexts)
{
    for (const auto &named : namedTexts) {
        if (named.second != nullptr && !g_utf8_validate(named.second, -1, nullptr)) {
            SSO_LOGE("%s is not UTF-8 text", named.first);
            return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, false);
        }
    }
    return true;
}

// --------------------------------------------------------- response dispatch

void sso_handle_api_response(CSSOBusConnection *, const char *, const char *, const char *,
                             const char *methodName, GVariant *parameters,
                             CSSOBusInvocation *invocation, void *)
{
    SSO_LOG_START();
    SSO_LOGE("<--- Client Method Name [%s]", methodName != nullptr ? methodName : "(null)");

    // The service is always answered with an empty reply, at once: it never
    // waits for the application and learns nothing of what follows.
    bool answered = false;
    auto answer = [&] {
        if (!answered && invocation != nullptr)
            invocation->ReturnValue(nullptr);
        answered = true;
    };

    Delivery d;
    CLIENT_DBUS_METHOD_TYPE type = CLIENT_METHOD_NONE;

    try {
        if (!SSOAPIUtil::IsClientAlive()) {
            answer();
            return;
        }
        if (methodName == nullptr || parameters == nullptr) {
            SSO_LOGE("method_name or parameters is null");
            answer();
            return;
        }
        type = SSOAPIClientUtil::GetClientDBusMethodType(methodName);
        if (type == CLIENT_METHOD_NONE) {
            SSO_LOGE("clientMethodType is CLIENT_METHOD_NONE");
            answer();
            return;
        }
        std::string format = SSOAPIClientUtil::GetClientDBusMethodParameterFormat(type);
        if (format.empty()) {
            SSO_LOGE("parameterFormat is empty");
            answer();
            return;
        }

        // GDBus has checked the arguments against the introspection already;
        // the type test only keeps a table that ever disagreed from turning
        // into a decoding fault.
        const char *roles = sso_requests::DeliveryRoles(format.c_str());
        if (roles == nullptr || !g_variant_is_of_type(parameters, G_VARIANT_TYPE(format.c_str())))
            SSO_LOGE("Unhandled clientMethodType: (%d)", static_cast<int>(type));
        else
            d.Decode(parameters, roles);
        gchar *const *s = d.texts;
        gint64 callback = d.callback;
        gint64 threadId = d.threadId;
        gint64 userData = d.userData;
        gint32 result = d.result;
        const gchar *objName = d.objectName;

        SSO_LOGY("pObjName(%s) pCallback(%lld) threadId(%lld)",
                 objName != nullptr ? objName : "(null)", static_cast<long long>(callback),
                 static_cast<long long>(threadId));
        answer();

        if (!SSOAPIClientUtil::IsThreadIdEqualToDBusProxy(threadId)) {
            // Addressed to another (earlier) monitor thread: dropped.
        } else if (callback == 0) {
            SSO_LOGE("pCallback is 0");
        } else if (!IsOutstanding(methodName, callback, userData)) {
            // Checked last: a pointer that came over the bus is called only
            // when this process sent it, once per request.
        } else {
            SSO_LOGD("[START] [%s]'s Return-Callback : result(%d)", methodName, result);
            void *appData = AsPointer(userData);
            switch (type) {
            case CLIENT_METHOD_STRING_RESULT:
            case CLIENT_METHOD_RESULT_STRING:
            case CLIENT_METHOD_USERDATA_RESULT_STRING:
                SSO_LOG_DEVEL("pData(%s)", s[0]);
                AsFunction<StringResultCb>(callback)(appData, result, s[0]);
                break;
            case CLIENT_METHOD_RESULT_ONLY:
                if (g_strcmp0(methodName, "sso_generate_token_with_authcode_dsc") == 0)
                    AsFunction<ResultOnlyCb>(callback)(appData, result);
                break;
            case CLIENT_METHOD_USERDATA_RESULT_2STRINGS:
                if (g_strcmp0(methodName, "sso_identify_current_user_info") == 0) {
                    SSO_LOG_DEVEL("birthday(%s) identify_url(%s)", s[0], s[1]);
                    AsFunction<TwoStringsCb>(callback)(appData, result, s[0], s[1]);
                }
                break;
            case CLIENT_METHOD_USERDATA_RESULT_3STRINGS:
                if (g_strcmp0(methodName, "sso_get_namecheck_auth_info") == 0) {
                    sso_name_check_auth_info_s info;
                    SSOAPIRecords::SetNameCheckAuthInfo(info, s[0], s[1], s[2]);
                    SSO_LOG_DEVEL("info_birth_date(%s) info_age(%s) check_url(%s)", info.birth_date,
                                  info.age, info.check_url);
                    // A success flag, not the result code.
                    AsFunction<NameCheckCb>(callback)(appData, result == 0, info.birth_date,
                                                      info.age, info.check_url);
                }
                break;
            case CLIENT_METHOD_USERDATA_RESULT_9STRINGS:
                if (g_strcmp0(methodName, "sso_get_user_info") == 0) {
                    sso_user_info info;
                    SSOAPIRecords::SetUserInfo(info, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7],
                                               s[8]);
                    SSO_LOG_DEVEL("user_id(%s) prefix_name(%s) first_name(%s) last_name(%s) "
                                  "birth_date(%s) zip_code(%s) mobile_num(%s) "
                                  "receive_email(%s) auth(%s)",
                                  info.user_id, info.prefix_name, info.first_name, info.last_name,
                                  info.birth_date, info.zip_code, info.mobile_num,
                                  info.receive_email, info.auth);
                    AsFunction<UserInfoCb>(callback)(appData, result, info);
                }
                break;
            default:
                SSO_LOGE("Invalid clientMethodType: (%d)", static_cast<int>(type));
                break;
            }
            SSO_LOGD("[END] [%s] Return-Callback", methodName);
        }
    } catch (const std::exception &e) {
        SSO_LOGE("exception while delivering [%s]: %s", methodName, e.what());
    } catch (...) {
        SSO_LOGE("exception while delivering [%s]", methodName);
    }
    answer();
    SSO_LOG_END();
}

// ------------------------------------------------------------- exported API

extern "C" {

SSO_API int get_size_of_sso_login_info_s(void)
{
    return static_cast<int>(sizeof(sso_login_info_s));
}

SSO_API int sso_get_term_state(const char *term_id)
{
    SSO_LOG_START_F("term_id [%s]", term_id != nullptr ? term_id : "(null)");
    return sso_private_fail(SSO_ERROR_INVALID_ARGUMENT, -1);
}

SSO_API int sso_check_alive(void)
try {
    SSO_LOG_START();
    return sso_private_send_plain(__func__);
}
SSO_API_CATCH(-1)

SSO_API void sso_give_proxy(void)
try {
    SSOAPIBusyScope busy;
    if (!SSOAPIUtil::IsClientAlive()) {
        SSO_LOG_CHECK_NULL("pDBusInstance is null");
        return;
    }
    CSSOSvcGdbus::GiveProxyOfProcess();
}
SSO_API_CATCH_VOID

} // extern "C"
