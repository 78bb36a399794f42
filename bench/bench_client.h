// The pieces of a benchmark client that need nothing but GIO, so that the
// memory probe (which must not load the library's dependencies before it
// loads the library) can use them too: exactly-once accounting of result
// callbacks, and the bare-GDBus counterpart of the library's link.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace ssobench {

// Asks a loop to quit from inside itself (an idle source on its context), so
// a quit that comes before the loop runs is not lost.
void QuitLoop(GMainContext *context, GMainLoop *loop);

// A connection of its own to the (private) system bus.
GDBusConnection *PrivateConnection();

gint64 AsInt(const void *pointer);
std::int64_t NowNs();

// One per request: the callback counts its hits, so a result delivered twice
// or never is seen.
class Waiter;
struct Ticket {
    Waiter *waiter = nullptr;
    std::atomic<int> hits{0};
};

// One per application thread: hands out tickets, counts the callbacks, and
// lets its thread wait for its own results.
class Waiter {
public:
    Ticket *NewTicket();
    // A ticket from storage of the caller's (allocated before anything is
    // measured), not counted by Missing and Duplicated.
    Ticket *Use(Ticket *ticket)
    {
        ticket->waiter = this;
        return ticket;
    }
    // Waits up to 10 s until `expected` results have arrived; false if not.
    bool Wait(long long expected);
    long long results() const;
    // After the run: tickets without a callback, and callbacks beyond the
    // first of a ticket.
    long long Missing() const;
    long long Duplicated() const;

    // The result callback (sso_request_access_token_cb shape); user data is
    // a Ticket.
    static int OnResult(void *userData, int result, char *text);

private:
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    long long results_ = 0;
    std::deque<Ticket> tickets_; // stable addresses
};

// The bare counterpart of the library's link: one connection, a bus name and
// a client object of its own, results dispatched on a thread running its own
// main context; the callback travels through the service as an integer, as
// the library's does.
class BareClient {
public:
    BareClient() = default;
    ~BareClient();
    BareClient(const BareClient &) = delete;
    BareClient &operator=(const BareClient &) = delete;

    // Connects, registers the object described by the client introspection
    // XML and owns the name; false on failure.
    bool Start(const std::string &introspectionXml, const std::string &suffix = "bench");
    void Stop();

    GDBusConnection *connection() const { return conn_; }
    const std::string &objName() const { return objName_; }

    // The tuple the library sends for sso_request_access_token; true when
    // the service accepted it.
    bool RequestAccessToken(void *userData, int aeIndex);
    // The tuple the library sends for sso_check_alive; true when accepted.
    bool CheckAlive();

private:
    // Calls a service method synchronously; true when it answered "(i)" 1.
    bool CallService(const char *method, GVariant *parameters);
    static void OnCall(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                       const gchar *, GVariant *parameters, GDBusMethodInvocation *invocation,
                       gpointer);
    void Run();

    std::string xml_;
    std::string objName_;
    GDBusConnection *conn_ = nullptr;
    GMainContext *context_ = nullptr;
    GMainLoop *loop_ = nullptr;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable cv_;
    bool ready_ = false;
    bool ok_ = false;
};

} // namespace ssobench
