#include "sso_api_proxy.h"

#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "SSOAPIAutoLock.h"
#include "SSOAPIError.h"
#include "SSOAPIUtil.h"
#include "sso_glib_ptr.h"
#include "sso_log.h"
#include "sso_thread_signals.h"

namespace {

// How long the holder of the client name is looked up for the log.
constexpr int kHolderLookupMs = 1000;

// The error domain of the sender-check refusal: a fixed number, not a
// registered domain.
constexpr GQuark kInvalidCallerErrorDomain = 19;

// RequestName flags and answers of the bus.
constexpr guint32 kNameReplaceExisting = 0x2;
constexpr guint32 kNamePrimaryOwner = 1;
constexpr guint32 kNameAlreadyOwner = 4;

std::string EncodedError(const GError *error)
{
    sso_glib::CharPtr name(g_dbus_error_encode_gerror(error));
    return name != nullptr ? name.get() : "";
}

// Refuses a call from a process that is not the one it claims to be.
void ReturnInvalidCaller(CSSOBusInvocation &invocation)
{
    sso_glib::ErrorPtr error(
        g_error_new_literal(kInvalidCallerErrorDomain, 0, "process id is different"));
    invocation.ReturnGError(error.get());
}

struct timespec MonotonicTimespec(SSOClock::time_point when)
{
    // steady_clock is CLOCK_MONOTONIC on Linux.
    auto since = when.time_since_epoch();
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    auto nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds);
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(seconds.count());
    ts.tv_nsec = static_cast<long>(nanos.count());
    return ts;
}

void InitMonotonicCond(pthread_cond_t *cond)
{
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(cond, &attr);
    pthread_condattr_destroy(&attr);
}

#if defined(__SANITIZE_THREAD__)
#define SSO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define SSO_THREAD_SANITIZER 1
#endif
#endif

// Locks mutex unless the deadline passes first.
bool LockBefore(pthread_mutex_t *mutex, SSOClock::time_point deadline)
{
#if defined(SSO_THREAD_SANITIZER)
    // ThreadSanitizer does not know pthread_mutex_clocklock: it would see
    // every unlock as one of a mutex nobody locked, and lose what the lock
    // orders. Its build waits by the wall clock instead.
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::max(deadline - SSOClock::now(), SSOClock::duration::zero()));
    long long nanos = static_cast<long long>(ts.tv_nsec) + left.count() % 1000000000;
    ts.tv_sec += static_cast<time_t>(left.count() / 1000000000 + nanos / 1000000000);
    ts.tv_nsec = static_cast<long>(nanos % 1000000000);
    return pthread_mutex_timedlock(mutex, &ts) == 0;
#else
    struct timespec ts = MonotonicTimespec(deadline);
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &ts) == 0;
#endif
}

// m_mutexProxy, waited for no longer than a deadline.
class TimedProxyLock {
public:
    TimedProxyLock(pthread_mutex_t *mutex, SSOClock::time_point deadline)
        : m_mutex(mutex), m_locked(LockBefore(mutex, deadline))
    {
    }
    ~TimedProxyLock()
    {
        if (m_locked)
            pthread_mutex_unlock(m_mutex);
    }
    TimedProxyLock(const TimedProxyLock &) = delete;
    TimedProxyLock &operator=(const TimedProxyLock &) = delete;
    bool locked() const { return m_locked; }

private:
    pthread_mutex_t *m_mutex;
    bool m_locked = false;
};

} // namespace

const CSSOSvcGdbus::InterfaceVTable CSSOSvcGdbus::m_interfaceVTable = {
    CSSOSvcGdbus::m_HandleMethodCall};

CSSOSvcGdbus::CSSOSvcGdbus()
    : m_processId(SSOAPIUtil::GetProcessId()),
      m_processName(SSOAPIUtil::GetProcessName(m_processId)),
      m_objectName(SSOAPIUtil::GetObjectName(m_processId)),
      m_clientBusName(SSO_CLIENT_BUS_NAME_PREFIX + m_objectName)
{
    pthread_mutex_init(&m_mutexProxy, nullptr);
    pthread_mutex_init(&m_mutexMonitorLoop, nullptr);
    pthread_mutex_init(&m_mutexProxyMonitor, nullptr);
    pthread_mutex_init(&m_mutexName, nullptr);
    InitMonotonicCond(&m_condProxyMonitor);
    InitMonotonicCond(&m_condName);
    m_pCallCancellable = g_cancellable_new();
    SSO_LOGW_G("m_processId(%d) m_objectName(%s)", m_processId, m_objectName.c_str());
}

CSSOSvcGdbus::~CSSOSvcGdbus()
{
    GiveProxy();
    UnregisterCallback();
    g_object_unref(m_pCallCancellable);
    pthread_cond_destroy(&m_condName);
    pthread_cond_destroy(&m_condProxyMonitor);
    pthread_mutex_destroy(&m_mutexName);
    pthread_mutex_destroy(&m_mutexProxyMonitor);
    pthread_mutex_destroy(&m_mutexMonitorLoop);
    pthread_mutex_destroy(&m_mutexProxy);
    SSO_LOGW_G("m_bGivenProxy(%d) m_objectName(%s)", m_bGivenProxy.load() ? 1 : 0,
               m_objectName.c_str());
    SSO_LOG_END();
}

std::atomic<bool> CSSOSvcGdbus::s_bProcessGaveProxy{false};

void CSSOSvcGdbus::PostCreateInstance()
{
    if (s_bProcessGaveProxy.load()) {
        // Made only to be given up: no link to bring up.
        m_bGivenProxy.store(true, std::memory_order_release);
        return;
    }
    (void)m_GetProxy(SSOClock::now());
}

void CSSOSvcGdbus::ForgetAfterFork()
{
    // The parent's sockets are closed so the bus sees the parent alone on
    // them; everything else of the parent's link is left as it is.
    CSSOBusConnection::CloseInheritedSockets();
    SSOAPISingleton<CSSOSvcGdbus>::ForgetInstanceAfterFork();
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

std::shared_ptr<CSSOBusConnection> CSSOSvcGdbus::connection()
{
    SSOAPIAutoLock lock(&m_mutexProxy);
    return m_pConnectionToServer;
}

// Brings the link up if it is down; all of it under m_mutexProxy, which a
// thread waits for no longer than its own set-up allowance. With connection,
// also hands out a reference of the caller's own to the connection, and with
// generation the number of that link.
bool CSSOSvcGdbus::m_GetProxy(SSOClock::time_point arrival,
                              std::shared_ptr<CSSOBusConnection> *connection, uint64_t *generation)
{
    const SSOClock::time_point deadline = arrival + std::chrono::seconds(kSetUpSeconds);
    TimedProxyLock lock(&m_mutexProxy, deadline);
    if (!lock.locked()) {
        SSO_LOGE("The link's set-up by another thread did not end within %d s", kSetUpSeconds);
        return sso_private_fail(SSO_ERROR_TIMED_OUT, false);
    }
    if (m_IsGivenProxy())
        return sso_private_fail(SSO_ERROR_LINK_GIVEN_UP, false);
    if (m_introspectionXml.empty()) {
        SSO_LOGE("m_introspectionXml is empty.");
        return sso_private_fail(SSO_ERROR_INTERNAL, false);
    }
    if (m_interfaceVTable.method_call == nullptr) {
        SSO_LOGE("m_interfaceVTable.method_call is empty.");
        return sso_private_fail(SSO_ERROR_INTERNAL, false);
    }
    if (m_processId <= 0) {
        SSO_LOGE("m_processId is '<= 0'");
        return sso_private_fail(SSO_ERROR_INTERNAL, false);
    }

    if (m_bProxyMonitorCreated && m_pConnectionToServer != nullptr) {
        if (!m_pConnectionToServer->isClosed()) {
            SSO_LOG_END_F("m_pConnectionToServer is already connected");
            if (connection != nullptr)
                *connection = m_pConnectionToServer;
            if (generation != nullptr)
                *generation = m_linkGeneration.load();
            return true;
        }
        // Found lazily, at the next call: rebuild both directions.
        SSO_LOGE("m_pConnectionToServer is disconnected. Try to clean up and connect again.");
        if (pthread_equal(pthread_self(), static_cast<pthread_t>(m_proxyMonitorThreadId.load()))) {
            SSO_LOGE("The link cannot be rebuilt from its own monitor thread");
            return sso_private_fail(SSO_ERROR_NO_BUS, false);
        }
        m_ReleaseConnectionToServer();
        m_DestroyProxyMonitor();
    }

    // A set-up that failed after this request began was this request's try.
    if (!m_bLastSetUpOk && m_lastSetUpEnd >= arrival) {
        SSO_LOGE("The link's set-up failed while this request waited for it; not tried again");
        return sso_private_fail(m_lastSetUpError, false);
    }
    if (g_cancellable_is_cancelled(m_pCallCancellable)) {
        SSO_LOGE("The link is being torn down");
        return sso_private_fail(SSO_ERROR_UNLOADING, false);
    }

    bool ok = false;
    if (!m_GetConnectionToServer(deadline)) {
        SSO_LOGE("Failed to m_GetConnectionToServer()");
    } else if (!m_CreateProxyMonitor(deadline)) {
        SSO_LOGE("Failed to m_CreateProxyMonitor()");
        m_ReleaseConnectionToServer();
        m_DestroyProxyMonitor();
    } else {
        ok = true;
        m_linkGeneration.fetch_add(1, std::memory_order_acq_rel);
        if (connection != nullptr)
            *connection = m_pConnectionToServer;
        if (generation != nullptr)
            *generation = m_linkGeneration.load();
    }
    m_lastSetUpEnd = SSOClock::now();
    m_bLastSetUpOk = ok;
    // Threads that waited for this attempt fail with its cause.
    m_lastSetUpError = ok ? SSO_ERROR_NONE : SSOAPIError::Last();
    return ok;
}

bool CSSOSvcGdbus::EnsureLink(SSOClock::time_point arrival)
{
    if (!m_GetProxy(arrival)) {
        SSO_LOGE("Failed to GetProxy()");
        return false;
    }
    return m_CheckClientName(arrival + std::chrono::seconds(kSetUpSeconds));
}

// Called with m_mutexProxy held, on the requesting thread.
bool CSSOSvcGdbus::m_GetConnectionToServer(SSOClock::time_point deadline)
{
    sso_glib::ErrorPtr error;
    std::shared_ptr<CSSOBusConnection> connection = CSSOBusConnection::Open(
        CSSOBusConnection::SystemBusAddress(), deadline, m_pCallCancellable, sso_glib::Out(error));
    if (connection == nullptr) {
        SSO_LOGE("g_bus_get_sync() return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error.get()).c_str(), error->message, error->code);
        SSOAPIError::Set(SSOAPIError::FromBusError(error.get()));
        return false;
    }
    m_pConnectionToServer = connection;
    // The bus tells the owner of a name when it gains or loses it.
    connection->SetBusSignalObserver(
        [this](const char *member, GVariant *body) { m_OnBusSignal(member, body); });

    // Subscribed on the requesting thread: the handler runs in whatever main
    // context was this thread's default now.
    sso_glib::MainContextPtr context(g_main_context_ref_thread_default());
    CSSOBusConnection *raw = connection.get();
    m_signalId = connection->SubscribeSignal(
        nullptr, SSO_SIGNAL_INTERFACE, nullptr, SSO_SIGNAL_OBJECT_PATH, context.get(),
        [this, raw](GDBusMessage *signal) {
            m_OnSignal(raw, g_dbus_message_get_sender(signal), g_dbus_message_get_path(signal),
                       g_dbus_message_get_interface(signal), g_dbus_message_get_member(signal),
                       g_dbus_message_get_body(signal), this);
        });
    if (m_signalId == 0)
        SSO_LOGE("m_signalId is 0");
    return true;
}

// Called with m_mutexProxy held. Nothing is said to the bus: closing the
// socket is enough for it to drop our name and match rules.
void CSSOSvcGdbus::m_ReleaseConnectionToServer()
{
    if (m_pConnectionToServer == nullptr)
        return;
    if (m_signalId != 0) {
        m_pConnectionToServer->UnsubscribeSignal(m_signalId);
        m_signalId = 0;
    }
    m_pConnectionToServer->SetBusSignalObserver(nullptr);
    m_pConnectionToServer->Close();
}

void CSSOSvcGdbus::m_WakeCreator()
{
    SSO_LOGY("LOCK_GIVE BEGIN");
    pthread_mutex_lock(&m_mutexProxyMonitor);
    m_bMonitorAnswered = true;
    pthread_cond_broadcast(&m_condProxyMonitor);
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    SSO_LOGY("LOCK_GIVE END");
}

// Called with m_mutexProxy held.
bool CSSOSvcGdbus::m_CreateProxyMonitor(SSOClock::time_point deadline)
{
    SSO_LOGY("LOCK_CREATE BEGIN");
    pthread_mutex_lock(&m_mutexProxyMonitor);
    m_bMonitorAnswered = false;
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    pthread_mutex_lock(&m_mutexMonitorLoop);
    m_bStopRequested = false;
    pthread_mutex_unlock(&m_mutexMonitorLoop);
    // Known before the monitor runs: a request waits for the bus's answer
    // about a name that can be owned, and goes out at once otherwise.
    m_SetNameState(g_dbus_is_name(m_clientBusName.c_str()) &&
                           !g_dbus_is_unique_name(m_clientBusName.c_str())
                       ? NameState::Pending
                       : NameState::None);
    // A context of this link's own: what is still queued for it when the
    // link goes is dropped with it, never run by the next one.
    m_pLinkContext = g_main_context_new();
    SSO_LOGY("LOCK_CREATE END");

    pthread_t thread = 0;
    int err;
    {
        SSOQuietThreadStart quiet;
        err = pthread_create(&thread, nullptr, m_RunProxyMonitor, this);
    }
    if (err != 0) {
        SSO_LOGE("Failed to pthread_create() : %d", err);
        return sso_private_fail(SSO_ERROR_INTERNAL, false);
    }
    m_proxyMonitorThreadId.store(static_cast<unsigned long>(thread), std::memory_order_release);

    // One bounded wait, ended only by the object's registration (or the
    // unload): the request goes out whether the monitor answered or the
    // time ran out.
    SSO_LOGY("Wait for creating proxy-monitor (10s timeout)");
    SSO_LOGY("LOCK_TAKE_TRY BEGIN");
    struct timespec until = MonotonicTimespec(deadline);
    pthread_mutex_lock(&m_mutexProxyMonitor);
    while (!m_bMonitorAnswered && !m_bWaitCancelled) {
        if (pthread_cond_timedwait(&m_condProxyMonitor, &m_mutexProxyMonitor, &until) == ETIMEDOUT)
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

// Called with m_mutexProxy held; the connection is closed already. On the
// monitor thread itself the thread cannot be joined: it ends on its own once
// the callback it runs returns.
void CSSOSvcGdbus::m_DestroyProxyMonitor()
{
    // Ask the loop to stop from inside itself, so a loop that has not started
    // running yet still stops once it does.
    pthread_mutex_lock(&m_mutexMonitorLoop);
    m_bStopRequested = true;
    if (m_pMainLoop != nullptr) {
        sso_glib::SourcePtr quit(g_idle_source_new());
        g_source_set_priority(quit.get(), G_PRIORITY_HIGH);
        g_source_set_callback(
            quit.get(),
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return G_SOURCE_REMOVE;
            },
            g_main_loop_ref(m_pMainLoop), reinterpret_cast<GDestroyNotify>(g_main_loop_unref));
        g_source_attach(quit.get(), g_main_loop_get_context(m_pMainLoop));
    }
    pthread_mutex_unlock(&m_mutexMonitorLoop);

    bool joined = false;
    unsigned long thread = m_proxyMonitorThreadId.load(std::memory_order_acquire);
    if (thread != 0) {
        if (pthread_equal(pthread_self(), static_cast<pthread_t>(thread))) {
            SSO_LOGE("pthread_join() on the monitor thread itself : %ld",
                     static_cast<long>(thread));
            pthread_detach(static_cast<pthread_t>(thread));
        } else {
            SSO_LOGY("Try to pthread_join() : %ld", static_cast<long>(thread));
            if (pthread_join(static_cast<pthread_t>(thread), nullptr) != 0)
                SSO_LOGE("Failed to pthread_join() : %ld", static_cast<long>(thread));
            else
                joined = true;
            SSO_LOGY("pthread_join() id done : %ld", static_cast<long>(thread));
        }
        m_proxyMonitorThreadId.store(0, std::memory_order_release);
    }

    unsigned int registerId = m_registerId.exchange(0);
    if (m_pConnectionToServer != nullptr && registerId != 0)
        m_pConnectionToServer->UnregisterObject(registerId);
    // The name went with the connection's socket.
    m_ownerId.store(0);
    if (joined) {
        if (m_pNodeInfo != nullptr) {
            g_dbus_node_info_unref(m_pNodeInfo);
            m_pNodeInfo = nullptr;
        }
        // Whatever is still queued for the old link is dropped unrun.
        if (GMainContext *context = m_pLinkContext.exchange(nullptr))
            g_main_context_unref(context);
    } else {
        // The monitor still runs: its objects go with it (leaked once).
        m_pNodeInfo = nullptr;
        m_pLinkContext = nullptr;
    }
    m_pClientConnection = nullptr;
    m_pConnectionToServer.reset();
    // Results of requests sent on the old link can no longer come.
    m_requests.Clear();
    m_SetNameState(NameState::None);

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

    GMainContext *context = self->m_pLinkContext.load();
    if (context == nullptr) {
        SSO_LOGE("pContext is null");
        return nullptr;
    }
    // Inside the fork gate, but while the loop waits for something to do.
    struct GLibWork {
        GLibWork() { CSSOBusConnection::EnterGLibWork(); }
        ~GLibWork() { CSSOBusConnection::LeaveGLibWork(); }
    } work;
    g_main_context_set_poll_func(context, CSSOBusConnection::PollOutsideForkGate);
    // Everything the link hands to this thread is dispatched here.
    g_main_context_push_thread_default(context);

    sso_glib::ErrorPtr error;
    self->m_pNodeInfo =
        g_dbus_node_info_new_for_xml(m_introspectionXml.c_str(), sso_glib::Out(error));
    if (error != nullptr) {
        SSO_LOGE("g_dbus_node_info_new_for_xml() return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error.get()).c_str(), error->message, error->code);
        self->m_SetNameState(NameState::None);
        g_main_context_pop_thread_default(context);
        return nullptr;
    }
    if (self->m_pNodeInfo == nullptr) {
        SSO_LOGE("m_pNodeInfo is null");
        self->m_SetNameState(NameState::None);
        g_main_context_pop_thread_default(context);
        return nullptr;
    }

    const std::string &clientBusName = self->m_clientBusName;
    SSO_LOGP("clientBusName [%s]", clientBusName.c_str());
    CSSOBusConnection *connection = self->m_pConnectionToServer.get();
    unsigned int ownerId = 0;
    // An application id that does not make a valid bus name cannot be owned.
    if (connection != nullptr && g_dbus_is_name(clientBusName.c_str()) &&
        !g_dbus_is_unique_name(clientBusName.c_str())) {
        // The bus is ours already: the object is registered before the name
        // is asked for, as on a fresh bus acquisition.
        self->m_pClientConnection = connection;
        m_OnBusAcquired(connection, clientBusName.c_str(), self);
        // Ours against any other process: replace an earlier owner that lets
        // us, never let anyone replace us, and wait in the queue otherwise.
        sso_glib::ObjectPtr<GDBusMessage> request(g_dbus_message_new_method_call(
            SSO_BUS_NAME, SSO_BUS_PATH, SSO_BUS_INTERFACE, "RequestName"));
        g_dbus_message_set_body(request.get(),
                                g_variant_new("(su)", clientBusName.c_str(), kNameReplaceExisting));
        connection->CallAsync(
            request.get(), kSetUpSeconds * 1000, context,
            [self, connection](GDBusMessage *reply, const GError *replyError) {
                guint32 answer = 0;
                GVariant *body = reply != nullptr ? g_dbus_message_get_body(reply) : nullptr;
                if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(u)")))
                    g_variant_get(body, "(u)", &answer);
                // The bus's NameAcquired may have told it first.
                if (answer == kNamePrimaryOwner || answer == kNameAlreadyOwner) {
                    if (self->m_SetNameState(NameState::Owned))
                        m_OnNameAcquired(connection, self->m_clientBusName.c_str(), self);
                    return;
                }
                if (answer == 0)
                    SSO_LOGE("RequestName(%s) failed: %s", self->m_clientBusName.c_str(),
                             replyError != nullptr ? replyError->message : "no answer");
                if (self->m_SetNameState(answer == 0 ? NameState::Failed : NameState::Queued))
                    m_OnNameLost(connection, self->m_clientBusName.c_str(), self);
            });
        ownerId = 1;
    }
    self->m_ownerId.store(ownerId);
    if (ownerId == 0) {
        self->m_SetNameState(NameState::None);
        // Nothing wakes the creator: it waits out its time, then the request
        // still goes out.
        SSO_LOGE("m_ownerId is 0. Failed to g_bus_own_name() : %s", clientBusName.c_str());
        g_main_context_pop_thread_default(context);
        return nullptr;
    }

    sso_glib::MainLoopPtr loop(g_main_loop_new(context, FALSE));
    pthread_mutex_lock(&self->m_mutexMonitorLoop);
    bool run = !self->m_bStopRequested;
    self->m_pMainLoop = loop.get();
    pthread_mutex_unlock(&self->m_mutexMonitorLoop);
    if (run)
        g_main_loop_run(loop.get());
    pthread_mutex_lock(&self->m_mutexMonitorLoop);
    self->m_pMainLoop = nullptr;
    pthread_mutex_unlock(&self->m_mutexMonitorLoop);
    loop.reset();

    g_main_context_pop_thread_default(context);
    SSO_LOG_END();
    return nullptr;
}

// Runs on the monitor thread. The creator is woken here, and only here: once
// the client object is registered.
void CSSOSvcGdbus::m_OnBusAcquired(CSSOBusConnection *connection, const gchar *name,
                                   gpointer instance)
{
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    SSO_LOGP("pName [%s]", name);
    self->m_pClientConnection = connection;

    sso_glib::ErrorPtr error;
    unsigned int registerId = connection->RegisterObject(
        SSO_CLIENT_OBJECT_PATH, self->m_pNodeInfo->interfaces[0], self->m_pLinkContext.load(),
        [self](const CSSOBusConnection::Invocation &invocation) {
            self->m_HandleIncoming(invocation);
        },
        sso_glib::Out(error));
    if (error != nullptr) {
        SSO_LOGE("g_dbus_connection_register_object() return error. %s, %s, "
                 "detail[message:%s, code:%d]",
                 EncodedError(error.get()).c_str(), SSO_CLIENT_OBJECT_PATH, error->message,
                 error->code);
        if (registerId != 0)
            connection->UnregisterObject(registerId);
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
    self->m_WakeCreator();
    SSO_LOG_END();
}

// Runs on the monitor thread.
void CSSOSvcGdbus::m_OnNameAcquired(CSSOBusConnection *, const gchar *name, gpointer)
{
    SSO_LOGP("pName [%s]", name);
}

// Runs on the monitor thread.
void CSSOSvcGdbus::m_OnNameLost(CSSOBusConnection *, const gchar *name, gpointer)
{
    SSO_LOGP("pName [%s]", name);
}

// Runs on the connection's reader thread: only records what the bus said and
// hands the log line to the monitor.
void CSSOSvcGdbus::m_OnBusSignal(const char *member, GVariant *body)
{
    if (body == nullptr || !g_variant_is_of_type(body, G_VARIANT_TYPE("(s)")))
        return;
    const gchar *name = nullptr;
    g_variant_get(body, "(&s)", &name);
    if (m_clientBusName != name)
        return;
    bool acquired = g_strcmp0(member, "NameAcquired") == 0;
    if (!acquired && g_strcmp0(member, "NameLost") != 0)
        return;
    GMainContext *context = m_pLinkContext.load();
    if (m_SetNameState(acquired ? NameState::Owned : NameState::Queued) && context != nullptr) {
        CSSOBusConnection *connection = m_pClientConnection.load();
        sso_bus_invoke(context, [this, acquired, connection] {
            if (acquired)
                m_OnNameAcquired(connection, m_clientBusName.c_str(), this);
            else
                m_OnNameLost(connection, m_clientBusName.c_str(), this);
        });
    }
}

bool CSSOSvcGdbus::m_SetNameState(NameState state)
{
    pthread_mutex_lock(&m_mutexName);
    bool changed = m_nameState != state;
    m_nameState = state;
    pthread_cond_broadcast(&m_condName);
    pthread_mutex_unlock(&m_mutexName);
    return changed;
}

// The client name must be this connection's before a request goes out: its
// result is sent to whoever owns the name.
bool CSSOSvcGdbus::m_CheckClientName(SSOClock::time_point deadline)
{
    struct timespec until = MonotonicTimespec(deadline);
    pthread_mutex_lock(&m_mutexName);
    while (m_nameState == NameState::Pending && !g_cancellable_is_cancelled(m_pCallCancellable)) {
        if (pthread_cond_timedwait(&m_condName, &m_mutexName, &until) == ETIMEDOUT)
            break;
    }
    NameState state = m_nameState;
    pthread_mutex_unlock(&m_mutexName);
    if (state == NameState::Owned || state == NameState::None)
        return true;
    if (state == NameState::Pending) {
        SSO_LOGE("The bus has not answered for the client name %s; the request is not sent",
                 m_clientBusName.c_str());
        return sso_private_fail(g_cancellable_is_cancelled(m_pCallCancellable)
                                    ? SSO_ERROR_UNLOADING
                                    : SSO_ERROR_TIMED_OUT,
                                false);
    }

    std::shared_ptr<CSSOBusConnection> conn = connection();
    pid_t holder = 0;
    bool known = false;
    if (conn != nullptr) {
        sso_glib::VariantPtr owner(conn->CallBus("GetNameOwner",
                                                 g_variant_new("(s)", m_clientBusName.c_str()),
                                                 kHolderLookupMs, m_pCallCancellable, nullptr));
        if (owner != nullptr) {
            const gchar *unique = nullptr;
            g_variant_get(owner.get(), "(&s)", &unique);
            known = conn->PeerPid(unique, kHolderLookupMs, holder);
        }
    }
    if (!known) {
        if (state == NameState::Failed) {
            // Nobody has it: the result may still reach this connection.
            SSO_LOGE("The bus refused the client name %s, which nobody holds",
                     m_clientBusName.c_str());
            return true;
        }
        SSO_LOGE("The client name %s is held by another connection; the request is not sent",
                 m_clientBusName.c_str());
        return sso_private_fail(SSO_ERROR_CLIENT_NAME_TAKEN, false);
    }
    if (holder == getpid()) {
        // An earlier connection of this process, on its way out: ours next.
        pthread_mutex_lock(&m_mutexName);
        while (m_nameState != NameState::Owned && !g_cancellable_is_cancelled(m_pCallCancellable)) {
            if (pthread_cond_timedwait(&m_condName, &m_mutexName, &until) == ETIMEDOUT)
                break;
        }
        bool owned = m_nameState == NameState::Owned;
        pthread_mutex_unlock(&m_mutexName);
        if (owned)
            return true;
    }
    SSO_LOGE("The client name %s is held by process %d; the request is not sent, its result "
             "would go there",
             m_clientBusName.c_str(), static_cast<int>(holder));
    return sso_private_fail(SSO_ERROR_CLIENT_NAME_TAKEN, false);
}

void CSSOSvcGdbus::m_OnSignal(CSSOBusConnection *, const gchar *, const gchar *, const gchar *,
                              const gchar *signalName, GVariant *, gpointer instance)
{
    if (instance == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    SSO_LOGW_G("---> pSignalName [%s]", signalName);
}

// Runs on the monitor thread. The sender check needs the sender's pid; a
// sender the connection does not know yet is asked for without waiting, the
// call parked until the bus answers, so other calls go on meanwhile.
void CSSOSvcGdbus::m_HandleIncoming(const CSSOBusConnection::Invocation &invocation)
{
    CSSOBusConnection *connection = invocation->connection();
    GDBusMessage *message = invocation->message();
    const char *sender = invocation->sender();
    auto handle = [this, connection, message, invocation] {
        m_HandleMethodCall(connection, invocation->sender(), g_dbus_message_get_path(message),
                           g_dbus_message_get_interface(message),
                           g_dbus_message_get_member(message), invocation->parameters(),
                           invocation.get(), this);
    };
    pid_t pid = 0;
    if (sender == nullptr || connection->CachedPeerPid(sender, pid) ||
        !g_dbus_is_unique_name(sender)) {
        handle();
        return;
    }
    bool parked = connection->LookupPeerPidAsync(
        sender, m_pLinkContext.load(), [handle, invocation](pid_t, bool ok) {
            if (ok) {
                handle();
                return;
            }
            SSO_LOGE("<--- pMethodName [%s] ---", g_dbus_message_get_member(invocation->message()));
            SSO_LOGE("Failed to m_GetCallerObjProcessId()");
            SSO_LOGE("Caller process is invalid");
            ReturnInvalidCaller(*invocation);
        });
    if (!parked) {
        SSO_LOGE("Too many callers wait for their process id; a call from %s is refused", sender);
        ReturnInvalidCaller(*invocation);
    }
}

// Runs on the monitor thread.
void CSSOSvcGdbus::m_HandleMethodCall(CSSOBusConnection *connection, const gchar *sender,
                                      const gchar *objectPath, const gchar *interfaceName,
                                      const gchar *methodName, GVariant *parameters,
                                      CSSOBusInvocation *invocation, gpointer instance)
{
    SSO_LOG_START();
    SSO_LOGE("<--- pMethodName [%s] ---", methodName);
    auto *self = static_cast<CSSOSvcGdbus *>(instance);
    if (self == nullptr) {
        SSO_LOGE("pInstance is null");
        return;
    }
    if (!SSOAPIUtil::IsCallerProcessValid(connection, sender, parameters)) {
        SSO_LOGE("Caller process is invalid");
        ReturnInvalidCaller(*invocation);
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
                                      GVariant **reply, int timeout, uint64_t link)
{
    SSO_LOG_START();
    SSO_LOGE("--- methodName [%s] m_objectName [%s] --->", methodName.c_str(),
             m_objectName.c_str());

    // The connection comes with a reference of our own, taken under the
    // link's lock: a rebuild on another thread cannot free it under this call.
    std::shared_ptr<CSSOBusConnection> connection;
    uint64_t generation = 0;
    bool ok = m_GetProxy(SSOClock::now(), &connection, &generation) && connection != nullptr;
    if (!ok) {
        SSO_LOGE("Failed to GetProxy()");
    } else if (link != 0 && generation != link) {
        // Rebuilt by another thread after the request was made up: its
        // request id and its outstanding entry belong to the old link.
        SSO_LOGE("The link was rebuilt after [%s] was made up; it is not sent", methodName.c_str());
        ok = false;
    }
    if (!ok) {
        if (parameters != nullptr)
            g_variant_unref(g_variant_ref_sink(parameters));
        return false;
    }

    SSO_LOGP("bus name[%s] path[%s] interface[%s]", SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH,
             SSO_SERVER_INTERFACE);
    sso_glib::ObjectPtr<GDBusMessage> call(g_dbus_message_new_method_call(
        SSO_SERVER_BUS_NAME, SSO_SERVER_OBJECT_PATH, SSO_SERVER_INTERFACE, methodName.c_str()));
    if (parameters != nullptr)
        g_dbus_message_set_body(call.get(), parameters);
    // These three must never start the service; any other request may.
    if (methodName == "heartbeat" || methodName == "notify_app_launch_status" ||
        methodName == "notify_special_app") {
        SSO_LOGP("Set G_DBUS_CALL_FLAGS_NO_AUTO_START");
        g_dbus_message_set_flags(call.get(), G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);
    }

    sso_glib::ErrorPtr error;
    sso_glib::ObjectPtr<GDBusMessage> answer(
        connection->Call(call.get(), timeout, m_pCallCancellable, sso_glib::Out(error)));
    call.reset();
    sso_glib::VariantPtr result;
    if (answer != nullptr) {
        GVariant *body = g_dbus_message_get_body(answer.get());
        result = body != nullptr ? sso_glib::VariantPtr(g_variant_ref(body))
                                 : sso_glib::AdoptVariant(g_variant_new("()"));
        answer.reset();
    }
    if (reply != nullptr)
        *reply = result.release();
    if (error != nullptr) {
        SSO_LOGE("g_dbus_connection_call_sync return error. %s, detail[message:%s, code:%d]",
                 EncodedError(error.get()).c_str(), error->message, error->code);
        sso_error_e cause = SSOAPIError::FromBusError(error.get());
        SSOAPIError::Set(cause == SSO_ERROR_UNLOADING && isGiven() ? SSO_ERROR_LINK_GIVEN_UP
                                                                   : cause);
        return false;
    }
    SSO_LOG_END();
    return true;
}

void CSSOSvcGdbus::CancelCalls()
{
    g_cancellable_cancel(m_pCallCancellable);
    pthread_mutex_lock(&m_mutexProxyMonitor);
    m_bWaitCancelled = true;
    pthread_cond_broadcast(&m_condProxyMonitor);
    pthread_mutex_unlock(&m_mutexProxyMonitor);
    pthread_mutex_lock(&m_mutexName);
    pthread_cond_broadcast(&m_condName);
    pthread_mutex_unlock(&m_mutexName);
}

void CSSOSvcGdbus::GiveProxyOfProcess()
{
    // First the flag, then the look: a transport whose making began after
    // the look sees the flag and never connects.
    s_bProcessGaveProxy.store(true);
    // Not GetInstance: a set-up under way holds the singleton's lock until it
    // ends, and this must cut it short instead.
    CSSOSvcGdbus *transport = SSOAPISingleton<CSSOSvcGdbus>::PeekConstructedInstance();
    if (transport == nullptr)
        transport = SSOAPISingleton<CSSOSvcGdbus>::GetInstance();
    transport->GiveProxy();
}

void CSSOSvcGdbus::GiveProxy()
{
    if (m_IsGivenProxy())
        return;
    // Given from now on: a set-up under way on another thread is cut short
    // instead of waited out, and calls in flight end at once.
    m_bGivenProxy.store(true, std::memory_order_release);
    CancelCalls();
    SSOAPIAutoLock lock(&m_mutexProxy);
    m_ReleaseConnectionToServer();
    m_DestroyProxyMonitor();
    SSO_LOG_END();
}
