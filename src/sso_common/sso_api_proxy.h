// CSSOSvcGdbus: the library's only channel to the SSO service, on the D-Bus
// system bus. Outgoing: synchronous method calls to the service's object.
// Incoming: a per-process bus name and the account client object, on which the
// service calls back with the results of requests; those calls are received on
// the "SSOProxyMonitor" thread, checked for their sender and handed to the one
// registered handler (the response dispatcher).
//
// Lock order: m_mutexProxy, then m_mutexProxyMonitor / m_mutexMonitorLoop.
// Nothing else is taken while either of the latter is held.
#pragma once

#include <gio/gio.h>
#include <pthread.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "SSOAPISingleton.h"

// Fixed names on the system bus.
#define SSO_SERVER_BUS_NAME "org.orvex.tv.ssoservice.server"
#define SSO_SERVER_OBJECT_PATH "/org/orvex/tv/ssoservice/server"
#define SSO_SERVER_INTERFACE "org.orvex.tv.ssoservice.server.interface"
#define SSO_CLIENT_BUS_NAME_PREFIX "org.orvex.tv.ssoservice.ssoclient."
#define SSO_CLIENT_OBJECT_PATH "/org/orvex/tv/ssoservice/ssoclient"
#define SSO_CLIENT_INTERFACE "org.orvex.tv.ssoservice.ssoclient.interface"
#define SSO_SIGNAL_INTERFACE "org.orvex.tv.ssoservice.signal"
#define SSO_SIGNAL_OBJECT_PATH "/org/orvex/tv/ssoservice/signal"

using SSOMethodCallHandler = void (*)(GDBusConnection *connection, const char *sender,
                                      const char *objectPath, const char *interfaceName,
                                      const char *methodName, GVariant *parameters,
                                      GDBusMethodInvocation *invocation, void *userData);

class CSSOSvcGdbus : public SSOAPISingleton<CSSOSvcGdbus> {
public:
    CSSOSvcGdbus();
    ~CSSOSvcGdbus() override;

    CSSOSvcGdbus(const CSSOSvcGdbus &) = delete;
    CSSOSvcGdbus &operator=(const CSSOSvcGdbus &) = delete;

    // Connects at once: the first GetInstance blocks until the link is up or
    // has failed (at most the 10-second start-up hand-shake).
    void PostCreateInstance() override;

    // The first registration of the process wins; later ones are ignored.
    void RegisterCallback(SSOMethodCallHandler handler, void *userData);
    void UnregisterCallback();

    // Calls methodName on the service synchronously. parameters is a floating
    // tuple, consumed when the call is made. On true, *reply holds the reply
    // (the caller unrefs it). Runs on the calling thread; blocks up to timeout
    // ms, plus the link set-up when the link is down.
    bool CallMethodToServer(std::string methodName, GVariant *parameters, GVariant **reply,
                            int timeout);

    // Tears the link down for good: later requests of the process fail. Must
    // not be called on the monitor thread (it joins it).
    void GiveProxy();

    // For the unload only: every call waiting for the service, and every
    // later one, fails at once. Any thread; does not block.
    void CancelCalls();

    // Diagnostics and readers for the method tables.
    const std::string &objectName() const { return m_objectName; }
    long long proxyMonitorThreadId() const
    {
        return static_cast<long long>(m_proxyMonitorThreadId.load(std::memory_order_acquire));
    }
    bool isGiven() const { return m_bGivenProxy.load(std::memory_order_acquire); }

    // The client introspection XML and the vtable of the client object.
    static const std::string m_introspectionXml;
    static const GDBusInterfaceVTable m_interfaceVTable;

private:
    bool m_GetProxy(GDBusConnection **connection = nullptr);
    bool m_GetConnectionToServer();
    bool m_GetConnectionToServerInContext();
    void m_ReleaseConnectionToServer();
    bool m_CreateProxyMonitor();
    void m_DestroyProxyMonitor();
    bool m_IsGivenProxy();
    void m_WakeCreator();
    bool m_IsCallerValid(GDBusConnection *connection, const char *sender, GVariant *parameters);

    static void *m_RunProxyMonitor(void *instance);
    static void m_OnBusAcquired(GDBusConnection *connection, const gchar *name, gpointer instance);
    static void m_OnNameAcquired(GDBusConnection *connection, const gchar *name, gpointer instance);
    static void m_OnNameLost(GDBusConnection *connection, const gchar *name, gpointer instance);
    static void m_OnSignal(GDBusConnection *connection, const gchar *senderName,
                           const gchar *objectPath, const gchar *interfaceName,
                           const gchar *signalName, GVariant *parameters, gpointer instance);
    static void m_HandleMethodCall(GDBusConnection *connection, const gchar *sender,
                                   const gchar *objectPath, const gchar *interfaceName,
                                   const gchar *methodName, GVariant *parameters,
                                   GDBusMethodInvocation *invocation, gpointer instance);

    const int m_processId;
    const std::string m_processName; // diagnostics only
    const std::string m_objectName;

    // Written by the thread that creates or joins the monitor, under
    // m_mutexProxy; read by any thread (request ids, the dispatcher's check).
    std::atomic<unsigned long> m_proxyMonitorThreadId{0};
    std::atomic<bool> m_bGivenProxy{false}; // set once, under m_mutexProxy
    bool m_bProxyMonitorCreated = false;    // guarded by m_mutexProxy

    pthread_mutex_t m_mutexProxy; // link set-up, tear-down, handler registration

    // The context of everything GDBus does for the link: run by the monitor
    // thread while it lives, and by the set-up code (under m_mutexProxy)
    // while no monitor runs. Lives as long as the transport.
    GMainContext *m_pLinkContext = nullptr;

    GDBusConnection *m_pConnectionToServer = nullptr; // guarded by m_mutexProxy
    // Cancelled once, at unload; thread-safe by itself.
    GCancellable *m_pCallCancellable = nullptr;
    unsigned int m_signalId = 0; // guarded by m_mutexProxy

    // The monitor's own objects. Created and used on the monitor thread;
    // released by m_DestroyProxyMonitor after the loop has stopped or before
    // the thread is joined, as noted there.
    GDBusNodeInfo *m_pNodeInfo = nullptr;
    GDBusConnection *m_pClientConnection = nullptr; // a reference of our own
    std::atomic<unsigned int> m_ownerId{0};
    std::atomic<unsigned int> m_registerId{0};

    // The sender check's "obj<pid>" of each peer, by unique bus name, so a
    // result needs no extra round trip to the bus. A unique name belongs to
    // one connection (so one process) and the bus never hands it out again:
    // a restarted service has a new name and is asked for afresh. Used on the
    // monitor thread only; emptied by m_DestroyProxyMonitor, so a rebuilt
    // link (a restarted bus may reuse names) starts with nothing remembered.
    std::vector<std::pair<std::string, std::string>> m_callerObjPids;

    // The monitor's loop, and a stop request that may arrive before the loop
    // exists. Guarded by m_mutexMonitorLoop.
    pthread_mutex_t m_mutexMonitorLoop;
    GMainLoop *m_pMainLoop = nullptr;
    bool m_bStopRequested = false;

    // The start-up hand-shake: the creator waits (up to 10 s) until the
    // monitor has registered the client object and owns the bus name, or has
    // given up.
    pthread_mutex_t m_mutexProxyMonitor;
    pthread_cond_t m_condProxyMonitor;
    bool m_bMonitorAnswered = false; // guarded by m_mutexProxyMonitor

    // The one handler of incoming calls; read on the monitor thread without
    // m_mutexProxy.
    std::atomic<SSOMethodCallHandler> m_pHandleMethodCallCb{nullptr};
    std::atomic<void *> m_pHandleMethodCallCbUserData{nullptr};
};
