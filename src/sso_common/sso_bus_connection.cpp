#include "sso_bus_connection.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <time.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "sso_glib_ptr.h"
#include "sso_log.h"
#include "sso_thread_signals.h"

namespace {

// The protocol's own limit on a message.
constexpr gssize kMaxMessageSize = 128 * 1024 * 1024;
// A reply or signal that cannot be written within this ends the connection.
constexpr std::chrono::milliseconds kSendTimeout(2000);
constexpr size_t kReadChunk = 64 * 1024;
constexpr size_t kAuthLineMax = 512;

// Sockets of the connections this process has open, for a fork() child to
// close; slots hold -1 when free.
constexpr size_t kSocketSlots = 16;
std::atomic<int> s_sockets[kSocketSlots] = {-1, -1, -1, -1, -1, -1, -1, -1,
                                            -1, -1, -1, -1, -1, -1, -1, -1};

void TrackSocket(int fd)
{
    for (auto &slot : s_sockets) {
        int expected = -1;
        if (slot.compare_exchange_strong(expected, fd))
            return;
    }
}

void UntrackSocket(int fd)
{
    for (auto &slot : s_sockets) {
        int expected = fd;
        if (slot.compare_exchange_strong(expected, -1))
            return;
    }
}

// The fork gate (see the header): held for reading by library threads while
// they run GLib code, for writing by a forking thread. Their holds are short
// and end at every wait, so the writer finds a moment.
pthread_rwlock_t s_forkGate = PTHREAD_RWLOCK_INITIALIZER;
// This thread's hold on the gate for reading (a library thread between two
// waits), and whether this thread closed it for a fork.
thread_local int t_glibWork = 0;
thread_local bool t_forkGateClosed = false;

pthread_rwlock_t *ForkGate()
{
    return &s_forkGate;
}

// Orders a call's cancel target before the cancelling thread reads it.
std::mutex &CancelHandOver()
{
    static std::mutex handOver;
    return handOver;
}

int MsLeft(SSOClock::time_point deadline)
{
    auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SSOClock::now()).count();
    if (left <= 0)
        return 0;
    return left > INT32_MAX ? INT32_MAX : static_cast<int>(left);
}

void SetTimedOut(GError **error)
{
    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT, "Timeout was reached");
}

void SetClosed(GError **error, const char *why = "The connection is closed")
{
    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_CLOSED, why);
}

void SetErrno(GError **error, const char *what, int err)
{
    g_set_error(error, G_IO_ERROR, g_io_error_from_errno(err), "%s: %s", what, g_strerror(err));
}

// Waits until fd is ready for events, the deadline passes (false, timed out)
// or cancellable is cancelled (false, cancelled).
bool WaitFd(int fd, short events, SSOClock::time_point deadline, GCancellable *cancellable,
            GError **error)
{
    for (;;) {
        if (cancellable != nullptr && g_cancellable_set_error_if_cancelled(cancellable, error))
            return false;
        int ms = MsLeft(deadline);
        if (ms == 0) {
            SetTimedOut(error);
            return false;
        }
        struct pollfd fds[2] = {{fd, events, 0}, {-1, POLLIN, 0}};
        nfds_t n = 1;
        GPollFD cancelFd;
        if (cancellable != nullptr && g_cancellable_make_pollfd(cancellable, &cancelFd)) {
            fds[1].fd = cancelFd.fd;
            n = 2;
        }
        int r = poll(fds, n, ms);
        int err = errno;
        if (n == 2)
            g_cancellable_release_fd(cancellable);
        if (r < 0 && err != EINTR) {
            SetErrno(error, "poll", err);
            return false;
        }
        if (r > 0 && fds[0].revents != 0)
            return true;
    }
}

// One entry of a bus address, "unix:path=..." or "unix:abstract=...",
// unescaped. False for entries of other transports.
bool UnixSocketAddress(const std::string &entry, struct sockaddr_un &addr, socklen_t &length)
{
    if (entry.rfind("unix:", 0) != 0)
        return false;
    std::string path;
    bool abstract = false;
    size_t pos = 5;
    while (pos < entry.size()) {
        size_t comma = entry.find(',', pos);
        std::string pair =
            entry.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        size_t eq = pair.find('=');
        if (eq != std::string::npos) {
            std::string key = pair.substr(0, eq);
            std::string value;
            for (size_t i = eq + 1; i < pair.size(); ++i) {
                if (pair[i] == '%' && i + 2 < pair.size() + 0 && g_ascii_isxdigit(pair[i + 1]) &&
                    g_ascii_isxdigit(pair[i + 2])) {
                    value += static_cast<char>(g_ascii_xdigit_value(pair[i + 1]) * 16 +
                                               g_ascii_xdigit_value(pair[i + 2]));
                    i += 2;
                } else {
                    value += pair[i];
                }
            }
            if (key == "path") {
                path = value;
            } else if (key == "abstract") {
                path = value;
                abstract = true;
            }
        }
        if (comma == std::string::npos)
            break;
        pos = comma + 1;
    }
    if (path.empty())
        return false;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    size_t offset = abstract ? 1 : 0;
    if (path.size() + offset >= sizeof(addr.sun_path))
        return false;
    memcpy(addr.sun_path + offset, path.data(), path.size());
    length = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + offset + path.size() +
                                    (abstract ? 0 : 1));
    return true;
}

// GLib orders the hand-over of a source to the context's thread inside its
// own code, which ThreadSanitizer does not see (tests/sanitizers/tsan.supp).
// One lock that both sides know from the start makes that order visible to
// it: taken once by the thread that posts and once by the one that runs (or
// drops) it, each only to move the closure's function, never while it runs.
std::mutex s_handOverMutex;

struct Closure {
    std::function<void()> fn; // guarded by s_handOverMutex until it runs
};

} // namespace

void sso_bus_invoke(GMainContext *context, std::function<void()> fn)
{
    // Always through a source of that context, even when this thread could
    // run it: the handler must run where its owner asked.
    sso_glib::SourcePtr source(g_idle_source_new());
    g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
    Closure *closure = nullptr;
    {
        std::lock_guard<std::mutex> lock(s_handOverMutex);
        closure = new Closure{std::move(fn)};
    }
    g_source_set_callback(
        source.get(),
        [](gpointer data) -> gboolean {
            auto *closure = static_cast<Closure *>(data);
            std::function<void()> run;
            {
                std::lock_guard<std::mutex> lock(s_handOverMutex);
                run = std::move(closure->fn);
            }
            run();
            return G_SOURCE_REMOVE;
        },
        closure,
        [](gpointer data) {
            auto *closure = static_cast<Closure *>(data);
            std::function<void()> unrun; // released after the lock
            {
                std::lock_guard<std::mutex> lock(s_handOverMutex);
                unrun = std::move(closure->fn);
            }
            delete closure;
        });
    g_source_attach(source.get(), context);
}

// ---------------------------------------------------------------- invocation

CSSOBusInvocation::CSSOBusInvocation(std::shared_ptr<CSSOBusConnection> connection,
                                     GDBusMessage *call)
    : m_connection(std::move(connection)), m_call(static_cast<GDBusMessage *>(g_object_ref(call)))
{
    GVariant *body = g_dbus_message_get_body(call);
    m_parameters = body != nullptr ? g_variant_ref(body) : g_variant_ref_sink(g_variant_new("()"));
}

CSSOBusInvocation::~CSSOBusInvocation()
{
    g_variant_unref(m_parameters);
    g_object_unref(m_call);
}

void CSSOBusInvocation::ReturnValue(GVariant *value)
{
    sso_glib::VariantPtr owned = sso_glib::AdoptVariant(value);
    if (!m_answered &&
        !(g_dbus_message_get_flags(m_call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)) {
        sso_glib::ObjectPtr<GDBusMessage> reply(g_dbus_message_new_method_reply(m_call));
        if (owned != nullptr)
            g_dbus_message_set_body(reply.get(), owned.get());
        m_connection->Send(reply.get());
    }
    m_answered = true;
}

void CSSOBusInvocation::ReturnDBusError(const char *errorName, const char *message)
{
    if (!m_answered &&
        !(g_dbus_message_get_flags(m_call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)) {
        sso_glib::ObjectPtr<GDBusMessage> reply(
            g_dbus_message_new_method_error_literal(m_call, errorName, message));
        m_connection->Send(reply.get());
    }
    m_answered = true;
}

void CSSOBusInvocation::ReturnGError(const GError *error)
{
    sso_glib::CharPtr name(g_dbus_error_encode_gerror(error));
    ReturnDBusError(name.get(), error->message);
}

// ----------------------------------------------------------------- records

struct CSSOBusConnection::Waiter {
    GDBusMessage *reply = nullptr;
    GError *error = nullptr;
    bool done = false;
    bool cancelled = false;
    std::condition_variable cv;
};

struct CSSOBusConnection::AsyncCall {
    GMainContext *context = nullptr; // a reference; null: run on the reader
    ReplyHandler handler;
    SSOClock::time_point deadline;
};

struct CSSOBusConnection::ObjectEntry {
    std::string path;
    GDBusInterfaceInfo *interface = nullptr; // a reference
    GMainContext *context = nullptr;         // a reference
    MethodHandler handler;
    ~ObjectEntry()
    {
        g_dbus_interface_info_unref(interface);
        g_main_context_unref(context);
    }
};

struct CSSOBusConnection::SignalEntry {
    std::string sender, interface, member, path; // "" matches any
    GMainContext *context = nullptr;             // a reference
    SignalHandler handler;
    ~SignalEntry() { g_main_context_unref(context); }
};

// --------------------------------------------------------------- set-up

std::string CSSOBusConnection::SystemBusAddress()
{
    sso_glib::CharPtr address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    return address != nullptr ? address.get() : "";
}

CSSOBusConnection::CSSOBusConnection(int fd) : m_fd(fd)
{
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    TrackSocket(m_fd);
    if (m_wakeFd >= 0)
        TrackSocket(m_wakeFd);
}

CSSOBusConnection::~CSSOBusConnection()
{
    Close();
    if (m_reader.joinable())
        m_reader.detach(); // only when the reader itself dropped the last reference
    UntrackSocket(m_fd);
    close(m_fd);
    if (m_wakeFd >= 0) {
        UntrackSocket(m_wakeFd);
        close(m_wakeFd);
    }
}

void CSSOBusConnection::EnterGLibWork()
{
    if (t_glibWork++ == 0)
        pthread_rwlock_rdlock(ForkGate());
}

void CSSOBusConnection::LeaveGLibWork()
{
    if (--t_glibWork == 0)
        pthread_rwlock_unlock(ForkGate());
}

gint CSSOBusConnection::PollOutsideForkGate(GPollFD *fds, guint nfds, gint timeout)
{
    LeaveGLibWork();
    gint ready = g_poll(fds, nfds, timeout);
    EnterGLibWork();
    return ready;
}

void CSSOBusConnection::PrepareFork()
{
    // A library thread forking (from a result callback) holds the gate
    // itself and cannot close it; nor is a fork held off for longer than
    // the bound by a thread that stays inside (a blocking callback).
    if (t_glibWork > 0)
        return;
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += static_cast<long>(kForkGateWaitMs) * 1000000L;
    until.tv_sec += until.tv_nsec / 1000000000L;
    until.tv_nsec %= 1000000000L;
    t_forkGateClosed = pthread_rwlock_timedwrlock(ForkGate(), &until) == 0;
}

void CSSOBusConnection::ParentAfterFork()
{
    if (t_forkGateClosed)
        pthread_rwlock_unlock(ForkGate());
    t_forkGateClosed = false;
}

void CSSOBusConnection::ChildAfterFork()
{
    // Made afresh, not unlocked: the lock knows its writer by thread id, and
    // the child's one thread has another id than it had in the parent. What
    // the parent's other threads held is gone with them.
    pthread_rwlock_init(ForkGate(), nullptr);
    t_forkGateClosed = false;
    // A library thread that forked goes on inside, and leaves it later.
    if (t_glibWork > 0)
        pthread_rwlock_rdlock(ForkGate());
}

void CSSOBusConnection::CloseInheritedSockets()
{
    for (auto &slot : s_sockets) {
        int fd = slot.exchange(-1);
        if (fd >= 0)
            close(fd);
    }
}

int CSSOBusConnection::ConnectSocket(const std::string &address, SSOClock::time_point deadline,
                                     GCancellable *cancellable, GError **error)
{
    sso_glib::StrvPtr entries(g_strsplit(address.c_str(), ";", -1));
    int connected = -1;
    sso_glib::ErrorPtr last;
    for (gchar **entry = entries.get(); *entry != nullptr && connected < 0; ++entry) {
        struct sockaddr_un addr;
        socklen_t length = 0;
        if (!UnixSocketAddress(*entry, addr, length))
            continue;
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd < 0) {
            last.reset();
            SetErrno(sso_glib::Out(last), "socket", errno);
            continue;
        }
        for (;;) {
            if (connect(fd, reinterpret_cast<struct sockaddr *>(&addr), length) == 0) {
                connected = fd;
                break;
            }
            int err = errno;
            if (err == EINTR)
                continue;
            if (err == EAGAIN) {
                // The bus's queue of new connections is full (a bus that has
                // stopped taking them): try again until the deadline.
                struct pollfd none = {-1, 0, 0};
                GPollFD cancelFd;
                bool polled =
                    cancellable != nullptr && g_cancellable_make_pollfd(cancellable, &cancelFd);
                if (polled)
                    none = {cancelFd.fd, POLLIN, 0};
                poll(&none, 1, std::min(10, MsLeft(deadline)));
                if (polled)
                    g_cancellable_release_fd(cancellable);
                last.reset();
                if (cancellable != nullptr &&
                    g_cancellable_set_error_if_cancelled(cancellable, sso_glib::Out(last)))
                    break;
                if (MsLeft(deadline) == 0) {
                    SetTimedOut(sso_glib::Out(last));
                    break;
                }
                continue;
            }
            if (err == EINPROGRESS) {
                last.reset();
                if (!WaitFd(fd, POLLOUT, deadline, cancellable, sso_glib::Out(last)))
                    break;
                int soError = 0;
                socklen_t soLength = sizeof(soError);
                getsockopt(fd, SOL_SOCKET, SO_ERROR, &soError, &soLength);
                if (soError == 0) {
                    connected = fd;
                    break;
                }
                err = soError;
            }
            g_set_error(sso_glib::Out(last), G_IO_ERROR, g_io_error_from_errno(err),
                        "Could not connect: %s", g_strerror(err));
            break;
        }
        if (connected < 0)
            close(fd);
    }
    entries.reset();
    if (connected < 0) {
        if (last == nullptr)
            g_set_error(sso_glib::Out(last), G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT,
                        "No usable address in \"%s\"", address.c_str());
        g_propagate_error(error, last.release());
        return -1;
    }
    return connected;
}

std::shared_ptr<CSSOBusConnection> CSSOBusConnection::Open(const std::string &address,
                                                           SSOClock::time_point deadline,
                                                           GCancellable *cancellable,
                                                           GError **error)
{
    int fd = ConnectSocket(address, deadline, cancellable, error);
    if (fd < 0)
        return nullptr;
    std::shared_ptr<CSSOBusConnection> connection(new CSSOBusConnection(fd));
    if (connection->m_wakeFd < 0) {
        SetErrno(error, "eventfd", errno);
        return nullptr;
    }
    if (!connection->Authenticate(deadline, cancellable, error) ||
        !connection->SayHello(deadline, cancellable, error))
        return nullptr;
    connection->StartReader();
    return connection;
}

bool CSSOBusConnection::Authenticate(SSOClock::time_point deadline, GCancellable *cancellable,
                                     GError **error)
{
    // EXTERNAL: the bus reads our credentials from the socket; we name the
    // uid they must match, hex-encoded.
    std::string uid = std::to_string(static_cast<unsigned long>(geteuid()));
    std::string line(1, '\0');
    line += "AUTH EXTERNAL ";
    for (unsigned char c : uid) {
        char hex[3];
        g_snprintf(hex, sizeof(hex), "%02x", c);
        line += hex;
    }
    line += "\r\n";
    if (!WriteAll(reinterpret_cast<const guchar *>(line.data()), line.size(), deadline, cancellable,
                  error))
        return false;
    std::string answer;
    for (;;) {
        auto end = std::find(m_buffer.begin(), m_buffer.end(), '\n');
        if (end != m_buffer.end()) {
            answer.assign(m_buffer.begin(), end);
            m_buffer.erase(m_buffer.begin(), end + 1);
            break;
        }
        if (m_buffer.size() > kAuthLineMax) {
            g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_INVALID_DATA,
                                "The bus sent an over-long authentication line");
            return false;
        }
        if (!WaitFd(m_fd, POLLIN, deadline, cancellable, error))
            return false;
        guchar chunk[256];
        ssize_t n = recv(m_fd, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (n == 0) {
            SetClosed(error, "The bus closed the connection during authentication");
            return false;
        }
        if (n < 0) {
            if (errno == EAGAIN || errno == EINTR)
                continue;
            SetErrno(error, "recv", errno);
            return false;
        }
        m_buffer.insert(m_buffer.end(), chunk, chunk + n);
    }
    if (!answer.empty() && answer.back() == '\r')
        answer.pop_back();
    if (answer.rfind("OK ", 0) != 0) {
        g_set_error(error, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED,
                    "The bus refused authentication: %s", answer.c_str());
        return false;
    }
    static const char kBegin[] = "BEGIN\r\n";
    return WriteAll(reinterpret_cast<const guchar *>(kBegin), sizeof(kBegin) - 1, deadline,
                    cancellable, error);
}

bool CSSOBusConnection::SayHello(SSOClock::time_point deadline, GCancellable *cancellable,
                                 GError **error)
{
    sso_glib::ObjectPtr<GDBusMessage> hello(
        g_dbus_message_new_method_call(SSO_BUS_NAME, SSO_BUS_PATH, SSO_BUS_INTERFACE, "Hello"));
    uint32_t serial = NextSerial();
    g_dbus_message_set_serial(hello.get(), serial);
    bool sent = SendLocked(hello.get(), deadline, cancellable, error);
    hello.reset();
    if (!sent)
        return false;
    // Nothing else is sent to a connection before its Hello is answered.
    for (;;) {
        sso_glib::ObjectPtr<GDBusMessage> message(ReadMessage(deadline, cancellable, error));
        if (message == nullptr)
            return false;
        bool ours = g_dbus_message_get_reply_serial(message.get()) == serial;
        if (ours) {
            bool ok = false;
            if (g_dbus_message_to_gerror(message.get(), error)) {
                ok = false;
            } else {
                GVariant *body = g_dbus_message_get_body(message.get());
                if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
                    const gchar *name = nullptr;
                    g_variant_get(body, "(&s)", &name);
                    m_uniqueName = name;
                    ok = true;
                } else {
                    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_INVALID_DATA,
                                        "The bus answered Hello without a name");
                }
            }
            return ok;
        }
    }
}

GDBusMessage *CSSOBusConnection::ReadMessage(SSOClock::time_point deadline,
                                             GCancellable *cancellable, GError **error)
{
    for (;;) {
        if (m_buffer.size() >= 16) {
            gssize need = g_dbus_message_bytes_needed(m_buffer.data(), 16, error);
            if (need < 0)
                return nullptr;
            if (need > kMaxMessageSize) {
                g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_MESSAGE_TOO_LARGE,
                                    "A message from the bus is too large");
                return nullptr;
            }
            if (m_buffer.size() >= static_cast<size_t>(need)) {
                GDBusMessage *message = g_dbus_message_new_from_blob(
                    m_buffer.data(), static_cast<gsize>(need), G_DBUS_CAPABILITY_FLAGS_NONE, error);
                m_buffer.erase(m_buffer.begin(), m_buffer.begin() + need);
                return message;
            }
        }
        if (!WaitFd(m_fd, POLLIN, deadline, cancellable, error))
            return nullptr;
        guchar chunk[4096];
        ssize_t n = recv(m_fd, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (n == 0) {
            SetClosed(error);
            return nullptr;
        }
        if (n < 0) {
            if (errno == EAGAIN || errno == EINTR)
                continue;
            SetErrno(error, "recv", errno);
            return nullptr;
        }
        m_buffer.insert(m_buffer.end(), chunk, chunk + n);
    }
}

// ------------------------------------------------------------------ writing

uint32_t CSSOBusConnection::NextSerial()
{
    uint32_t serial = m_serial.fetch_add(1, std::memory_order_relaxed) + 1;
    if (serial == 0)
        serial = m_serial.fetch_add(1, std::memory_order_relaxed) + 1;
    return serial;
}

bool CSSOBusConnection::WriteAll(const guchar *data, size_t size, SSOClock::time_point deadline,
                                 GCancellable *cancellable, GError **error)
{
    size_t done = 0;
    while (done < size) {
        ssize_t n = send(m_fd, data + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN) {
            if (WaitFd(m_fd, POLLOUT, deadline, cancellable, error))
                continue;
        } else {
            SetErrno(error, "send", n < 0 ? errno : EPIPE);
        }
        // Half a message leaves the stream unusable.
        if (done > 0) {
            m_closed.store(true, std::memory_order_release);
            shutdown(m_fd, SHUT_RDWR);
            Wake();
        }
        return false;
    }
    return true;
}

bool CSSOBusConnection::SendLocked(GDBusMessage *message, SSOClock::time_point deadline,
                                   GCancellable *cancellable, GError **error)
{
    gsize size = 0;
    std::unique_ptr<guchar, sso_glib::GFree> blob(
        g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, error));
    if (blob == nullptr)
        return false;
    std::lock_guard<std::mutex> lock(m_writeMutex);
    return WriteAll(blob.get(), size, deadline, cancellable, error);
}

bool CSSOBusConnection::Send(GDBusMessage *message)
{
    if (isClosed())
        return false;
    g_dbus_message_set_serial(message, NextSerial());
    sso_glib::ErrorPtr error;
    bool ok = SendLocked(message, SSOClock::now() + kSendTimeout, nullptr, sso_glib::Out(error));
    if (!ok)
        SSO_LOGE("Failed to send a message to the bus: %s", error != nullptr ? error->message : "");
    return ok;
}

// ------------------------------------------------------------------ calls

GDBusMessage *CSSOBusConnection::Call(GDBusMessage *call, int timeoutMs, GCancellable *cancellable,
                                      GError **error)
{
    if (cancellable != nullptr && g_cancellable_set_error_if_cancelled(cancellable, error))
        return nullptr;
    if (isClosed()) {
        SetClosed(error);
        return nullptr;
    }
    const auto deadline = SSOClock::now() + std::chrono::milliseconds(timeoutMs);
    Waiter waiter;
    uint32_t serial = NextSerial();
    g_dbus_message_set_serial(call, serial);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_waiters[serial] = &waiter;
    }
    GError *sendError = nullptr;
    if (!SendLocked(call, deadline, cancellable, &sendError)) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_waiters.erase(serial);
        g_propagate_error(error, sendError);
        return nullptr;
    }
    // The reply may already have come; a cancel wakes the wait. The target
    // is handed to the cancelling thread under a lock of ours: GLib's own
    // hand-over (its futex) is one the thread sanitizer cannot see.
    struct CancelTarget {
        CSSOBusConnection *self;
        Waiter *waiter;
    } target{};
    gulong cancelHandler = 0;
    if (cancellable != nullptr) {
        {
            std::lock_guard<std::mutex> handOver(CancelHandOver());
            target = {this, &waiter};
        }
        cancelHandler =
            g_cancellable_connect(cancellable, G_CALLBACK(+[](GCancellable *, gpointer data) {
                                      CancelTarget t;
                                      {
                                          std::lock_guard<std::mutex> handOver(CancelHandOver());
                                          t = *static_cast<CancelTarget *>(data);
                                      }
                                      std::lock_guard<std::mutex> lock(t.self->m_mutex);
                                      t.waiter->cancelled = true;
                                      t.waiter->cv.notify_all();
                                  }),
                                  &target, nullptr);
    }
    bool timedOut = false;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!waiter.done && !waiter.cancelled) {
            if (waiter.cv.wait_until(lock, deadline) == std::cv_status::timeout && !waiter.done) {
                timedOut = true;
                break;
            }
        }
        m_waiters.erase(serial);
    }
    if (cancellable != nullptr)
        g_cancellable_disconnect(cancellable, cancelHandler);

    if (waiter.done && waiter.reply != nullptr) {
        if (g_dbus_message_to_gerror(waiter.reply, error)) {
            g_object_unref(waiter.reply);
            return nullptr;
        }
        return waiter.reply;
    }
    if (waiter.done && waiter.error != nullptr) {
        g_propagate_error(error, waiter.error);
        return nullptr;
    }
    if (timedOut)
        SetTimedOut(error);
    else
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_CANCELLED, "Operation was cancelled");
    return nullptr;
}

GVariant *CSSOBusConnection::CallBus(const char *method, GVariant *body, int timeoutMs,
                                     GCancellable *cancellable, GError **error)
{
    sso_glib::ObjectPtr<GDBusMessage> call(
        g_dbus_message_new_method_call(SSO_BUS_NAME, SSO_BUS_PATH, SSO_BUS_INTERFACE, method));
    if (body != nullptr)
        g_dbus_message_set_body(call.get(), body);
    sso_glib::ObjectPtr<GDBusMessage> reply(Call(call.get(), timeoutMs, cancellable, error));
    if (reply == nullptr)
        return nullptr;
    GVariant *result = g_dbus_message_get_body(reply.get());
    return result != nullptr ? g_variant_ref(result) : g_variant_ref_sink(g_variant_new("()"));
}

void CSSOBusConnection::CallAsync(GDBusMessage *call, int timeoutMs, GMainContext *context,
                                  ReplyHandler handler)
{
    auto async = std::make_unique<AsyncCall>();
    async->context = context != nullptr ? g_main_context_ref(context) : nullptr;
    async->handler = std::move(handler);
    async->deadline = SSOClock::now() + std::chrono::milliseconds(timeoutMs);
    uint32_t serial = NextSerial();
    g_dbus_message_set_serial(call, serial);
    bool closed = isClosed();
    if (!closed) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_async[serial] = std::move(async);
    }
    GError *error = nullptr;
    if (closed) {
        SetClosed(&error);
    } else if (!SendLocked(call, SSOClock::now() + kSendTimeout, nullptr, &error)) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_async.find(serial);
        if (it != m_async.end()) {
            async = std::move(it->second);
            m_async.erase(it);
        }
    } else {
        Wake(); // the reader's poll time-out may need to shrink
        return;
    }
    if (async) {
        ReplyHandler fn = std::move(async->handler);
        GMainContext *ctx = async->context;
        std::shared_ptr<GError> shared(error, g_error_free);
        if (ctx == nullptr) {
            fn(nullptr, shared.get());
        } else {
            sso_bus_invoke(ctx, [fn, shared] { fn(nullptr, shared.get()); });
            g_main_context_unref(ctx);
        }
    } else {
        g_clear_error(&error);
    }
}

size_t CSSOBusConnection::pendingCalls()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_waiters.size() + m_async.size();
}

// -------------------------------------------------------- objects, signals

unsigned CSSOBusConnection::RegisterObject(const char *path, GDBusInterfaceInfo *interface,
                                           GMainContext *context, MethodHandler handler,
                                           GError **error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &entry : m_objects) {
        if (entry.second->path == path) {
            g_set_error(error, G_IO_ERROR, G_IO_ERROR_EXISTS,
                        "An object is already exported for the interface %s at %s", interface->name,
                        path);
            return 0;
        }
    }
    auto entry = std::make_shared<ObjectEntry>();
    entry->path = path;
    entry->interface = g_dbus_interface_info_ref(interface);
    entry->context = g_main_context_ref(context);
    entry->handler = std::move(handler);
    unsigned id = m_nextId++;
    m_objects[id] = std::move(entry);
    return id;
}

void CSSOBusConnection::UnregisterObject(unsigned id)
{
    std::shared_ptr<ObjectEntry> gone;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_objects.find(id);
    if (it != m_objects.end()) {
        gone = std::move(it->second);
        m_objects.erase(it);
    }
}

unsigned CSSOBusConnection::SubscribeSignal(const char *sender, const char *interface,
                                            const char *member, const char *path,
                                            GMainContext *context, SignalHandler handler)
{
    auto entry = std::make_shared<SignalEntry>();
    entry->sender = sender != nullptr ? sender : "";
    entry->interface = interface != nullptr ? interface : "";
    entry->member = member != nullptr ? member : "";
    entry->path = path != nullptr ? path : "";
    entry->context = g_main_context_ref(context);
    entry->handler = std::move(handler);
    std::string rule = "type='signal'";
    if (sender != nullptr)
        rule += std::string(",sender='") + sender + "'";
    if (interface != nullptr)
        rule += std::string(",interface='") + interface + "'";
    if (member != nullptr)
        rule += std::string(",member='") + member + "'";
    if (path != nullptr)
        rule += std::string(",path='") + path + "'";
    unsigned id;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        id = m_nextId++;
        m_signals[id] = std::move(entry);
    }
    // The bus's answer is not waited for: signals sent before it is in place
    // are not ours to see anyway.
    sso_glib::ObjectPtr<GDBusMessage> add(
        g_dbus_message_new_method_call(SSO_BUS_NAME, SSO_BUS_PATH, SSO_BUS_INTERFACE, "AddMatch"));
    g_dbus_message_set_body(add.get(), g_variant_new("(s)", rule.c_str()));
    g_dbus_message_set_flags(add.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    Send(add.get());
    return id;
}

void CSSOBusConnection::UnsubscribeSignal(unsigned id)
{
    std::shared_ptr<SignalEntry> gone;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_signals.find(id);
    if (it != m_signals.end()) {
        gone = std::move(it->second);
        m_signals.erase(it);
    }
}

void CSSOBusConnection::SetBusSignalObserver(BusSignalObserver observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_busObserver = std::move(observer);
}

// -------------------------------------------------------------- peer pids

void CSSOBusConnection::RememberPeerPid(const std::string &uniqueName, pid_t pid)
{
    // Called with m_mutex held.
    for (auto it = m_peerPids.begin(); it != m_peerPids.end(); ++it) {
        if (it->first == uniqueName) {
            m_peerPids.erase(it);
            break;
        }
    }
    m_peerPids.emplace_front(uniqueName, pid);
    if (m_peerPids.size() > kPeerPidCacheSize)
        m_peerPids.pop_back();
}

bool CSSOBusConnection::CachedPeerPid(const std::string &uniqueName, pid_t &pid)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_peerPids.begin(); it != m_peerPids.end(); ++it) {
        if (it->first == uniqueName) {
            pid = it->second;
            m_peerPids.splice(m_peerPids.begin(), m_peerPids, it);
            return true;
        }
    }
    return false;
}

bool CSSOBusConnection::PeerPid(const std::string &uniqueName, int timeoutMs, pid_t &pid)
{
    if (CachedPeerPid(uniqueName, pid))
        return true;
    if (!g_dbus_is_unique_name(uniqueName.c_str()))
        return false;
    sso_glib::VariantPtr reply(CallBus("GetConnectionUnixProcessID",
                                       g_variant_new("(s)", uniqueName.c_str()), timeoutMs, nullptr,
                                       nullptr));
    if (reply == nullptr)
        return false;
    bool ok = g_variant_is_of_type(reply.get(), G_VARIANT_TYPE("(u)"));
    if (ok) {
        guint32 value = 0;
        g_variant_get(reply.get(), "(u)", &value);
        pid = static_cast<pid_t>(value);
        SSO_LOGP("GetConnectionUnixProcessID(%s) = %d", uniqueName.c_str(), static_cast<int>(pid));
        std::lock_guard<std::mutex> lock(m_mutex);
        RememberPeerPid(uniqueName, pid);
    }
    return ok;
}

bool CSSOBusConnection::LookupPeerPidAsync(const std::string &uniqueName, GMainContext *context,
                                           std::function<void(pid_t, bool)> done)
{
    pid_t cached = 0;
    if (CachedPeerPid(uniqueName, cached)) {
        sso_bus_invoke(context, [done, cached] { done(cached, true); });
        return true;
    }
    if (!g_dbus_is_unique_name(uniqueName.c_str())) {
        sso_bus_invoke(context, [done] { done(0, false); });
        return true;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto open = m_peerLookups.find(uniqueName);
        if (open != m_peerLookups.end()) {
            if (open->second.size() >= kIncomingCallsQueued)
                return false;
            open->second.emplace_back(g_main_context_ref(context), std::move(done));
            return true;
        }
        if (m_peerLookups.size() >= kPeerPidLookupsOpen)
            return false;
        m_peerLookups[uniqueName].emplace_back(g_main_context_ref(context), std::move(done));
    }
    GDBusMessage *call = g_dbus_message_new_method_call(
        SSO_BUS_NAME, SSO_BUS_PATH, SSO_BUS_INTERFACE, "GetConnectionUnixProcessID");
    g_dbus_message_set_body(call, g_variant_new("(s)", uniqueName.c_str()));
    // Answered on the reader thread, which only records it and passes it on.
    CallAsync(call, 2000, nullptr, [this, uniqueName](GDBusMessage *reply, const GError *) {
        pid_t pid = 0;
        bool ok = false;
        GVariant *body = reply != nullptr && g_dbus_message_get_message_type(reply) ==
                                                 G_DBUS_MESSAGE_TYPE_METHOD_RETURN
                             ? g_dbus_message_get_body(reply)
                             : nullptr;
        if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(u)"))) {
            guint32 value = 0;
            g_variant_get(body, "(u)", &value);
            pid = static_cast<pid_t>(value);
            ok = true;
            SSO_LOGP("GetConnectionUnixProcessID(%s) = %d", uniqueName.c_str(),
                     static_cast<int>(pid));
        }
        std::vector<std::pair<GMainContext *, std::function<void(pid_t, bool)>>> waiting;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto it = m_peerLookups.find(uniqueName);
            if (it != m_peerLookups.end()) {
                waiting = std::move(it->second);
                m_peerLookups.erase(it);
            }
            if (ok)
                RememberPeerPid(uniqueName, pid);
        }
        for (auto &w : waiting) {
            auto fn = std::move(w.second);
            sso_bus_invoke(w.first, [fn, pid, ok] { fn(pid, ok); });
            g_main_context_unref(w.first);
        }
    });
    g_object_unref(call);
    return true;
}

// ------------------------------------------------------------------ reading

void CSSOBusConnection::Wake()
{
    if (m_wakeFd >= 0) {
        uint64_t one = 1;
        ssize_t ignored = write(m_wakeFd, &one, sizeof(one));
        (void)ignored;
    }
}

void CSSOBusConnection::StartReader()
{
    SSOQuietThreadStart quiet;
    m_reader = std::thread([this] {
        pthread_setname_np(pthread_self(), "SSOBusReader");
        ReaderLoop();
    });
}

void CSSOBusConnection::ReaderLoop()
{
    // Inside the fork gate except while it waits in poll.
    EnterGLibWork();
    // Messages read during set-up wait in the buffer.
    bool healthy = DrainBuffer();
    std::vector<guchar> chunk(kReadChunk);
    while (healthy && !isClosed()) {
        int timeout = -1;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (const auto &entry : m_async) {
                int ms = MsLeft(entry.second->deadline);
                if (timeout < 0 || ms < timeout)
                    timeout = ms;
            }
        }
        struct pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        LeaveGLibWork();
        int r = poll(fds, 2, timeout);
        int pollError = errno;
        EnterGLibWork();
        if (r < 0 && pollError != EINTR)
            break;
        if (fds[1].revents & POLLIN) {
            uint64_t count;
            ssize_t ignored = read(m_wakeFd, &count, sizeof(count));
            (void)ignored;
        }
        if (isClosed())
            break;
        if (fds[0].revents != 0) {
            for (;;) {
                ssize_t n = recv(m_fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
                if (n > 0) {
                    m_buffer.insert(m_buffer.end(), chunk.data(), chunk.data() + n);
                    if (static_cast<size_t>(n) < chunk.size())
                        break;
                    continue;
                }
                if (n < 0 && errno == EINTR)
                    continue;
                if (n < 0 && errno == EAGAIN)
                    break;
                healthy = false; // end of stream or error: the bus is gone
                break;
            }
            if (!DrainBuffer())
                healthy = false;
        }
        ExpireAsyncCalls();
    }
    m_closed.store(true, std::memory_order_release);
    FailAll("The connection is closed");
    LeaveGLibWork();
}

bool CSSOBusConnection::DrainBuffer()
{
    size_t offset = 0;
    bool ok = true;
    while (m_buffer.size() - offset >= 16) {
        GError *error = nullptr;
        gssize need = g_dbus_message_bytes_needed(m_buffer.data() + offset, 16, &error);
        if (need < 0 || need > kMaxMessageSize) {
            SSO_LOGE("The bus sent a message that cannot be read: %s",
                     error != nullptr ? error->message : "too large");
            g_clear_error(&error);
            ok = false;
            break;
        }
        if (m_buffer.size() - offset < static_cast<size_t>(need))
            break;
        GDBusMessage *message =
            g_dbus_message_new_from_blob(m_buffer.data() + offset, static_cast<gsize>(need),
                                         G_DBUS_CAPABILITY_FLAGS_NONE, &error);
        offset += static_cast<size_t>(need);
        if (message == nullptr) {
            SSO_LOGE("The bus sent a message that cannot be read: %s",
                     error != nullptr ? error->message : "");
            g_clear_error(&error);
            ok = false;
            break;
        }
        Dispatch(message);
        g_object_unref(message);
    }
    m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(offset));
    return ok;
}

void CSSOBusConnection::Dispatch(GDBusMessage *message)
{
    switch (g_dbus_message_get_message_type(message)) {
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case G_DBUS_MESSAGE_TYPE_ERROR:
        DispatchReply(message);
        break;
    case G_DBUS_MESSAGE_TYPE_SIGNAL:
        DispatchSignal(message);
        break;
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        DispatchCall(message);
        break;
    default:
        break;
    }
}

void CSSOBusConnection::DispatchReply(GDBusMessage *message)
{
    uint32_t serial = g_dbus_message_get_reply_serial(message);
    std::unique_ptr<AsyncCall> async;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto waiter = m_waiters.find(serial);
        if (waiter != m_waiters.end()) {
            waiter->second->reply = static_cast<GDBusMessage *>(g_object_ref(message));
            waiter->second->done = true;
            waiter->second->cv.notify_all();
            m_waiters.erase(waiter);
            return;
        }
        auto it = m_async.find(serial);
        if (it == m_async.end())
            return; // a reply nobody waits for any more
        async = std::move(it->second);
        m_async.erase(it);
    }
    GError *error = nullptr;
    GDBusMessage *reply = static_cast<GDBusMessage *>(g_object_ref(message));
    if (g_dbus_message_to_gerror(reply, &error)) {
        g_object_unref(reply);
        reply = nullptr;
    }
    if (async->context == nullptr) {
        async->handler(reply, error);
        if (reply != nullptr)
            g_object_unref(reply);
        g_clear_error(&error);
        return;
    }
    std::shared_ptr<GError> sharedError(error, [](GError *e) {
        if (e != nullptr)
            g_error_free(e);
    });
    std::shared_ptr<GDBusMessage> sharedReply(reply, [](GDBusMessage *m) {
        if (m != nullptr)
            g_object_unref(m);
    });
    ReplyHandler fn = std::move(async->handler);
    sso_bus_invoke(async->context,
                   [fn, sharedReply, sharedError] { fn(sharedReply.get(), sharedError.get()); });
    g_main_context_unref(async->context);
}

void CSSOBusConnection::DispatchSignal(GDBusMessage *message)
{
    const char *sender = g_dbus_message_get_sender(message);
    const char *interface = g_dbus_message_get_interface(message);
    const char *member = g_dbus_message_get_member(message);
    const char *path = g_dbus_message_get_path(message);
    if (g_strcmp0(sender, SSO_BUS_NAME) == 0 && g_strcmp0(path, SSO_BUS_PATH) == 0 &&
        g_strcmp0(interface, SSO_BUS_INTERFACE) == 0) {
        BusSignalObserver observer;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            observer = m_busObserver;
        }
        if (observer)
            observer(member, g_dbus_message_get_body(message));
    }
    std::vector<std::shared_ptr<SignalEntry>> matched;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto &entry : m_signals) {
            const SignalEntry &s = *entry.second;
            if ((s.sender.empty() || g_strcmp0(sender, s.sender.c_str()) == 0) &&
                (s.interface.empty() || g_strcmp0(interface, s.interface.c_str()) == 0) &&
                (s.member.empty() || g_strcmp0(member, s.member.c_str()) == 0) &&
                (s.path.empty() || g_strcmp0(path, s.path.c_str()) == 0))
                matched.push_back(entry.second);
        }
    }
    for (const auto &entry : matched) {
        std::shared_ptr<GDBusMessage> signal(static_cast<GDBusMessage *>(g_object_ref(message)),
                                             g_object_unref);
        std::weak_ptr<SignalEntry> weak = entry;
        sso_bus_invoke(entry->context, [weak, signal] {
            // Unsubscribed meanwhile: nothing more is delivered.
            if (auto live = weak.lock())
                live->handler(signal.get());
        });
    }
}

void CSSOBusConnection::DispatchCall(GDBusMessage *message)
{
    const char *path = g_dbus_message_get_path(message);
    std::shared_ptr<ObjectEntry> object;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto &entry : m_objects) {
            if (g_strcmp0(entry.second->path.c_str(), path) == 0) {
                object = entry.second;
                break;
            }
        }
    }
    auto invocation = std::make_shared<CSSOBusInvocation>(shared_from_this(), message);
    if (object == nullptr) {
        sso_glib::CharPtr text(
            g_strdup_printf("No such object path '%s'", path != nullptr ? path : ""));
        invocation->ReturnDBusError("org.freedesktop.DBus.Error.UnknownObject", text.get());
        return;
    }
    AnswerObjectCall(object, invocation);
}

void CSSOBusConnection::AnswerObjectCall(const std::shared_ptr<ObjectEntry> &object,
                                         const Invocation &invocation)
{
    GDBusMessage *message = invocation->message();
    const char *interface = g_dbus_message_get_interface(message);
    const char *member = g_dbus_message_get_member(message);
    const char *signature = g_dbus_message_get_signature(message);
    if (signature == nullptr)
        signature = "";

    if (g_strcmp0(interface, "org.freedesktop.DBus.Introspectable") == 0 &&
        g_strcmp0(member, "Introspect") == 0) {
        GString *xml = g_string_new(
            "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
            "                      \"http://www.freedesktop.org/standards/dbus/1.0/"
            "introspect.dtd\">\n<node>\n"
            "  <interface name=\"org.freedesktop.DBus.Peer\">\n"
            "    <method name=\"Ping\"/>\n"
            "    <method name=\"GetMachineId\">\n"
            "      <arg type=\"s\" name=\"machine_uuid\" direction=\"out\"/>\n"
            "    </method>\n  </interface>\n"
            "  <interface name=\"org.freedesktop.DBus.Introspectable\">\n"
            "    <method name=\"Introspect\">\n"
            "      <arg type=\"s\" name=\"xml_data\" direction=\"out\"/>\n"
            "    </method>\n  </interface>\n");
        g_dbus_interface_info_generate_xml(object->interface, 2, xml);
        g_string_append(xml, "</node>\n");
        invocation->ReturnValue(g_variant_new("(s)", xml->str));
        g_string_free(xml, TRUE);
        return;
    }
    if (g_strcmp0(interface, "org.freedesktop.DBus.Peer") == 0) {
        if (g_strcmp0(member, "Ping") == 0) {
            invocation->ReturnValue(nullptr);
            return;
        }
        if (g_strcmp0(member, "GetMachineId") == 0) {
            sso_glib::CharPtr id(g_dbus_generate_guid());
            invocation->ReturnValue(g_variant_new("(s)", id.get()));
            return;
        }
    }
    if (interface != nullptr && g_strcmp0(interface, object->interface->name) != 0) {
        sso_glib::CharPtr text(g_strdup_printf("No such interface '%s' on object at path %s",
                                               interface, object->path.c_str()));
        invocation->ReturnDBusError("org.freedesktop.DBus.Error.UnknownMethod", text.get());
        return;
    }
    GDBusMethodInfo *method = g_dbus_interface_info_lookup_method(object->interface, member);
    if (method == nullptr) {
        sso_glib::CharPtr text(
            g_strdup_printf("No such method '%s'", member != nullptr ? member : ""));
        invocation->ReturnDBusError("org.freedesktop.DBus.Error.UnknownMethod", text.get());
        return;
    }
    std::string expected;
    for (GDBusArgInfo **arg = method->in_args; arg != nullptr && *arg != nullptr; ++arg)
        expected += (*arg)->signature;
    if (expected != signature) {
        sso_glib::CharPtr text(
            g_strdup_printf("Type of message, '(%s)', does not match expected type '(%s)'",
                            signature, expected.c_str()));
        invocation->ReturnDBusError("org.freedesktop.DBus.Error.InvalidArgs", text.get());
        return;
    }
    // A bounded queue: a flood is answered here rather than held in memory.
    if (m_queuedCalls.fetch_add(1, std::memory_order_relaxed) >= kIncomingCallsQueued) {
        m_queuedCalls.fetch_sub(1, std::memory_order_relaxed);
        invocation->ReturnDBusError("org.freedesktop.DBus.Error.LimitsExceeded",
                                    "Too many calls are waiting");
        return;
    }
    std::weak_ptr<ObjectEntry> weak = object;
    sso_bus_invoke(object->context, [this, weak, invocation] {
        m_queuedCalls.fetch_sub(1, std::memory_order_relaxed);
        // Unregistered meanwhile: left unanswered, as for a gone object.
        if (auto live = weak.lock())
            live->handler(invocation);
    });
}

void CSSOBusConnection::ExpireAsyncCalls()
{
    std::vector<std::unique_ptr<AsyncCall>> expired;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto now = SSOClock::now();
        for (auto it = m_async.begin(); it != m_async.end();) {
            if (it->second->deadline <= now) {
                expired.push_back(std::move(it->second));
                it = m_async.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto &async : expired) {
        GError *error = nullptr;
        SetTimedOut(&error);
        if (async->context == nullptr) {
            async->handler(nullptr, error);
            g_error_free(error);
            continue;
        }
        std::shared_ptr<GError> shared(error, g_error_free);
        ReplyHandler fn = std::move(async->handler);
        sso_bus_invoke(async->context, [fn, shared] { fn(nullptr, shared.get()); });
        g_main_context_unref(async->context);
    }
}

void CSSOBusConnection::FailAll(const char *why)
{
    std::unordered_map<uint32_t, std::unique_ptr<AsyncCall>> async;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto &entry : m_waiters) {
            SetClosed(&entry.second->error, why);
            entry.second->done = true;
            entry.second->cv.notify_all();
        }
        m_waiters.clear();
        async.swap(m_async);
    }
    for (auto &entry : async) {
        GError *error = nullptr;
        SetClosed(&error, why);
        auto &call = entry.second;
        if (call->context == nullptr) {
            call->handler(nullptr, error);
            g_error_free(error);
            continue;
        }
        std::shared_ptr<GError> shared(error, g_error_free);
        ReplyHandler fn = std::move(call->handler);
        sso_bus_invoke(call->context, [fn, shared] { fn(nullptr, shared.get()); });
        g_main_context_unref(call->context);
    }
}

void CSSOBusConnection::Close()
{
    m_closed.store(true, std::memory_order_release);
    shutdown(m_fd, SHUT_RDWR);
    Wake();
    if (m_reader.joinable() && m_reader.get_id() != std::this_thread::get_id())
        m_reader.join();
    FailAll("The connection is closed");
}
