// CSSOBusConnection: the library's own connection to a D-Bus message bus.
//
// GLib encodes and decodes the messages (GDBusMessage); the socket, the
// authentication, the matching of replies and the dispatch of incoming calls
// are done here, for three reasons GDBusConnection cannot meet:
//  - every wait has a deadline and can be cancelled: connecting to a bus that
//    hangs, a call, and nothing at tear-down waits on the bus at all (GLib's
//    name release is a synchronous 25-second call);
//  - the connection keeps working in a child that goes on after fork()
//    without exec: GDBus does its socket I/O on a process-wide worker thread
//    that does not exist in the child, so every connection made there hangs;
//  - an incoming call whose sender must be looked up is parked, not waited
//    for, so a flood of calls cannot stall the thread that delivers results.
//
// Threads: one reader thread per connection ("SSOBusReader") reads every
// message. Replies wake the thread that waits for them; incoming method
// calls and signals are handed to the GMainContext their handler named.
// Writes are made by whichever thread sends, one message at a time.
//
// Locks: m_mutex (pending calls, handlers, peer cache) and m_writeMutex (the
// socket's write side) are never held together; no callback is called with
// either held.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#define SSO_BUS_NAME "org.freedesktop.DBus"
#define SSO_BUS_PATH "/org/freedesktop/DBus"
#define SSO_BUS_INTERFACE "org.freedesktop.DBus"

using SSOClock = std::chrono::steady_clock;

class CSSOBusConnection;

// An incoming method call, answered once with ReturnValue or ReturnError.
// Unanswered when the last reference goes, it is answered with nothing.
class CSSOBusInvocation {
public:
    CSSOBusInvocation(std::shared_ptr<CSSOBusConnection> connection, GDBusMessage *call);
    ~CSSOBusInvocation();
    CSSOBusInvocation(const CSSOBusInvocation &) = delete;
    CSSOBusInvocation &operator=(const CSSOBusInvocation &) = delete;

    GDBusMessage *message() const { return m_call; }
    const char *sender() const { return g_dbus_message_get_sender(m_call); }
    // The call's arguments: an empty tuple when it carried none.
    GVariant *parameters() const { return m_parameters; }
    CSSOBusConnection *connection() const { return m_connection.get(); }

    // value: a tuple (floating is sunk) or null for an empty reply.
    void ReturnValue(GVariant *value);
    void ReturnDBusError(const char *errorName, const char *message);
    // Encoded as GDBus encodes a GError (a registered name, or
    // "org.gtk.GDBus.UnmappedGError.Quark...").
    void ReturnGError(const GError *error);
    bool answered() const { return m_answered; }

private:
    std::shared_ptr<CSSOBusConnection> m_connection;
    GDBusMessage *m_call;
    GVariant *m_parameters;
    bool m_answered = false;
};

class CSSOBusConnection : public std::enable_shared_from_this<CSSOBusConnection> {
public:
    using Invocation = std::shared_ptr<CSSOBusInvocation>;
    // Runs in the context given when the object was registered.
    using MethodHandler = std::function<void(const Invocation &invocation)>;
    // Runs in the context given at subscription.
    using SignalHandler = std::function<void(GDBusMessage *signal)>;
    // reply is null when error is set. Runs in the context given with the call.
    using ReplyHandler = std::function<void(GDBusMessage *reply, const GError *error)>;
    // Runs on the reader thread, so it must be short and take no lock the
    // reader could be waiting for.
    using BusSignalObserver = std::function<void(const char *member, GVariant *body)>;

    // The address of the system bus: DBUS_SYSTEM_BUS_ADDRESS, else the
    // well-known socket.
    static std::string SystemBusAddress();

    // Connects to one of the address's entries, authenticates and says Hello,
    // all before the deadline. cancellable (may be null) ends it at once.
    // Null on failure, with error set. The reader thread runs from here on.
    static std::shared_ptr<CSSOBusConnection> Open(const std::string &address,
                                                   SSOClock::time_point deadline,
                                                   GCancellable *cancellable, GError **error);

    ~CSSOBusConnection();
    CSSOBusConnection(const CSSOBusConnection &) = delete;
    CSSOBusConnection &operator=(const CSSOBusConnection &) = delete;

    const std::string &uniqueName() const { return m_uniqueName; }
    bool isClosed() const { return m_closed.load(std::memory_order_acquire); }

    // Ends the connection without a word to the bus (which drops our names
    // when the socket closes): waiters fail at once, the reader is joined
    // (unless this is the reader). Any thread; never waits on the bus.
    void Close();

    // Sends a call and waits for its reply until timeoutMs or cancellable.
    // Any thread but the reader. Returns the reply (METHOD_RETURN), or null
    // with error set (an ERROR reply is turned into its GError as GDBus does).
    GDBusMessage *Call(GDBusMessage *call, int timeoutMs, GCancellable *cancellable,
                       GError **error);
    // The same for a method of the bus itself; body may be null (floating is
    // sunk). Returns the reply body or null.
    GVariant *CallBus(const char *method, GVariant *body, int timeoutMs, GCancellable *cancellable,
                      GError **error);
    // Sends a call whose reply is handed to handler in context (a reference
    // is taken) when it comes, at the time-out, or when the connection ends.
    void CallAsync(GDBusMessage *call, int timeoutMs, GMainContext *context, ReplyHandler handler);
    // Sends a message that needs no reply (a reply, a signal, a call flagged
    // so). Fills in the serial. False when it could not be written.
    bool Send(GDBusMessage *message);

    // Exports one interface at one object path: its calls, checked against
    // the interface (unknown methods and wrong argument types are answered
    // with the bus's usual errors), go to handler in context; Introspectable
    // and Peer are answered here. Returns a non-zero id, or 0 with error set
    // when something is already exported there.
    unsigned RegisterObject(const char *path, GDBusInterfaceInfo *interface, GMainContext *context,
                            MethodHandler handler, GError **error);
    void UnregisterObject(unsigned id);

    // Signals matching the four (null: any) go to handler in context. The
    // match rule is added on the bus asynchronously. Returns an id.
    unsigned SubscribeSignal(const char *sender, const char *interface, const char *member,
                             const char *path, GMainContext *context, SignalHandler handler);
    void UnsubscribeSignal(unsigned id);
    // Signals the bus sends us without a match rule (NameAcquired, NameLost).
    void SetBusSignalObserver(BusSignalObserver observer);

    // The process id of a peer on this bus, remembered per unique name (a
    // unique name is never given to another connection). Known without a
    // round trip when cached.
    bool CachedPeerPid(const std::string &uniqueName, pid_t &pid);
    // Asks the bus when not cached; waits at most timeoutMs.
    bool PeerPid(const std::string &uniqueName, int timeoutMs, pid_t &pid);
    // Asks the bus without waiting: done(pid, ok) runs in context. Lookups
    // of one name share one question. False (done is not called) when too
    // many questions are open already.
    bool LookupPeerPidAsync(const std::string &uniqueName, GMainContext *context,
                            std::function<void(pid_t pid, bool ok)> done);

    // Calls waiting now, for tests and diagnostics.
    size_t pendingCalls();

    // In a child after fork(): closes the socket of every connection the
    // parent had open, touching nothing else (their threads are the
    // parent's). Async-signal-safe.
    static void CloseInheritedSockets();

    // How many peers' process ids are remembered, and how many lookups may
    // be open at once.
    static constexpr size_t kPeerPidCacheSize = 64;
    static constexpr size_t kPeerPidLookupsOpen = 64;
    // Incoming calls handed to a context and not yet run; above this the bus
    // is answered "LimitsExceeded" on the reader thread.
    static constexpr size_t kIncomingCallsQueued = 4096;

private:
    explicit CSSOBusConnection(int fd);

    struct Waiter;
    struct AsyncCall;
    struct ObjectEntry;
    struct SignalEntry;

    static int ConnectSocket(const std::string &address, SSOClock::time_point deadline,
                             GCancellable *cancellable, GError **error);
    bool Authenticate(SSOClock::time_point deadline, GCancellable *cancellable, GError **error);
    bool SayHello(SSOClock::time_point deadline, GCancellable *cancellable, GError **error);
    // Reads until a whole message is buffered (set-up only, before the reader
    // runs). Null with error at the deadline.
    GDBusMessage *ReadMessage(SSOClock::time_point deadline, GCancellable *cancellable,
                              GError **error);
    bool WriteAll(const guchar *data, size_t size, SSOClock::time_point deadline,
                  GCancellable *cancellable, GError **error);
    bool SendLocked(GDBusMessage *message, SSOClock::time_point deadline, GCancellable *cancellable,
                    GError **error);
    uint32_t NextSerial();

    void StartReader();
    void ReaderLoop();
    // Parses what the buffer holds; false when the stream is broken.
    bool DrainBuffer();
    void Dispatch(GDBusMessage *message);
    void DispatchCall(GDBusMessage *message);
    void DispatchSignal(GDBusMessage *message);
    void DispatchReply(GDBusMessage *message);
    void FailAll(const char *why);
    void ExpireAsyncCalls();
    void Wake();
    void AnswerObjectCall(const std::shared_ptr<ObjectEntry> &object, const Invocation &invocation);

    void RememberPeerPid(const std::string &uniqueName, pid_t pid);

    int m_fd;
    int m_wakeFd = -1; // eventfd: wakes the reader's poll
    std::string m_uniqueName;
    std::atomic<bool> m_closed{false};
    std::atomic<uint32_t> m_serial{0};
    std::vector<guchar> m_buffer; // reader thread (set-up thread before it runs)
    std::thread m_reader;

    std::mutex m_writeMutex; // the socket's write side

    std::mutex m_mutex;
    std::unordered_map<uint32_t, Waiter *> m_waiters;                 // guarded by m_mutex
    std::unordered_map<uint32_t, std::unique_ptr<AsyncCall>> m_async; // guarded by m_mutex
    std::map<unsigned, std::shared_ptr<ObjectEntry>> m_objects;       // guarded by m_mutex
    std::map<unsigned, std::shared_ptr<SignalEntry>> m_signals;       // guarded by m_mutex
    unsigned m_nextId = 1;                                            // guarded by m_mutex
    BusSignalObserver m_busObserver;                                  // guarded by m_mutex
    std::atomic<size_t> m_queuedCalls{0};
    // Peer pids, most recently used first; guarded by m_mutex.
    std::list<std::pair<std::string, pid_t>> m_peerPids;
    // Open lookups by name, each with whoever waits for it; guarded by m_mutex.
    std::map<std::string, std::vector<std::pair<GMainContext *, std::function<void(pid_t, bool)>>>>
        m_peerLookups;
};

// Posts fn to run once in context (a reference to the context is held until
// then). Any thread.
void sso_bus_invoke(GMainContext *context, std::function<void()> fn);
