// CSSOSvcGdbus: the library's only channel to the SSO service, on the D-Bus
// system bus. Outgoing: synchronous method calls to the service's object.
// Incoming: a per-process bus name and the account client object, on which the
// service calls back with the results of requests; those calls are received on
// the "SSOProxyMonitor" thread, checked for their sender and handed to the one
// registered handler (the response dispatcher).
//
// The link is one connection of the library's own (CSSOBusConnection) for
// both directions, so the service can answer the connection that asked.
// Every wait has a limit: the set-up of the link at most 10 s (connecting,
// owning the name, registering the object, for the thread that does it and
// for threads that queue behind it), a call its time-out; tear-down waits on
// nothing but the library's own threads.
//
// Lock order: m_mutexProxy, then m_mutexProxyMonitor / m_mutexMonitorLoop /
// m_mutexName. Nothing else is taken while one of the latter is held.
#pragma once

#include <gio/gio.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "SSOAPIError.h"
#include "SSOAPIRequestRegistry.h"
#include "SSOAPISingleton.h"
#include "sso_bus_connection.h"

// Fixed names on the system bus.
#define SSO_SERVER_BUS_NAME "org.orvex.tv.ssoservice.server"
#define SSO_SERVER_OBJECT_PATH "/org/orvex/tv/ssoservice/server"
#define SSO_SERVER_INTERFACE "org.orvex.tv.ssoservice.server.interface"
#define SSO_CLIENT_BUS_NAME_PREFIX "org.orvex.tv.ssoservice.ssoclient."
#define SSO_CLIENT_OBJECT_PATH "/org/orvex/tv/ssoservice/ssoclient"
#define SSO_CLIENT_INTERFACE "org.orvex.tv.ssoservice.ssoclient.interface"
#define SSO_SIGNAL_INTERFACE "org.orvex.tv.ssoservice.signal"
#define SSO_SIGNAL_OBJECT_PATH "/org/orvex/tv/ssoservice/signal"

// The one handler of incoming calls, in the shape of a method-call handler:
// the invocation is answered through invocation.
using SSOMethodCallHandler = void (*)(CSSOBusConnection *connection, const char *sender,
                                      const char *objectPath, const char *interfaceName,
                                      const char *methodName, GVariant *parameters,
                                      CSSOBusInvocation *invocation, void *userData);

class CSSOSvcGdbus : public SSOAPISingleton<CSSOSvcGdbus> {
public:
    CSSOSvcGdbus();
    ~CSSOSvcGdbus() override;

    CSSOSvcGdbus(const CSSOSvcGdbus &) = delete;
    CSSOSvcGdbus &operator=(const CSSOSvcGdbus &) = delete;

    // Connects at once: the first GetInstance blocks until the link is up or
    // has failed (at most the 10-second set-up).
    void PostCreateInstance() override;

    // The first registration of the process wins; later ones are ignored.
    void RegisterCallback(SSOMethodCallHandler handler, void *userData);
    void UnregisterCallback();

    // Makes sure the link is up for a request that began at arrival: a
    // set-up that is under way, or that failed after the request began, is
    // the request's own (it does not start another). Then makes sure the
    // client name is this connection's: while another process holds it, the
    // request is refused (logged with the holder's pid), since its result
    // would go there. Runs on the calling thread; blocks at most until
    // arrival + 10 s.
    bool EnsureLink(SSOClock::time_point arrival);

    // Calls methodName on the service synchronously. parameters is a floating
    // tuple, consumed. On true, *reply holds the reply (the caller unrefs
    // it). Runs on the calling thread; blocks up to timeout ms, plus the link
    // set-up when the link is down. With link (a linkGeneration()), the call
    // is sent only on that link: a request made up for a link that was
    // rebuilt since carries a request id whose result would be dropped.
    bool CallMethodToServer(std::string methodName, GVariant *parameters, GVariant **reply,
                            int timeout, uint64_t link = 0);

    // Tears the link down for good: later requests of the process fail.
    // Waits on no reply from the bus; joins the library's threads (when
    // called on the monitor thread, that thread ends after its callback).
    void GiveProxy();

    // sso_give_proxy: gives the process's link up without waiting for a
    // set-up under way on another thread (it is cut short) and without
    // bringing a link up first when there is none yet. Any thread but the
    // monitor; never waits on the bus.
    static void GiveProxyOfProcess();

    // For the unload: every call waiting for the service or for the link's
    // set-up, and every later one, fails at once. Any thread; never blocks.
    void CancelCalls();

    // The outstanding requests of this link (results are delivered only for
    // them). Any thread.
    SSOAPIRequestRegistry &Requests() { return m_requests; }

    // Diagnostics and readers for the method tables.
    const std::string &objectName() const { return m_objectName; }
    int processId() const { return m_processId; }
    long long proxyMonitorThreadId() const
    {
        return static_cast<long long>(m_proxyMonitorThreadId.load(std::memory_order_acquire));
    }
    bool isGiven() const { return m_bGivenProxy.load(std::memory_order_acquire); }
    // Which link is up: a new number for every link set up (0 before the
    // first). Read it before proxyMonitorThreadId(), so a rebuild in between
    // shows as a changed link at the call.
    uint64_t linkGeneration() const { return m_linkGeneration.load(std::memory_order_acquire); }
    // The connection of the link, or null while there is none.
    std::shared_ptr<CSSOBusConnection> connection();

    // In a child after fork(): the parent's transport (its connection, its
    // threads, its name) is not the child's. Forgets it without touching it,
    // so the child's first request builds a link of its own. Runs in the
    // atfork child handler, single-threaded.
    static void ForgetAfterFork();

    // The client introspection XML and the vtable of the client object.
    struct InterfaceVTable {
        SSOMethodCallHandler method_call;
    };
    static const std::string m_introspectionXml;
    static const InterfaceVTable m_interfaceVTable;

    // How long the link's set-up may keep a thread, and the hand-shake's wait.
    static constexpr int kSetUpSeconds = 10;

private:
    // What the bus said about the client name.
    enum class NameState {
        None,    // not asked for (no valid bus name): requests go out anyway
        Pending, // asked for, no answer yet
        Owned,   // this connection is the primary owner
        Queued,  // another connection owns it; this one waits in the queue
        Failed,  // the bus refused the request for it
    };

    bool m_GetProxy(SSOClock::time_point arrival,
                    std::shared_ptr<CSSOBusConnection> *connection = nullptr,
                    uint64_t *generation = nullptr);
    bool m_GetConnectionToServer(SSOClock::time_point deadline);
    void m_ReleaseConnectionToServer();
    bool m_CreateProxyMonitor(SSOClock::time_point deadline);
    void m_DestroyProxyMonitor();
    bool m_IsGivenProxy();
    void m_WakeCreator();
    bool m_CheckClientName(SSOClock::time_point deadline);
    // True when the state changed.
    bool m_SetNameState(NameState state);
    void m_OnBusSignal(const char *member, GVariant *body);
    void m_HandleIncoming(const CSSOBusConnection::Invocation &invocation);

    static void *m_RunProxyMonitor(void *instance);
    static void m_OnBusAcquired(CSSOBusConnection *connection, const gchar *name,
                                gpointer instance);
    static void m_OnNameAcquired(CSSOBusConnection *connection, const gchar *name,
                                 gpointer instance);
    static void m_OnNameLost(CSSOBusConnection *connection, const gchar *name, gpointer instance);
    static void m_OnSignal(CSSOBusConnection *connection, const gchar *senderName,
                           const gchar *objectPath, const gchar *interfaceName,
                           const gchar *signalName, GVariant *parameters, gpointer instance);
    static void m_HandleMethodCall(CSSOBusConnection *connection, const gchar *sender,
                                   const gchar *objectPath, const gchar *interfaceName,
                                   const gchar *methodName, GVariant *parameters,
                                   CSSOBusInvocation *invocation, gpointer instance);

    const int m_processId;
    const std::string m_processName; // diagnostics only
    const std::string m_objectName;
    const std::string m_clientBusName;

    // Written by the thread that creates or joins the monitor, under
    // m_mutexProxy; read by any thread (request ids, the dispatcher's check).
    std::atomic<unsigned long> m_proxyMonitorThreadId{0};
    std::atomic<bool> m_bGivenProxy{false}; // set once, under m_mutexProxy
    // Set once by GiveProxyOfProcess: a transport made afterwards starts
    // given up instead of connecting.
    static std::atomic<bool> s_bProcessGaveProxy;
    std::atomic<uint64_t> m_linkGeneration{0}; // bumped under m_mutexProxy by each set-up
    bool m_bProxyMonitorCreated = false;       // guarded by m_mutexProxy

    // Link set-up, tear-down, handler registration. Threads that find a
    // set-up under way wait for this lock with their own deadline.
    pthread_mutex_t m_mutexProxy;
    // When the last set-up attempt ended and whether it worked; guarded by
    // m_mutexProxy.
    SSOClock::time_point m_lastSetUpEnd{};
    bool m_bLastSetUpOk = false;
    sso_error_e m_lastSetUpError = SSO_ERROR_NONE;

    // The context of everything the link hands to the monitor: one per link,
    // run by its monitor thread; made before the monitor starts and dropped
    // after it is joined. Read by the connection's reader thread.
    std::atomic<GMainContext *> m_pLinkContext{nullptr};

    // Both directions of the link. Guarded by m_mutexProxy; readers take a
    // reference of their own under it.
    std::shared_ptr<CSSOBusConnection> m_pConnectionToServer;
    // Cancelled once, at unload: calls and set-ups. Thread-safe by itself.
    GCancellable *m_pCallCancellable = nullptr;
    unsigned int m_signalId = 0; // guarded by m_mutexProxy

    // The monitor's own objects: made on the monitor thread, released by
    // m_DestroyProxyMonitor after the thread is joined.
    GDBusNodeInfo *m_pNodeInfo = nullptr;
    // Not owned: the link's connection, for the name callbacks.
    std::atomic<CSSOBusConnection *> m_pClientConnection{nullptr};
    std::atomic<unsigned int> m_ownerId{0};
    std::atomic<unsigned int> m_registerId{0};

    // The client name, as the bus last told it. Guarded by m_mutexName.
    pthread_mutex_t m_mutexName;
    pthread_cond_t m_condName;
    NameState m_nameState = NameState::None;

    // The monitor's loop, and a stop request that may arrive before the loop
    // exists. Guarded by m_mutexMonitorLoop.
    pthread_mutex_t m_mutexMonitorLoop;
    GMainLoop *m_pMainLoop = nullptr;
    bool m_bStopRequested = false;

    // The start-up hand-shake: the creator waits (up to the set-up's
    // deadline) until the monitor has registered the client object.
    pthread_mutex_t m_mutexProxyMonitor;
    pthread_cond_t m_condProxyMonitor;
    bool m_bMonitorAnswered = false; // guarded by m_mutexProxyMonitor
    bool m_bWaitCancelled = false;   // guarded by m_mutexProxyMonitor

    // The one handler of incoming calls; read on the monitor thread without
    // m_mutexProxy.
    std::atomic<SSOMethodCallHandler> m_pHandleMethodCallCb{nullptr};
    std::atomic<void *> m_pHandleMethodCallCbUserData{nullptr};

    SSOAPIRequestRegistry m_requests;
};
