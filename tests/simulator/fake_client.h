// A client process as the simulator sees it, built from plain GDBus: owns
// "org.orvex.tv.ssoservice.ssoclient.<object name>", exports the client
// interface from the client XML (so GDBus rejects a delivery of the wrong
// shape), records every call and every service signal with its arrival
// time, and sends requests to the service.
#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace simtest {

using Clock = std::chrono::steady_clock;

struct VariantDeleter {
    void operator()(GVariant *v) const { g_variant_unref(v); }
};
using Variant = std::shared_ptr<GVariant>;
// Takes a (possibly floating) reference.
inline Variant Adopt(GVariant *v)
{
    return Variant(v ? g_variant_ref_sink(v) : nullptr, VariantDeleter());
}
inline std::string Print(GVariant *v)
{
    gchar *s = g_variant_print(v, TRUE);
    std::string out = s;
    g_free(s);
    return out;
}

// The interfaces as the data files describe them.
GDBusInterfaceInfo *ServerInterface();
GDBusInterfaceInfo *ClientInterface();
std::vector<std::string> MethodNames(GDBusInterfaceInfo *iface);
std::string InSignature(const GDBusMethodInfo *method);

struct RecordedCall {
    std::string sender;
    std::string method;
    Variant args;
    std::string text; // Print(args)
    Clock::time_point at;
};

struct RecordedSignal {
    std::string sender;
    std::string path;
    std::string interface;
    std::string member;
    std::string text;
};

// The answer of one request to the service.
struct Reply {
    Variant value;          // null on error
    std::string error_name; // remote D-Bus error name, or the GError domain/code text
    std::string error_message;
    bool timed_out = false;
    Clock::time_point sent;
    Clock::time_point at;
    bool ok() const { return value != nullptr; }
    int32_t Int() const;        // the (i) answer
    std::string String() const; // the (s) answer
};

// The values an asynchronous request carries and the result must echo.
struct RequestValues {
    int64_t callback = 0x7f00aa001000;
    int64_t request_id = 42;
    int64_t user_data = 0x7f00bb002000;
    int32_t ae_index = 3;
};

class FakeClient {
public:
    // object_name defaults to "obj<our pid>_test".
    explicit FakeClient(std::string object_name = "");
    ~FakeClient();
    FakeClient(const FakeClient &) = delete;
    FakeClient &operator=(const FakeClient &) = delete;

    // Connects to the system bus, exports the client object, subscribes to
    // the service's signals and owns the client bus name. Throws.
    void Start();
    // The same, without owning the client bus name.
    void StartWithoutName()
    {
        own_name_ = false;
        Start();
    }
    void Stop();

    const std::string &object_name() const { return object_name_; }
    std::string bus_name() const;
    std::string unique_name() const;
    GDBusConnection *connection() const { return connection_; }

    std::vector<RecordedCall> Calls();
    std::vector<RecordedSignal> Signals();
    bool WaitForCalls(std::size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10));
    bool WaitForSignals(std::size_t n,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // Calls a service method with params (floating refs are taken).
    Reply Request(const std::string &method, GVariant *params, int timeout_ms = 10000);
    // A well-typed request to any server method: our object name first,
    // values for the asynchronous tail, "s<i>" strings and small numbers
    // elsewhere.
    Reply RequestAsync(const std::string &method, const std::string &method_call,
                       const RequestValues &values = {}, int timeout_ms = 10000);
    Reply RequestSimple(const std::string &method, int timeout_ms = 10000);
    GVariant *BuildRequest(const std::string &method, const std::string &method_call,
                           const RequestValues &values) const;

private:
    static void OnMethodCall(GDBusConnection *, const gchar *sender, const gchar *, const gchar *,
                             const gchar *method, GVariant *params,
                             GDBusMethodInvocation *invocation, gpointer self);
    static void OnSignal(GDBusConnection *, const gchar *sender, const gchar *path,
                         const gchar *iface, const gchar *member, GVariant *params, gpointer self);
    void Run(std::promise<std::string> *started);

    std::string object_name_;
    bool own_name_ = true;
    std::thread thread_;
    GMainContext *context_ = nullptr;
    GMainLoop *loop_ = nullptr;
    GDBusConnection *connection_ = nullptr;
    std::mutex mutex_;
    std::vector<RecordedCall> calls_;
    std::vector<RecordedSignal> signals_;
};

// Child value of a client call's arguments by the client XML's argument name.
Variant ArgByName(const std::string &client_method, GVariant *args, const std::string &name);
std::string StringArg(const RecordedCall &call, const std::string &name);
int64_t Int64Arg(const RecordedCall &call, const std::string &name);
int32_t Int32Arg(const RecordedCall &call, const std::string &name);

} // namespace simtest
