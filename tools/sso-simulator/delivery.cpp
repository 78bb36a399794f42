#include "delivery.h"

#include <exception>
#include <memory>
#include <stdexcept>

#include "sim_log.h"

namespace ssosim {

namespace {

// Client replies are empty; a client that never replies must not pin memory
// forever, so give up after a while (the library answers at once).
constexpr int kClientCallTimeoutMs = 20000;

// An integer-like value of the argument's own type, so a client interface
// that widens or narrows a field still gets a well-typed call.
GVariant *IntegerOfType(const std::string &type, std::int64_t value)
{
    if (type == "x")
        return g_variant_new_int64(value);
    if (type == "i")
        return g_variant_new_int32(static_cast<gint32>(value));
    if (type == "u")
        return g_variant_new_uint32(static_cast<guint32>(value));
    if (type == "t")
        return g_variant_new_uint64(static_cast<guint64>(value));
    if (type == "n")
        return g_variant_new_int16(static_cast<gint16>(value));
    if (type == "q")
        return g_variant_new_uint16(static_cast<guint16>(value));
    if (type == "y")
        return g_variant_new_byte(static_cast<guchar>(value));
    if (type == "b")
        return g_variant_new_boolean(value != 0);
    if (type == "d")
        return g_variant_new_double(static_cast<double>(value));
    throw std::runtime_error("cannot fill a client argument of type '" + type + "'");
}

GVariant *StringOfType(const std::string &type, const std::string &value)
{
    if (type == "s")
        return g_variant_new_string(value.c_str());
    throw std::runtime_error("client argument of type '" + type + "' where a string belongs");
}

// A string argument that carries payload (not the sender or the echo).
bool IsPayload(const ClientMethod &client, std::size_t i)
{
    const ClientArg &arg = client.args[i];
    return i > 1 && arg.type == "s" && arg.name != "obj_name" && arg.name != "method_call";
}

} // namespace

ResolvedResult ResolveResult(const ClientMethod *client, const Request &request,
                             const EffectiveBehaviour &behaviour, const Outcome &outcome,
                             PayloadProvider &payloads)
{
    ResolvedResult r;
    r.result = behaviour.result.value_or(outcome.result);
    r.strings = outcome.values;
    if (client == nullptr)
        return r;
    std::size_t next_payload = 0;
    for (std::size_t i = 0; i < client->args.size(); ++i) {
        if (!IsPayload(*client, i))
            continue;
        const std::string &name = client->args[i].name;
        if (next_payload < behaviour.payloads.size()) {
            r.strings[name] = behaviour.payloads[next_payload];
            r.scripted.insert(name);
        } else if (outcome.values.count(name) == 0) {
            r.strings[name] =
                outcome.blank ? "" : payloads.ResultString(request, client->name, name);
        }
        ++next_payload;
    }
    return r;
}

VariantPtr BuildResultArgs(const ClientMethod &client, const Request &request,
                           const ResolvedResult &result, const std::string &own_object_name)
{
    std::vector<GVariant *> children;
    try {
        for (std::size_t i = 0; i < client.args.size(); ++i) {
            const ClientArg &arg = client.args[i];
            GVariant *v = nullptr;
            if (i == 0 || arg.name == "obj_name") {
                // The client checks that the sender's pid is in this name.
                v = StringOfType(arg.type, own_object_name);
            } else if (i == 1) {
                // The callback pointer, whatever the client calls it.
                v = IntegerOfType(arg.type, request.callback);
            } else if (arg.name == "request_id") {
                v = IntegerOfType(arg.type, request.request_id);
            } else if (arg.name == "user_data") {
                v = IntegerOfType(arg.type, request.user_data);
            } else if (arg.name == "ae_index") {
                v = IntegerOfType(arg.type, request.ae_index);
            } else if (arg.name == "method_call") {
                v = StringOfType(arg.type, request.method_call);
            } else if (arg.name == "result") {
                v = IntegerOfType(arg.type, result.result);
            } else if (arg.type == "s") {
                auto it = result.strings.find(arg.name);
                v = g_variant_new_string(it == result.strings.end() ? "" : it->second.c_str());
            } else {
                v = IntegerOfType(arg.type, 0);
            }
            children.push_back(v);
        }
    } catch (...) {
        for (GVariant *v : children)
            g_variant_unref(g_variant_ref_sink(v));
        throw;
    }
    return AdoptVariant(g_variant_new_tuple(children.data(), children.size()));
}

// One call waiting for its reply.
struct Delivery::Pending {
    Delivery *owner;
    std::string bus_name;
    std::string method;
    Done done;
};

Delivery::Delivery(GDBusConnection *connection, const Contract &contract,
                   std::string own_object_name)
    : connection_(connection), contract_(contract), own_object_name_(std::move(own_object_name)),
      cancellable_(g_cancellable_new())
{
}

Delivery::~Delivery()
{
    Shutdown();
    g_object_unref(cancellable_);
}

void Delivery::Deliver(const Request &request, const ResolvedResult &result)
{
    const std::string &rpc = request.method->name;
    const ClientMethod *client = contract_.FindResultMethod(request.method_call);
    if (client == nullptr) {
        SIM_LOGW("%s request_id %lld: method_call '%s' is no client method; nothing delivered",
                 rpc.c_str(), static_cast<long long>(request.request_id),
                 request.method_call.c_str());
        return;
    }
    // To the connection that asked: a well-known name can be taken over by
    // another process, the unique name of the requester cannot.
    const std::string &bus_name = request.sender;
    if (!g_dbus_is_unique_name(bus_name.c_str())) {
        SIM_LOGW("%s request_id %lld: sender '%s' is no unique name; nothing delivered",
                 rpc.c_str(), static_cast<long long>(request.request_id), bus_name.c_str());
        return;
    }
    VariantPtr args;
    try {
        args = BuildResultArgs(*client, request, result, own_object_name_);
    } catch (const std::exception &e) {
        SIM_LOGE("%s request_id %lld: cannot build %s: %s", rpc.c_str(),
                 static_cast<long long>(request.request_id), client->name.c_str(), e.what());
        return;
    }
    records_.push_back({bus_name, client->name, PrintVariant(args.get())});
    SIM_LOGI("deliver %s to %s (request %s, request_id %lld, result %d)", client->name.c_str(),
             bus_name.c_str(), rpc.c_str(), static_cast<long long>(request.request_id),
             result.result);
    const long long request_id = request.request_id;
    const std::string client_method = client->name;
    Send(bus_name, client->name, args.get(),
         [request_id, client_method, bus_name](const std::string &error) {
             if (error.empty())
                 SIM_LOGD("delivered %s to %s (request_id %lld)", client_method.c_str(),
                          bus_name.c_str(), request_id);
             else
                 SIM_LOGW("delivery of %s to %s (request_id %lld) failed: %s",
                          client_method.c_str(), bus_name.c_str(), request_id, error.c_str());
         });
}

void Delivery::CallClient(const std::string &bus_name, const std::string &method, GVariant *params,
                          Done done)
{
    SIM_LOGI("call-client %s on %s", method.c_str(), bus_name.c_str());
    Send(bus_name, method, params, std::move(done));
}

void Delivery::Send(const std::string &bus_name, const std::string &method, GVariant *params,
                    Done done)
{
    auto *pending = new Pending{this, bus_name, method, std::move(done)};
    ++in_flight_;
    // The flag keeps the bus from activating a client that is gone.
    g_dbus_connection_call(connection_, bus_name.c_str(), kClientPath, kClientInterface,
                           method.c_str(), params, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                           kClientCallTimeoutMs, cancellable_, &Delivery::OnReply, pending);
}

void Delivery::OnReply(GObject *source, GAsyncResult *result, gpointer data)
{
    std::unique_ptr<Pending> pending(static_cast<Pending *>(data));
    --pending->owner->in_flight_;
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    ErrorPtr owned_error(error);
    VariantPtr owned_reply(reply);
    try {
        if (pending->done)
            pending->done(DescribeError(owned_error.get()));
    } catch (const std::exception &e) {
        SIM_LOGE("completion of %s failed: %s", pending->method.c_str(), e.what());
    } catch (...) {
        SIM_LOGE("completion of %s failed", pending->method.c_str());
    }
}

void Delivery::Shutdown()
{
    if (in_flight_ == 0)
        return;
    g_cancellable_cancel(cancellable_);
    // Cancelled calls complete from an idle on this thread's context; the
    // guard timer only bounds the wait should one never come.
    bool expired = false;
    guint guard = g_timeout_add(
        2000,
        [](gpointer flag) -> gboolean {
            *static_cast<bool *>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &expired);
    while (in_flight_ > 0 && !expired)
        g_main_context_iteration(nullptr, TRUE);
    if (!expired)
        g_source_remove(guard);
}

} // namespace ssosim
