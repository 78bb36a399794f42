#include "sso_api_proxy.h"

#include <errno.h>
#include <sys/time.h>

#include <algorithm>
#include <cstring>

#include "SSOAPIAutoLock.h"
#include "SSOAPIUtil.h"
#include "sso_log.h"

namespace {

// The start-up hand-shake waits at most this long for the client object.
constexpr int kProxyMonitorWaitSeconds = 10;

// Peers whose process id the sender check remembers.
constexpr size_t kCallerObjPidsKept = 8;

// The error domain of the sender-check refusal: a fixed number, not a
// registered domain.
constexpr GQuark kInvalidCallerErrorDomain = 19;

std::string EncodedError(GError *error)
{
    gchar *name = g_dbus_error_encode_gerror(error);
    std::string text = name != nullptr ? name : "";
    g_free(name);
    return text;
}

} // namespace

const GDBusInterfaceVTable CSSOSvcGdbus::m_interfaceVTable = {
    CSSOSvcGdbus::m_HandleMethodCall, nullptr, nullptr, {nullptr}};

CSSOSvcGdbus::CSSOSvcGdbus()
    : m_processId(SSOAPIUtil::GetProcessId()),
      m_processName(SSOAPIUtil::GetProcessName(m_processId)),
      m_objectName(SSOAPIUtil::GetObjectName(m_processId))
{
    pthread_mutex_init(&m_mutexProxy, nullptr);
    pthread_mutex_init(&m_mutexMonitorLoop, nullptr);
    pthread_mutex_init(&m_mutexProxyMonitor, nullptr);
    pthread_cond_init(&m_condProxyMonitor, nullptr);
    m_pLinkContext = g_main_context_new();
    m_pCallCancellable = g_cancellable_new();
    SSO_LOGW_G("m_processId(%d) m_objectName(%s)", m_processId, m_objectName.c_str());
}

CSSOSvcGdbus::~CSSOSvcGdbus()
{
    GiveProxy();
    UnregisterCallback();
    // No monitor runs any more: drop what is still queued for the link.
    g_main_context_push_thread_default(m_pLinkContext);
    while (g_main_context_iteration(m_pLinkContext, FALSE)) {
    }
    g_main_context_pop_thread_default(m_pLinkContext);
    g_main_context_unref(m_pLinkContext);
    g_object_unref(m_pCallCancellable);
    pthread_cond_destroy(&m_condProxyMonitor);
    pthread_mutex_destroy(&m_mutexProxyMonitor);
    pthread_mutex_destroy(&m_mutexMonitorLoop);
    pthread_mutex_destroy(&m_mutexProxy);
    SSO_LOGW_G("m_bGivenProxy(%d) m_objectName(%s)", m_bGivenProxy.load() ? 1 : 0,
               m_objectName.c_str());
    SSO_LOG_END();
}

void CSSOSvcGdbus::PostCreateInstance()
{
    (void)m_GetProxy();
}

void CSSOSvcGdbus::RegisterCallback(SSOMethodCallHandler handler, void *userData)
{
    // Every request registers: once both are in place (or nothing new is
    // offered) there is nothing to store, and no lock to take.
    if ((handler == nullptr || m_pHandleMethodCallCb.load() != nullptr) &&
        (userData == nullptr || m_pHandleMethodCallCbUserData.load() != nullptr))
        return;
    SSOAPIAutoLock lock(&m_mutexProxy);
    if (m_pHandleMethodCallCb.load() == nullptr && handler != nullptr) {
        m_pHandleMethodCallCb.store(handler);
        SSO_LOGY("Registered m_pHandleMethodCallCb");
    }
    if (m_pHandleMethodCallCbUserData.load() == nullptr && userData != nullptr) {
        m_pHandleMethodCallCbUserData.store(userData);
        SSO_LOGY("Registered m_pHandleMethodCallCbUserData");
    }
}

void CSSOSvcGdbus::UnregisterCallback()
{
    SSOAPIAutoLock lock(&m_mutexProxy);
    m_pHandleMethodCallCb.store(nullptr);
    m_pHandleMethodCallCbUserData.store(nullptr);
}

bool CSSOSvcGdbus::m_IsGivenProxy()
{
    if (m_bGivenProxy.load(std::memory_order_acquire)) {
        SSO_LOGE("d-bus connection and proxy-monitor are already terminated");
        return true;
    }
    return false;
}

// Brings the link up if it is down; all of it under m_mutexProxy. With
// connection, also hands out a reference of the caller's own to the
// connection, taken under the same lock (a rebuild on another thread cannot
// free it under the caller).
bool CSSOSvcGdbus::m_GetProxy(GDBusConnection **connection)
{
    SSOAPIAutoLock lock(&m_mutexProxy);
    if (m_IsGivenProxy())
        return false;
    if (m_introspectionXml.empty()) {
        SSO_LOGE("m_introspectionXml is empty.");
        return false;
    }
    if (m_interfaceVTable.method_call == nullptr) {
        SSO_LOGE("m_interfaceVTable.method_call is empty.");
        return false;
    }
    if (m_processId <= 0) {
        SSO_LOGE("m_processId is '<= 0'");
        return false;
    }

    if (m_bProxyMonitorCreated && m_pConnectionToServer != nullptr) {
        if (!g_dbus_connection_is_closed(m_pConnectionToServer)) {
            SSO_LOG_END_F("m_pConnectionToServer is already connected");
            if (connection != nullptr)
                *connection = static_cast<GDBusConnection *>(g_object_ref(m_pConnectionToServer));
            return true;
        }
        // Found lazily, at the next call: rebuild both directions.
        SSO_LOGE("m_pConnectionToServer is disconnected. Try to clean up and connect again.");
        m_ReleaseConnectionToServer();
        m_DestroyProxyMonitor();
    }

    if (!m_GetConnectionToServer()) {
        SSO_LOGE("Failed to m_GetConnectionToServer()");
        return false;
    }
    if (!m_CreateProxyMonitor()) {
        SSO_LOGE("Failed to m_CreateProxyMonitor()");
        m_ReleaseConnectionToServer();
        return false;
    }
    if (connection != nullptr)
        *connection = static_cast<GDBusConnection *>(g_object_ref(m_pConnectionToServer));
    return true;
}

// Called with m_mutexProxy held.
bool CSSOSvcGdbus::m_GetConnectionToServer()
{
    // The connection is made (or found) with the link's own context as the
    // thread default: what GDBus queues for it, the signal subscription and
    // the notice that it closed among them, is then run by the monitor loop,
    // never left waiting in a context of the application's that may never
    // run. No monitor runs while this does, so the context is free here;
    // anything still queued from an earlier link is flushed first, so a
    // closed connection is really let go before a new one is asked for.
    g_main_context_push_thread_default(m_pLinkContext);
    while (g_main_context_iteration(m_pLinkContext, FALSE)) {
    }
    bool connected = m_GetConnectionToServerInContext();
    g_main_context_pop_thread_default(m_pLinkContext);
    return connected;
}

bool CSSOSvcGdbus::m_GetConnectionToServerInContext()
{
    GError *error = nullptr;
    m_pConnectionToServer = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (error != nullptr) {
        SSO_LOGE("g_bus_get_sync() return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error).c_str(), error->message, error->code);
        g_error_free(error);
        if (m_pConnectionToServer != nullptr) {
            g_object_unref(m_pConnectionToServer);
            m_pConnectionToServer = nullptr;
        }
        return false;
    }
    if (m_pConnectionToServer == nullptr) {
        SSO_LOGE("m_pConnectionToServer is null");
        return false;
    }
    // A bus connection ends the process when the bus goes away unless told
    // otherwise; the library repairs the link at the next request instead.
    g_dbus_connection_set_exit_on_close(m_pConnectionToServer, FALSE);

    m_signalId = g_dbus_connection_signal_subscribe(
        m_pConnectionToServer, nullptr, SSO_SIGNAL_INTERFACE, nullptr, SSO_SIGNAL_OBJECT_PATH,
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, m_OnSignal, this, nullptr);
    if (m_signalId == 0)
        SSO_LOGE("m_signalId is 0");
    return true;
}

// Called with m_mutexProxy held.
void CSSOSvcGdbus::m_ReleaseConnectionToServer()
{
    if (m_pConnectionToServer == nullptr)
        return;
    if (m_signalId != 0) {
        g_dbus_connection_signal_unsubscribe(m_pConnectionToServer, m_signalId);
        m_signalId = 0;
    }
    g_object_unref(m_pConnectionToServer);
    m_pConnectionToServer = nullptr;
}

void CSSOSvcGdbus::m_WakeCreator()
{
    SSO_LOGY("LOCK_GIVE BEGIN");
    pthread_mutex_lock(&m_mutexProxyMonitor);
    m_bMonitorAnswered = true;
    pthread_cond_signal(&m_condProxyMonitor);
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    SSO_LOGY("LOCK_GIVE END");
}

// Called with m_mutexProxy held.
bool CSSOSvcGdbus::m_CreateProxyMonitor()
{
    SSO_LOGY("LOCK_CREATE BEGIN");
    pthread_mutex_lock(&m_mutexProxyMonitor);
    m_bMonitorAnswered = false;
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    pthread_mutex_lock(&m_mutexMonitorLoop);
    m_bStopRequested = false;
    pthread_mutex_unlock(&m_mutexMonitorLoop);
    SSO_LOGY("LOCK_CREATE END");

    pthread_t thread = 0;
    int err = pthread_create(&thread, nullptr, m_RunProxyMonitor, this);
    if (err != 0) {
        SSO_LOGE("Failed to pthread_create() : %d", err);
        return false;
    }
    m_proxyMonitorThreadId.store(static_cast<unsigned long>(thread), std::memory_order_release);

    // One bounded wait: the request goes out whether the monitor answered or
    // the time ran out; a slow bus costs at most these seconds.
    SSO_LOGY("Wait for creating proxy-monitor (10s timeout)");
    SSO_LOGY("LOCK_TAKE_TRY BEGIN");
    pthread_mutex_lock(&m_mutexProxyMonitor);
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct timespec deadline;
    deadline.tv_sec = now.tv_sec + kProxyMonitorWaitSeconds;
    deadline.tv_nsec = now.tv_usec * 1000L;
    while (!m_bMonitorAnswered) {
        if (pthread_cond_timedwait(&m_condProxyMonitor, &m_mutexProxyMonitor, &deadline) ==
            ETIMEDOUT)
            break;
    }
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    SSO_LOGY("LOCK_TAKE_TRY END");

    SSO_LOGY("LOCK_DESTROY BEGIN");
    SSO_LOGY("LOCK_DESTROY END");
    m_bProxyMonitorCreated = true;
    SSO_LOG_END_F("m_bProxyMonitorCreated = %d", 1);
    return true;
}

// Called with m_mutexProxy held; never on the monitor thread (it joins it).
void CSSOSvcGdbus::m_DestroyProxyMonitor()
{
    // Ask the loop to stop from inside itself, so a loop that has not started
    // running yet still stops once it does.
    pthread_mutex_lock(&m_mutexMonitorLoop);
    m_bStopRequested = true;
    if (m_pMainLoop != nullptr) {
        GSource *quit = g_idle_source_new();
        g_source_set_priority(quit, G_PRIORITY_HIGH);
        g_source_set_callback(
            quit,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return G_SOURCE_REMOVE;
            },
            g_main_loop_ref(m_pMainLoop), reinterpret_cast<GDestroyNotify>(g_main_loop_unref));
        g_source_attach(quit, g_main_loop_get_context(m_pMainLoop));
        g_source_unref(quit);
    }
    pthread_mutex_unlock(&m_mutexMonitorLoop);

    unsigned long thread = m_proxyMonitorThreadId.load(std::memory_order_acquire);
    if (thread != 0) {
        SSO_LOGY("Try to pthread_join() : %ld", static_cast<long>(thread));
        if (pthread_join(static_cast<pthread_t>(thread), nullptr) != 0)
            SSO_LOGE("Failed to pthread_join() : %ld", static_cast<long>(thread));
        SSO_LOGY("pthread_join() id done : %ld", static_cast<long>(thread));
        m_proxyMonitorThreadId.store(0, std::memory_order_release);
    }

    // The monitor thread has ended: its objects can be released here without
    // racing it.
    unsigned int registerId = m_registerId.exchange(0);
    if (m_pClientConnection != nullptr && registerId != 0)
        g_dbus_connection_unregister_object(m_pClientConnection, registerId);
    unsigned int ownerId = m_ownerId.exchange(0);
    if (ownerId != 0)
        g_bus_unown_name(ownerId);
    if (m_pNodeInfo != nullptr) {
        g_dbus_node_info_unref(m_pNodeInfo);
        m_pNodeInfo = nullptr;
    }
    if (m_pClientConnection != nullptr)
        g_object_unref(m_pClientConnection);
    m_pClientConnection = nullptr;
    m_callerObjPids.clear();

    m_bProxyMonitorCreated = false;
    SSO_LOG_END_F("m_bProxyMonitorCreated = %d", 0);
}

// Body of the "SSOProxyMonitor" thread.
void *CSSOSvcGdbus::m_RunProxyMonitor(void *instance)
{
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self == nullptr) {
        SSO_LOGE("pInstance is null");
        return nullptr;
    }
    const char *threadName = "SSOProxyMonitor";
    pthread_setname_np(pthread_self(), threadName);
    SSO_LOGP("thread name [%s]", threadName);

    g_type_class_unref(g_type_class_ref(G_TYPE_DBUS_CONNECTION));

    // The link's context, kept by the transport across reconnections.
    GMainContext *context = self->m_pLinkContext;
    if (context == nullptr) {
        SSO_LOGE("pContext is null");
        self->m_WakeCreator();
        return nullptr;
    }
    // Every GDBus callback set up below is dispatched on this thread.
    g_main_context_push_thread_default(context);

    auto endThread = [&](bool wake) {
        g_main_context_pop_thread_default(context);
        // Nothing to wait for any more: let the creator go on at once.
        if (wake)
            self->m_WakeCreator();
    };

    GError *error = nullptr;
    self->m_pNodeInfo = g_dbus_node_info_new_for_xml(m_introspectionXml.c_str(), &error);
    if (error != nullptr) {
        SSO_LOGE("g_dbus_node_info_new_for_xml() return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error).c_str(), error->message, error->code);
        g_error_free(error);
        endThread(true);
        return nullptr;
    }
    if (self->m_pNodeInfo == nullptr) {
        SSO_LOGE("m_pNodeInfo is null");
        endThread(true);
        return nullptr;
    }

    std::string clientBusName = SSO_CLIENT_BUS_NAME_PREFIX + self->m_objectName;
    SSO_LOGP("clientBusName [%s]", clientBusName.c_str());
    unsigned int ownerId = 0;
    // An application id that does not make a valid bus name cannot be owned.
    if (g_dbus_is_name(clientBusName.c_str()) && !g_dbus_is_unique_name(clientBusName.c_str())) {
        // The system-bus connection the creator has just made (the process's
        // shared one), taken here at once: owning the name by bus type would
        // fetch it again asynchronously, through a GLib worker thread and one
        // more wake-up of this thread, on every process's first request. The
        // bus is acquired, so the object is registered (m_OnBusAcquired)
        // before the name is asked for, as it would be then.
        GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        if (bus != nullptr) {
            m_OnBusAcquired(bus, clientBusName.c_str(), self);
            ownerId = g_bus_own_name_on_connection(
                bus, clientBusName.c_str(),
                static_cast<GBusNameOwnerFlags>(G_BUS_NAME_OWNER_FLAGS_ALLOW_REPLACEMENT |
                                                G_BUS_NAME_OWNER_FLAGS_REPLACE),
                m_OnNameAcquired, m_OnNameLost, self, nullptr);
            g_object_unref(bus);
        }
    }
    self->m_ownerId.store(ownerId);
    if (ownerId == 0) {
        SSO_LOGE("m_ownerId is 0. Failed to g_bus_own_name() : %s", clientBusName.c_str());
        endThread(true);
        return nullptr;
    }

    GMainLoop *loop = g_main_loop_new(context, FALSE);
    pthread_mutex_lock(&self->m_mutexMonitorLoop);
    bool run = !self->m_bStopRequested;
    self->m_pMainLoop = loop;
    pthread_mutex_unlock(&self->m_mutexMonitorLoop);
    if (run)
        g_main_loop_run(loop);
    pthread_mutex_lock(&self->m_mutexMonitorLoop);
    self->m_pMainLoop = nullptr;
    pthread_mutex_unlock(&self->m_mutexMonitorLoop);
    g_main_loop_unref(loop);

    endThread(false);
    SSO_LOG_END();
    return nullptr;
}

// Runs on the monitor thread.
void CSSOSvcGdbus::m_OnBusAcquired(GDBusConnection *connection, const gchar *name,
                                   gpointer instance)
{
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    SSO_LOGP("pName [%s]", name);
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    // Our own reference: once the bus is gone, name ownership drops its
    // reference, and the object must still be unregistered from it.
    if (self->m_pClientConnection != nullptr)
        g_object_unref(self->m_pClientConnection);
    self->m_pClientConnection = static_cast<GDBusConnection *>(g_object_ref(connection));

    GError *error = nullptr;
    unsigned int registerId = g_dbus_connection_register_object(
        connection, SSO_CLIENT_OBJECT_PATH, self->m_pNodeInfo->interfaces[0], &m_interfaceVTable,
        self, nullptr, &error);
    if (error != nullptr) {
        SSO_LOGE("g_dbus_connection_register_object() return error. %s, %s, "
                 "detail[message:%s, code:%d]",
                 EncodedError(error).c_str(), SSO_CLIENT_OBJECT_PATH, error->message, error->code);
        if (registerId != 0)
            g_dbus_connection_unregister_object(connection, registerId);
        g_error_free(error);
        // The creator is left to its time-out: the request still goes out.
        return;
    }
    if (registerId == 0) {
        SSO_LOGE("m_registerId is 0. Failed to g_dbus_connection_register_object() : %s",
                 SSO_CLIENT_OBJECT_PATH);
        return;
    }
    self->m_registerId.store(registerId);
    SSO_LOGP("m_registerId [%d]", static_cast<int>(registerId));
    SSO_LOG_END();
}

// Runs on the monitor thread. The creator is woken here, once the object is
// registered and the bus name is ours: a request sent earlier could have its
// result sent back to a name nobody owns yet, and lost.
void CSSOSvcGdbus::m_OnNameAcquired(GDBusConnection *, const gchar *name, gpointer instance)
{
    SSO_LOGP("pName [%s]", name);
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self != nullptr && self->m_registerId.load() != 0)
        self->m_WakeCreator();
}

// Runs on the monitor thread. Losing the name is not acted on, but a creator
// still waiting has nothing more to wait for.
void CSSOSvcGdbus::m_OnNameLost(GDBusConnection *, const gchar *name, gpointer instance)
{
    SSO_LOGP("pName [%s]", name);
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self != nullptr && self->m_registerId.load() != 0)
        self->m_WakeCreator();
}

void CSSOSvcGdbus::m_OnSignal(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                              const gchar *signalName, GVariant *, gpointer instance)
{
    if (instance == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    SSO_LOGW_G("---> pSignalName [%s]", signalName);
}

// Runs on the monitor thread. The sender check, with the bus asked for a
// peer's process id only the first time that peer calls.
bool CSSOSvcGdbus::m_IsCallerValid(GDBusConnection *connection, const char *sender,
                                   GVariant *parameters)
{
    SSO_LOG_START();
    const std::string name = sender != nullptr ? sender : "";
    auto known = std::find_if(m_callerObjPids.begin(), m_callerObjPids.end(),
                              [&](const auto &entry) { return entry.first == name; });
    if (known != m_callerObjPids.end())
        return SSOAPIUtil::IsCallerObjectPidInParameters(known->second, parameters);

    std::string callerObjPid;
    if (!SSOAPIUtil::m_GetCallerObjectProcessId(connection, sender, callerObjPid)) {
        SSO_LOGE("Failed to m_GetCallerObjProcessId()");
        return false;
    }
    // Few peers ever call (the service, and again after it restarts): the
    // oldest entry goes when the list is full.
    if (m_callerObjPids.size() >= kCallerObjPidsKept)
        m_callerObjPids.erase(m_callerObjPids.begin());
    m_callerObjPids.emplace_back(name, callerObjPid);
    return SSOAPIUtil::IsCallerObjectPidInParameters(callerObjPid, parameters);
}

// Runs on the monitor thread.
void CSSOSvcGdbus::m_HandleMethodCall(GDBusConnection *connection, const gchar *sender,
                                      const gchar *objectPath, const gchar *interfaceName,
                                      const gchar *methodName, GVariant *parameters,
                                      GDBusMethodInvocation *invocation, gpointer instance)
{
    SSO_LOG_START();
    SSO_LOGE("<--- pMethodName [%s] ---", methodName);
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    if (!self->m_IsCallerValid(connection, sender, parameters)) {
        SSO_LOGE("Caller process is invalid");
        GError *error =
            g_error_new_literal(kInvalidCallerErrorDomain, 0, "process id is different");
        g_dbus_method_invocation_return_gerror(invocation, error);
        g_error_free(error);
        return;
    }
    SSOMethodCallHandler handler = self->m_pHandleMethodCallCb.load();
    if (handler == nullptr) {
        // Left unanswered: the service's call runs into its own time-out.
        SSO_LOGW_G("m_pHandleMethodCallCb is null");
        return;
    }
    SSO_LOGY("Call m_pHandleMethodCallCb()");
    handler(connection, sender, objectPath, interfaceName, methodName, parameters, invocation,
            self->m_pHandleMethodCallCbUserData.load());
    SSO_LOG_END();
}

bool CSSOSvcGdbus::CallMethodToServer(std::string methodName, GVariant *parameters,
                                      GVariant **reply, int timeout)
{
    SSO_LOG_START();
    SSO_LOGE("--- methodName [%s] m_objectName [%s] --->", methodName.c_str(),
             m_objectName.c_str());

    // The connection comes with a reference of our own, taken under the
    // link's lock: a rebuild on another thread cannot free it under this call.
    GDBusConnection *connection = nullptr;
    if (!m_GetProxy(&connection) || connection == nullptr) {
        SSO_LOGE("Failed to GetProxy()");
        if (parameters != nullptr)
            g_variant_unref(g_variant_ref_sink(parameters));
        return false;
    }

    SSO_LOGP("bus name[%s] path[%s] interface[%s]", SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH,
             SSO_SERVER_INTERFACE);
    // These three must never start the service; any other request may.
    GDBusCallFlags flags = G_DBUS_CALL_FLAGS_NONE;
    if (methodName == "heartbeat" || methodName == "notify_app_launch_status" ||
        methodName == "notify_special_app") {
        SSO_LOGP("Set G_DBUS_CALL_FLAGS_NO_AUTO_START");
        flags = G_DBUS_CALL_FLAGS_NO_AUTO_START;
    }

    GError *error = nullptr;
    GVariant *result = g_dbus_connection_call_sync(
        connection, SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE,
        methodName.c_str(), parameters, nullptr, flags, timeout, m_pCallCancellable, &error);
    g_object_unref(connection);
    if (reply != nullptr)
        *reply = result;
    else if (result != nullptr)
        g_variant_unref(result);
    if (error != nullptr) {
        SSO_LOGE("g_dbus_connection_call_sync return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error).c_str(), error->message, error->code);
        g_error_free(error);
        return false;
    }
    SSO_LOG_END();
    return true;
}

void CSSOSvcGdbus::CancelCalls()
{
    g_cancellable_cancel(m_pCallCancellable);
}

void CSSOSvcGdbus::GiveProxy()
{
    SSOAPIAutoLock lock(&m_mutexProxy);
    if (m_IsGivenProxy())
        return;
    m_bGivenProxy.store(true, std::memory_order_release);
    m_ReleaseConnectionToServer();
    m_DestroyProxyMonitor();
    SSO_LOG_END();
}
