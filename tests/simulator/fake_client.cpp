#include "fake_client.h"

#include <unistd.h>

#include <stdexcept>

#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

#ifndef SSO_DATA_DIR
#error "SSO_DATA_DIR must be defined"
#endif

namespace simtest {

namespace {

GDBusInterfaceInfo *LoadInterface(const char *file, const char *iface)
{
    const std::string path = std::string(SSO_DATA_DIR) + "/" + file;
    gchar *xml = nullptr;
    GError *error = nullptr;
    if (!g_file_get_contents(path.c_str(), &xml, nullptr, &error))
        throw std::runtime_error("cannot read " + path + ": " + error->message);
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml, &error);
    g_free(xml);
    if (node == nullptr)
        throw std::runtime_error("cannot parse " + path + ": " + error->message);
    GDBusInterfaceInfo *info = g_dbus_node_info_lookup_interface(node, iface);
    if (info == nullptr)
        throw std::runtime_error(path + " lacks " + iface);
    // Kept for the life of the process, like the data it describes.
    g_dbus_interface_info_ref(info);
    g_dbus_node_info_unref(node);
    return info;
}

std::string ErrorName(const GError *error)
{
    gchar *remote = g_dbus_error_get_remote_error(error);
    std::string name =
        remote ? remote
               : std::string(g_quark_to_string(error->domain)) + "." + std::to_string(error->code);
    g_free(remote);
    return name;
}

} // namespace

GDBusInterfaceInfo *ServerInterface()
{
    static GDBusInterfaceInfo *info =
        LoadInterface("org.orvex.tv.ssoservice.server.xml", ssotest::kSsoServiceInterface);
    return info;
}

GDBusInterfaceInfo *ClientInterface()
{
    static GDBusInterfaceInfo *info =
        LoadInterface("org.orvex.tv.ssoservice.ssoclient.xml", ssotest::kSsoClientInterface);
    return info;
}

std::vector<std::string> MethodNames(GDBusInterfaceInfo *iface)
{
    std::vector<std::string> names;
    for (GDBusMethodInfo **m = iface->methods; m && *m; ++m)
        names.push_back((*m)->name);
    return names;
}

std::string InSignature(const GDBusMethodInfo *method)
{
    std::string sig;
    for (GDBusArgInfo **a = method->in_args; a && *a; ++a)
        sig += (*a)->signature;
    return sig;
}

int32_t Reply::Int() const
{
    if (!value || !g_variant_is_of_type(value.get(), G_VARIANT_TYPE("(i)")))
        throw std::runtime_error("no (i) answer: " + error_name + " " + error_message);
    int32_t v = 0;
    g_variant_get(value.get(), "(i)", &v);
    return v;
}

std::string Reply::String() const
{
    if (!value || !g_variant_is_of_type(value.get(), G_VARIANT_TYPE("(s)")))
        throw std::runtime_error("no (s) answer: " + error_name + " " + error_message);
    const gchar *s = nullptr;
    g_variant_get(value.get(), "(&s)", &s);
    return s;
}

FakeClient::FakeClient(std::string object_name) : object_name_(std::move(object_name))
{
    if (object_name_.empty())
        object_name_ = "obj" + std::to_string(getpid()) + "_test";
}

FakeClient::~FakeClient()
{
    Stop();
}

std::string FakeClient::bus_name() const
{
    return ssotest::kSsoClientNamePrefix + object_name_;
}

std::string FakeClient::unique_name() const
{
    return connection_ ? g_dbus_connection_get_unique_name(connection_) : "";
}

void FakeClient::Start()
{
    if (thread_.joinable())
        return;
    ClientInterface(); // load before the thread needs it; throws on bad data
    std::promise<std::string> started;
    auto result = started.get_future();
    thread_ = std::thread([this, &started] { Run(&started); });
    std::string error = result.get();
    if (!error.empty()) {
        thread_.join();
        throw std::runtime_error("fake client: " + error);
    }
}

void FakeClient::Stop()
{
    if (!thread_.joinable())
        return;
    // Quit from inside the loop: a quit before the loop runs would be lost.
    GSource *quit = g_idle_source_new();
    g_source_set_callback(
        quit,
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop *>(loop));
            return G_SOURCE_REMOVE;
        },
        loop_, nullptr);
    g_source_attach(quit, context_);
    g_source_unref(quit);
    thread_.join();
}

// Everything GDBus dispatches for this client runs on this thread, in its own
// context, so the test thread stays free to block in calls.
void FakeClient::Run(std::promise<std::string> *started)
{
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    loop_ = g_main_loop_new(context_, FALSE);
    std::string error_text;
    guint registration = 0;
    guint subscription = 0;
    GError *error = nullptr;
    gchar *address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (address)
        connection_ = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
    g_free(address);
    if (connection_ == nullptr) {
        error_text = std::string("cannot connect: ") + error->message;
    } else {
        static const GDBusInterfaceVTable kVTable = {
            &FakeClient::OnMethodCall, nullptr, nullptr, {}};
        registration =
            g_dbus_connection_register_object(connection_, ssotest::kSsoClientPath,
                                              ClientInterface(), &kVTable, this, nullptr, &error);
        if (registration == 0)
            error_text = std::string("cannot export: ") + error->message;
    }
    if (error_text.empty()) {
        subscription = g_dbus_connection_signal_subscribe(
            connection_, nullptr, ssotest::kSsoSignalInterface, nullptr, ssotest::kSsoSignalPath,
            nullptr, G_DBUS_SIGNAL_FLAGS_NONE, &FakeClient::OnSignal, this, nullptr);
        // Synchronous, so the match rule and the name are in place when
        // Start returns (the bus handles our messages in order).
        GVariant *r = g_dbus_connection_call_sync(
            connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            own_name_ ? "RequestName" : "GetId",
            own_name_ ? g_variant_new("(su)", bus_name().c_str(), 4u) : nullptr,
            own_name_ ? G_VARIANT_TYPE("(u)") : G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE,
            10000, nullptr, &error);
        guint32 code = own_name_ ? 0 : 1;
        if (r) {
            if (own_name_)
                g_variant_get(r, "(u)", &code);
            g_variant_unref(r);
        }
        if (code != 1)
            error_text = "cannot own " + bus_name() +
                         (error ? std::string(": ") + error->message : std::string());
    }
    if (error)
        g_error_free(error);
    started->set_value(error_text);
    if (error_text.empty())
        g_main_loop_run(loop_);

    if (subscription)
        g_dbus_connection_signal_unsubscribe(connection_, subscription);
    if (registration)
        g_dbus_connection_unregister_object(connection_, registration);
    if (connection_) {
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        // Let GDBus run what it queued for this context before it goes.
        while (g_main_context_iteration(context_, FALSE)) {
        }
        g_object_unref(connection_);
    }
    g_main_loop_unref(loop_);
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
}

void FakeClient::OnMethodCall(GDBusConnection *, const gchar *sender, const gchar *, const gchar *,
                              const gchar *method, GVariant *params,
                              GDBusMethodInvocation *invocation, gpointer self)
{
    auto *client = static_cast<FakeClient *>(self);
    RecordedCall call;
    call.sender = sender ? sender : "";
    call.method = method;
    call.args = Variant(g_variant_ref(params), VariantDeleter());
    call.text = Print(params);
    call.at = Clock::now();
    {
        std::lock_guard<std::mutex> lock(client->mutex_);
        client->calls_.push_back(std::move(call));
    }
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

void FakeClient::OnSignal(GDBusConnection *, const gchar *sender, const gchar *path,
                          const gchar *iface, const gchar *member, GVariant *params, gpointer self)
{
    auto *client = static_cast<FakeClient *>(self);
    RecordedSignal s{sender ? sender : "", path, iface, member, Print(params)};
    std::lock_guard<std::mutex> lock(client->mutex_);
    client->signals_.push_back(std::move(s));
}

std::vector<RecordedCall> FakeClient::Calls()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<RecordedSignal> FakeClient::Signals()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return signals_;
}

bool FakeClient::WaitForCalls(std::size_t n, std::chrono::milliseconds timeout)
{
    return ssotest::WaitUntil([&] { return Calls().size() >= n; }, timeout);
}

bool FakeClient::WaitForSignals(std::size_t n, std::chrono::milliseconds timeout)
{
    return ssotest::WaitUntil([&] { return Signals().size() >= n; }, timeout);
}

Reply FakeClient::Request(const std::string &method, GVariant *params, int timeout_ms)
{
    Variant owned = Adopt(params);
    Reply reply;
    GError *error = nullptr;
    reply.sent = Clock::now();
    GVariant *value = g_dbus_connection_call_sync(
        connection_, ssotest::kSsoServiceName, ssotest::kSsoServicePath,
        ssotest::kSsoServiceInterface, method.c_str(), owned.get(), nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout_ms, nullptr, &error);
    reply.at = Clock::now();
    if (value) {
        reply.value = Variant(value, VariantDeleter());
    } else {
        reply.error_name = ErrorName(error);
        reply.error_message = error->message;
        reply.timed_out = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT);
        g_error_free(error);
    }
    return reply;
}

GVariant *FakeClient::BuildRequest(const std::string &method, const std::string &method_call,
                                   const RequestValues &values) const
{
    GDBusMethodInfo *info = g_dbus_interface_info_lookup_method(ServerInterface(), method.c_str());
    if (info == nullptr)
        throw std::runtime_error("no server method " + method);
    const std::string sig = InSignature(info);
    const std::size_t n = sig.size();
    const bool async = n >= 5 && sig.compare(n - 4, 4, "xxis") == 0;
    const std::size_t callback = async ? sig.find('x') : std::string::npos;
    std::vector<GVariant *> children;
    for (std::size_t i = 0; i < n; ++i) {
        const char t = sig[i];
        GVariant *v = nullptr;
        if (i == 0)
            v = g_variant_new_string(object_name_.c_str());
        else if (async && i == callback)
            v = g_variant_new_int64(values.callback);
        else if (async && i == n - 4)
            v = g_variant_new_int64(values.request_id);
        else if (async && i == n - 3)
            v = g_variant_new_int64(values.user_data);
        else if (async && i == n - 2)
            v = g_variant_new_int32(values.ae_index);
        else if (async && i == n - 1)
            v = g_variant_new_string(method_call.c_str());
        else if (t == 's')
            v = g_variant_new_string(("s" + std::to_string(i)).c_str());
        else if (t == 'x')
            v = g_variant_new_int64(static_cast<int64_t>(1000 + i));
        else if (t == 'i')
            v = g_variant_new_int32(static_cast<int32_t>(i));
        else
            throw std::runtime_error("unexpected argument type in " + method);
        children.push_back(v);
    }
    return g_variant_new_tuple(children.data(), children.size());
}

Reply FakeClient::RequestAsync(const std::string &method, const std::string &method_call,
                               const RequestValues &values, int timeout_ms)
{
    return Request(method, BuildRequest(method, method_call, values), timeout_ms);
}

Reply FakeClient::RequestSimple(const std::string &method, int timeout_ms)
{
    return Request(method, BuildRequest(method, method, RequestValues{}), timeout_ms);
}

Variant ArgByName(const std::string &client_method, GVariant *args, const std::string &name)
{
    GDBusMethodInfo *info =
        g_dbus_interface_info_lookup_method(ClientInterface(), client_method.c_str());
    if (info == nullptr)
        throw std::runtime_error("no client method " + client_method);
    gsize i = 0;
    for (GDBusArgInfo **a = info->in_args; a && *a; ++a, ++i)
        if (name == (*a)->name)
            return Variant(g_variant_get_child_value(args, i), VariantDeleter());
    throw std::runtime_error(client_method + " has no argument " + name);
}

std::string StringArg(const RecordedCall &call, const std::string &name)
{
    Variant v = ArgByName(call.method, call.args.get(), name);
    return g_variant_get_string(v.get(), nullptr);
}

int64_t Int64Arg(const RecordedCall &call, const std::string &name)
{
    return g_variant_get_int64(ArgByName(call.method, call.args.get(), name).get());
}

int32_t Int32Arg(const RecordedCall &call, const std::string &name)
{
    return g_variant_get_int32(ArgByName(call.method, call.args.get(), name).get());
}

} // namespace simtest
